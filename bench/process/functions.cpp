// The rows of the functions: which benchmark is this system, which one is the limit, and what of them is compared.
#include "place.h"
#include "rows.h"
#include <cstdlib>
#include <fmt/core.h>
#include <fstream>
#include <nlohmann/json.hpp>

namespace bench {

namespace {

// A benchmark's median time in nanoseconds, or one of its counters.
constexpr char kTime[] = "real_time";

struct FunctionRow {
  const char *what, *unit, *ours, *bare, *field, *limit;
  double ratioMost, oursMost;
};

const FunctionRow kRows[] = {
    {"one log line", "ns", "Log/Line", "Log/LockProtocol", kTime,
     "the system calls of the lock protocol around the write of the same line", 1.15, kNone},
    {"flatcrc16 over 2000 bytes", "ns", "Crc/2000/flatcrc16", "Crc/2000/table", kTime,
     "a table of 256 entries, one byte a step", 1.0 / 8, kNone},
    {"build a \"60\" response of 12 fields", "ns", "CodecBuild", "CodecCopy", kTime, "copying its bytes",
     kNone, kNone},
    {"build a \"60\" response: allocations", "", "CodecBuild", "CodecCopy", "allocs", "copying its bytes",
     kNone, 11},
    {"parse a \"60\" response of 12 fields", "ns", "CodecParse", "CodecCopy", kTime, "copying its bytes",
     kNone, kNone},
    {"parse a \"60\" response: allocations", "", "CodecParse", "CodecCopy", "allocs", "copying its bytes",
     kNone, 11},
    {"store: put 40 parameters", "ns", "Store/Build/squeeze", "Store/Build/map", kTime, "std::map", 1, kNone},
    {"store: find 40 parameters", "ns", "Store/Find/squeeze", "Store/Find/map", kTime, "std::map", 1, kNone},
    {"store: replace 40 parameters", "ns", "Store/Replace/squeeze", "Store/Replace/map", kTime, "std::map", 1,
     kNone},
    {"store: bytes of 40 parameters", "", "Store/Build/squeeze", "Store/Build/map", "bytes", "std::map", 0.5,
     kNone},
    {"walk 10,000 files, times of all", "ns", "Walk/10000/times", "Walk/10000/readdir+fstatat", kTime,
     "readdir and fstatat of the same", 2, kNone},
    {"walk 10,000 files, list of updates", "ns", "Walk/10000/updates", "Walk/10000/readdir+fstatat", kTime,
     "readdir and fstatat of the same", 2, kNone},
};

// Times come in the benchmark's own unit and leave in nanoseconds; counters are means over all rounds, and whole.
double Field(const nlohmann::json& results, const std::string& name, const std::string& field) {
  for (const auto& one : results.at("benchmarks")) {
    if (one.value("run_name", "") != name || one.value("aggregate_name", "") != "median") continue;
    const double value = one.value(field, kNone);
    if (field != kTime) return std::round(value);
    const std::string unit = one.value("time_unit", "ns");
    return value * (unit == "ms" ? 1e6 : unit == "us" ? 1e3 : 1);
  }
  return kNone;
}

// Nanoseconds in the unit in which they are easy to read.
void Scale(Row& row) {
  if (row.unit != "ns" || !(row.ours >= 1000)) return;
  const bool ms = row.ours >= 1000000;
  row.unit = ms ? "ms" : "us";
  row.ours /= ms ? 1e6 : 1e3;
  row.bare /= ms ? 1e6 : 1e3;
}

} // namespace

void MeasureFunctions(Report& report) {
  KeepIn(Place::disk); // where a log is
  const std::string file = ZAT_BENCH_DIR "/functions.json";
  // In turn with one another and several times, so that whatever else the machine does meets all of them. Without the
  // lines that the parser writes for each field, which would be nearly all of its time.
  const std::string command = fmt::format(
      "ZAT_L_LEVEL=L " ZAT_BENCH_DIR
      "/zat_bench --benchmark_filter='^(Log|Crc|Codec|Walk|Store/.*/(squeeze|map))' "
      "--benchmark_repetitions=9 --benchmark_min_time=0.03 --benchmark_enable_random_interleaving=true "
      "--benchmark_report_aggregates_only=true --benchmark_out={} >/dev/null 2>&1",
      file);
  if (system(command.c_str()) != 0) throw std::runtime_error("zat_bench failed");
  const nlohmann::json results = nlohmann::json::parse(std::ifstream(file));
  for (const FunctionRow& one : kRows) {
    Row row{one.what, one.unit};
    row.ours = Field(results, one.ours, one.field);
    row.bare = Field(results, one.bare, one.field);
    row.limit = one.limit;
    row.ratioMost = one.ratioMost;
    row.oursMost = one.oursMost;
    if (!row.Measured()) row.note = fmt::format("no benchmark {} in {}", one.ours, file);
    Scale(row);
    report.Add(std::move(row));
  }
}

} // namespace bench
