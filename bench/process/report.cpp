#include "report.h"
#include "clock.h"
#include <fmt/core.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/utsname.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr char kLine[] = "{:<56} {:>16} {:>16} {:>7} {:>10}  {}\n";

// Three digits that count, with the unit.
std::string Figure(double value, const std::string& unit) {
  if (std::isnan(value)) return "-";
  const int decimals = value >= 100 || value == std::floor(value) ? 0 : value >= 10 ? 1 : 2;
  return fmt::format("{:.{}f} {}", value, decimals, unit);
}

std::string Wanted(const Row& row) {
  if (!std::isnan(row.ratioMost)) return fmt::format("<= {:.3g}", row.ratioMost);
  return std::isnan(row.oursMost) ? "" : "<= " + Figure(row.oursMost, row.unit);
}

std::string CpuName() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);)
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "?";
}

nlohmann::json Number(double value) {
  return std::isnan(value) ? nlohmann::json(nullptr) : nlohmann::json(value);
}

nlohmann::json JsonOf(const Row& row) {
  nlohmann::json out = {{"what", row.what},
                        {"unit", row.unit},
                        {"this_system", Number(row.ours)},
                        {"bare_limit", Number(row.bare)},
                        {"bare_limit_is", row.limit},
                        {"ratio", Number(row.Ratio())},
                        {"wanted_ratio_at_most", Number(row.ratioMost)},
                        {"wanted_at_most", Number(row.oursMost)},
                        {"note", row.note}};
  out["met"] = row.Wished() && row.Measured() ? nlohmann::json(row.Met()) : nlohmann::json(nullptr);
  return out;
}

} // namespace

bool Row::Met() const {
  return (std::isnan(ratioMost) || Ratio() <= ratioMost) && (std::isnan(oursMost) || ours <= oursMost);
}

void Report::PrintHead() { fmt::print(kLine, "what", "this system", "bare limit", "ratio", "wanted", ""); }

void Report::Add(Row row) {
  std::string ratio = std::isnan(row.Ratio()) ? "-" : fmt::format("{:.2f}", row.Ratio());
  std::string verdict = row.Wished() && row.Measured() ? (row.Met() ? "met" : "MISSED") : "";
  if (!row.Measured()) verdict = row.note;
  fmt::print(kLine, row.what, Figure(row.ours, row.unit), Figure(row.bare, row.unit), ratio, Wanted(row),
             verdict);
  fflush(stdout);
  rows.push_back(std::move(row));
}

nlohmann::json Report::Json() const {
  utsname system = {};
  uname(&system);
  nlohmann::json out = {{"machine",
                         {{"processor", CpuName()},
                          {"cores", sysconf(_SC_NPROCESSORS_ONLN)},
                          {"kernel", std::string(system.sysname) + " " + system.release}}},
                        {"time", time(nullptr)},
                        {"rows", nlohmann::json::array()}};
  for (const Row& row : rows) out["rows"].push_back(JsonOf(row));
  return out;
}

int Report::Missed() const {
  int missed = 0;
  for (const Row& row : rows) missed += row.Wished() && row.Measured() && !row.Met();
  return missed;
}

} // namespace bench
