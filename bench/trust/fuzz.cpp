// Hostile bytes: the fuzzer on each of its targets, several at once.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <fmt/core.h>

#include "areas.h"

namespace trust {

namespace {

constexpr double kSeconds = 30; // for each target

const std::string kBuild = ZAT_SOURCE_DIR "/build-fuzz", kFuzzer = kBuild + "/fuzz/zat_fuzz";

std::string Read(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

bool Run(const std::string& line) { return system(line.c_str()) == 0; }

// The number behind a word of the fuzzer's final account.
long NumberBehind(const std::string& text, const std::string& word) {
  const size_t at = text.rfind(word);
  return at == text.npos ? 0 : strtol(text.c_str() + at + word.size(), nullptr, 10);
}

// One target for so many seconds. What it learns is kept in the build directory, so that the next run goes on from
// there; what breaks something is kept beside it.
Finding Fuzz(const std::string& target, int seconds) {
  const std::string learnt = kBuild + "/corpus/" + target, broken = kBuild + "/broken/" + target + "-",
                    log = target + ".log";
  std::filesystem::create_directories(learnt);
  std::filesystem::create_directories(kBuild + "/broken");
  const bool whole =
      Run(fmt::format("{} --target={} -max_total_time={} -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 "
                      "-artifact_prefix={} {} {}/tests/fuzz/corpus/{} >{} 2>&1",
                      kFuzzer, target, seconds, broken, learnt, ZAT_SOURCE_DIR, target, log));
  const std::string said = Read(log);
  const long trials = NumberBehind(said, "stat::number_of_executed_units: "),
             ways = NumberBehind(said, " cov: ");
  const size_t kept = said.rfind("Test unit written to ");
  const std::string found =
      whole ? fmt::format("nothing broke, {} branches reached", ways)
      : kept == said.npos
          ? "the fuzzer failed: " + said.substr(said.size() - std::min<size_t>(said.size(), 200))
          : said.substr(kept, said.find('\n', kept) - kept);
  return {"no bytes break: " + target, fmt::format("{} trials in {} s", trials, seconds), found,
          whole && trials > 0};
}

} // namespace

// Not among the tests: they replay the corpus instead (fuzz_tests).
Findings MeasureFuzz(const Extent& extent) {
  if (!Run(kFuzzer + " --list >targets 2>/dev/null"))
    return {{"no bytes break anything", "the fuzzer", "not built: cmake --preset fuzz", false}};
  std::istringstream names(Read("targets"));
  std::vector<std::string> targets;
  for (std::string name; names >> name;) targets.push_back(name);

  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  const double share = extent.dSeconds * cores / static_cast<double>(targets.size());
  const int seconds = std::max(1, static_cast<int>(extent.dSeconds > 0 ? share : extent.Of(kSeconds, 1.0)));
  Findings findings(targets.size());
  std::atomic<size_t> next = 0;
  std::vector<std::thread> crew;
  for (unsigned i = 0; i < cores; ++i)
    crew.emplace_back([&] {
      for (size_t mine; (mine = next++) < targets.size();) findings[mine] = Fuzz(targets[mine], seconds);
    });
  for (std::thread& one : crew) one.join();
  return findings;
}

} // namespace trust
