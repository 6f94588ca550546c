// The findings as a table for people and as JSON for programs.
#pragma once
#include "check.h"

namespace trust {

class Table {
public:
  static void PrintHead();

  // Prints the rows of one area and keeps them.
  void Add(const std::string& area, const Findings& findings, double seconds);

  // How many findings are not good.
  int Bad() const;

  // Everything as JSON, with the machine it was seen on. False when the file cannot be written.
  bool Save(const std::string& file) const;

private:
  struct Part {
    std::string oArea;
    double dSeconds;
    Findings oFindings;
  };
  std::vector<Part> parts;
};

// Findings as text, for the way from one process to another.
std::string ToText(const Findings& findings);

// The findings of such a text; none when it is not whole.
Findings FromText(const std::string& text);

} // namespace trust
