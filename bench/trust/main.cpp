// zat_check: measures what the system promises under faults, hostile bytes and load, and prints one table.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "apart.h"
#include "table.h"

namespace {

// An area that hangs must not keep the others from being measured.
constexpr double kShortLimit = 120, kLimit = 1200;

constexpr double kSoakSeconds = 60; // what an area gets in each round

struct Options {
  trust::Extent oExtent;
  double dMinutes = 0;
  std::vector<std::string> oOnly;
  std::string oJson;
};

bool Wanted(const Options& options, const trust::Area& area) {
  const auto& only = options.oOnly;
  return only.empty() || std::find(only.begin(), only.end(), area.pccName) != only.end();
}

std::vector<std::string> Names() {
  std::vector<std::string> all;
  for (const trust::Area& area : trust::kAreas) all.emplace_back(area.pccName);
  return all;
}

// Every area once, or round and round until the minutes are over.
void Measure(const Options& options, trust::Table& table) {
  typedef std::chrono::steady_clock Clock;
  const auto end = Clock::now() + std::chrono::duration<double>(options.dMinutes * 60);
  const double limit = (options.oExtent.fShort ? kShortLimit : kLimit) + options.oExtent.dSeconds;
  do
    for (const trust::Area& area : trust::kAreas) {
      if (!Wanted(options, area)) continue;
      const trust::Outcome outcome = trust::RunApart(area, options.oExtent, limit);
      table.Add(area.pccName, outcome.oFindings, outcome.dSeconds);
      if (options.dMinutes > 0 && Clock::now() >= end) break;
    }
  while (Clock::now() < end);
}

} // namespace

int main(int argc, char** argv) {
  CLI::App app{"Measures what the system promises under faults, hostile bytes and load.", "zat_check"};
  Options options;
  app.add_flag("--short", options.oExtent.fShort, "A second or two for each area");
  app.add_option("--seconds", options.oExtent.dSeconds, "Go on for so long in each area")
      ->check(CLI::PositiveNumber);
  app.add_option("--minutes", options.dMinutes, "Go round the areas, a minute or --seconds each, for so long")
      ->check(CLI::PositiveNumber);
  app.add_option("--json", options.oJson, "Write the findings as JSON to this file");
  app.add_option("areas", options.oOnly, "Measure these only")->check(CLI::IsMember(Names()));
  CLI11_PARSE(app, argc, argv);
  if (options.dMinutes > 0 && options.oExtent.dSeconds == 0) options.oExtent.dSeconds = kSoakSeconds;

  trust::Table table;
  trust::Table::PrintHead();
  Measure(options, table);
  bool good = table.Bad() == 0;
  printf("\n%s\n", good ? "Everything is found as promised." : "NOT everything is found as promised.");
  if (!options.oJson.empty() && !table.Save(options.oJson)) {
    fprintf(stderr, "cannot write %s\n", options.oJson.c_str());
    good = false;
  }
  return good ? 0 : 1;
}
