// Measures what goes on between processes and, by zat_bench, the functions, and prints all as one table.
#include "place.h"
#include "rows.h"
#include <CLI/CLI.hpp>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {

struct Group {
  const char* name;
  void (*measure)(bench::Report&);
};
constexpr Group kGroups[] = {
    {"delay", bench::MeasureDelay},         {"calls", bench::MeasureCalls},
    {"waiting", bench::MeasureWaiting},     {"starting", bench::MeasureStarting},
    {"sale", bench::MeasureSale},           {"tills", bench::MeasureTills},
    {"functions", bench::MeasureFunctions},
};

} // namespace

int main(int argc, char** argv) {
  CLI::App app{"Measures this system beside the limits of the machine.", "zat_bench_process"};
  std::string out;
  std::vector<std::string> only;
  app.add_option("--out", out, "Write the results as JSON to this file");
  app.add_option("groups", only, "Measure these only: delay calls waiting starting sale tills functions");
  CLI11_PARSE(app, argc, argv);

  bench::Report report;
  bench::Report::PrintHead();
  try {
    for (const Group& group : kGroups) {
      if (!only.empty() && std::find(only.begin(), only.end(), group.name) == only.end()) continue;
      bench::KeepIn(bench::Place::memory);
      group.measure(report);
    }
  } catch (const std::exception& e) {
    fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  if (!out.empty()) std::ofstream(out) << report.Json().dump(2) << "\n";
  printf("\n%s\n",
         report.Missed() == 0 ? "All that is wanted is met." : "Not everything that is wanted is met.");
  return 0;
}
