// zat_check: measures what the system promises under faults, hostile bytes and load, and prints one table.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "areas.h"

namespace {

using trust::Finding;

struct Area {
  const char* pccName;
  trust::Findings (*procMeasure)(const trust::Extent&);
};
constexpr Area kAreas[] = {
    {nullptr, nullptr},
};

void Print(const Finding& finding) {
  fmt::print("{:<44} {:<46} {:<46} {}\n", finding.oWhat, finding.oTried, finding.oFound,
             finding.fGood ? "good" : "BAD");
  fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
  CLI::App app{"Measures what the system promises under faults, hostile bytes and load.", "zat_check"};
  trust::Extent extent;
  std::vector<std::string> only;
  app.add_flag("--short", extent.fShort, "A second or two for each area");
  app.add_option("--seconds", extent.dSeconds, "Go on for so long in each area")->check(CLI::PositiveNumber);
  app.add_option("areas", only, "Measure these only");
  CLI11_PARSE(app, argc, argv);

  int bad = 0;
  for (const Area& area : kAreas) {
    if (!area.pccName) continue;
    if (!only.empty() && std::find(only.begin(), only.end(), area.pccName) == only.end()) continue;
    for (const Finding& finding : area.procMeasure(extent)) {
      Print(finding);
      bad += finding.fGood ? 0 : 1;
    }
  }
  return bad ? 1 : 0;
}
