// Every allocation fails once: in a till's sale, in one that installs an update, and in the updater.
#include "areas.h"

#include <cerrno>

#include <fmt/core.h>

#include "lab.h"
#include "tally.h"

namespace trust {

using namespace faults;

namespace {

constexpr long kAllLater = 1000000;

struct Stage {
  const char* pccScene;
  int iRole;
  size_t lStep, lStepShort; // each so many-th allocation fails
};
constexpr Stage kStages[] = {
    {"sale", eTill, 1, 8}, {"mend", eTill, 4, 40}, {"update", eTill, 2, 40}, {"update", eUpdater, 10, 100}};

void Measure(Lab& lab, const Extent& extent, const Stage& stage, long span, Tally& tally) {
  const size_t count = lab.Trace(stage.pccScene, stage.iRole, eMemory).size();
  std::vector<Trial> trials;
  for (size_t n = 1; n < count; n += extent.Of(stage.lStep, stage.lStepShort))
    trials.push_back({stage.pccScene, stage.iRole, 0, static_cast<long>(n), span, ENOMEM, eMemory});
  const std::vector<Result> results = lab.Run(trials);
  for (size_t i = 0; i < trials.size(); ++i)
    tally.Add(results[i], [&] {
      return fmt::format("{} {}: allocation {}", stage.pccScene, stage.iRole, trials[i].lAt);
    });
}

} // namespace

Findings MeasureMemory(const Extent& extent) {
  Lab lab;
  Tally once, rest;
  for (const Stage& stage : kStages) Measure(lab, extent, stage, 1, once);
  for (const Stage& stage : kStages)
    if (stage.iRole == eTill) Measure(lab, extent, stage, kAllLater, rest);
  return {once.Verdict("each allocation fails once"),
          rest.Verdict("memory runs out at each allocation, for good")};
}

} // namespace trust
