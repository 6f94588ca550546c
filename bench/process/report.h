// What is measured and what it is measured against, as a table for people and as JSON for programs.
#pragma once
#include <cmath>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace bench {

constexpr double kNone = NAN;

struct Row {
  std::string what;         // what is measured
  std::string unit = "";    // of ours and bare
  double ours = kNone;      // this system
  double bare = kNone;      // the limit, measured in the same run
  std::string limit = "";   // what the limit is
  double ratioMost = kNone; // wanted: ours / bare is at most this
  double oursMost = kNone;  // wanted: ours is at most this
  std::string note = "";    // what a reader has to know besides; why it is missing when it was not measured

  double Ratio() const { return bare > 0 ? ours / bare : kNone; }
  bool Measured() const { return !std::isnan(ours); }
  bool Wished() const { return !std::isnan(ratioMost) || !std::isnan(oursMost); }
  bool Met() const;
};

class Report {
public:
  void Add(Row row); // and prints it, so that a long run shows that it goes on
  nlohmann::json Json() const;
  static void PrintHead();
  // How many wishes were not met.
  int Missed() const;

private:
  std::vector<Row> rows;
};

} // namespace bench
