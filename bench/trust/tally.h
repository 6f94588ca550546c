// Sums up the results of trials.
#pragma once
#include <functional>
#include <string>

#include "check.h"
#include "lab.h"

namespace trust {

class Tally {
public:
  // Takes one result; the words are asked for when there is a problem. Problems are told on the standard error, too.
  void Add(const Result& result, const std::function<std::string()>& procWords);

  // Good when there was no problem at all, and the next till never had to wait.
  Finding Verdict(const std::string& what) const;

  double WorstSeconds() const { return worstMs / 1000; }
  double NextSeconds() const { return nextMs / 1000; }

private:
  int tried = 0, paid = 0, unknown = 0, none = 0, problems = 0;
  double worstMs = 0, nextMs = 0;
  std::string first; // problem
};

} // namespace trust
