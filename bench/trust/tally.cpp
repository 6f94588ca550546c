#include "tally.h"

#include <algorithm>
#include <cstdio>

#include <fmt/core.h>

namespace trust {

namespace {

constexpr double kNextSeconds = 5; // a till without a fault must have paid by then, on a busy machine, too

}

void Tally::Add(const Result& result, const std::function<std::string()>& procWords) {
  ++tried;
  paid += result.oReason == "ok";
  unknown += result.oReason == "XL";
  none += result.oReason.starts_with('-'); // no session, or a till that was killed before it was told
  worstMs = std::max(worstMs, result.dWorstMs);
  nextMs = std::max(nextMs, result.dNextMs);
  if (result.oProblem.empty()) return;
  const std::string words = procWords() + ": " + result.oProblem;
  if (problems++ == 0) first = words;
  fmt::print(stderr, "{} ({})\n", words, result.oReason);
}

Finding Tally::Verdict(const std::string& what) const {
  return {what,
          fmt::format("{} faults: {} paid, {} refused, {} unknown, {} untold", tried, paid,
                      tried - paid - unknown - none, unknown, none),
          problems ? fmt::format("{} problems, the first: {}", problems, first)
                   : fmt::format("longest call {:.1f} s, next till {:.1f} s", worstMs / 1000, nextMs / 1000),
          problems == 0 && NextSeconds() < kNextSeconds};
}

} // namespace trust
