// An exchange is cut everywhere: the module dies, stops or goes silent after each byte that it writes, and the till is
// killed in front of each call to the system.
#include "areas.h"

#include <fmt/core.h>

#include "faults/script.h"
#include "lab.h"
#include "tally.h"

namespace trust {

using namespace faults;

namespace {

struct ModuleCut {
  int iHow;
  const char* pccWhat;
  double dMostSeconds; // until the till knows, by its clock
};
constexpr ModuleCut kModuleCuts[] = {{eDies, "the module is killed after each byte", 5},
                                     {eStops, "the module stops after each byte, and goes on later", 62},
                                     {eGoesSilent, "the module goes silent after each byte", 62}};

struct TillCut {
  const char* pccScene;
  int iRole;
  const char* pccWhat;
  size_t lStep, lStepShort; // in front of each so many-th call
};
constexpr TillCut kTillCuts[] = {
    {"sale", eTill, "the till is killed at each call of a sale", 1, 25},
    {"update", eTill, "the till is killed while an update is installed", 10, 150},
    {"update", eUpdater, "the updater is killed while an update is installed", 2, 25}};

Finding CutModule(Lab& lab, const Extent& extent, const ModuleCut& cut) {
  std::vector<Trial> trials;
  // Behind the last byte the till waits for the module's end without a limit, as it says; a dead one has ended.
  const size_t last = cut.iHow == eDies ? kStream : kStream - 1;
  for (size_t at = 0; at <= last; at += extent.Of(1, 7))
    trials.push_back({"sale", eTill, 0, 0, 1, 0, eCalls, cut.iHow, static_cast<int>(at)});
  const std::vector<Result> results = lab.Run(trials);
  Tally tally;
  for (size_t i = 0; i < trials.size(); ++i)
    tally.Add(results[i], [&] { return fmt::format("after byte {}", trials[i].iCut); });
  Finding finding = tally.Verdict(cut.pccWhat);
  finding.fGood = finding.fGood && tally.WorstSeconds() < cut.dMostSeconds;
  return finding;
}

Finding CutTill(Lab& lab, const Extent& extent, const TillCut& cut) {
  const size_t count = lab.Trace(cut.pccScene, cut.iRole).size();
  std::vector<Trial> trials;
  for (size_t n = 1; n < count; n += extent.Of(cut.lStep, cut.lStepShort))
    trials.push_back({cut.pccScene, cut.iRole, 0, static_cast<long>(n), 1, kKill});
  const std::vector<Result> results = lab.Run(trials);
  Tally tally;
  for (size_t i = 0; i < trials.size(); ++i)
    tally.Add(results[i], [&] { return fmt::format("at call {}", trials[i].lAt); });
  return tally.Verdict(cut.pccWhat);
}

} // namespace

Findings MeasureCuts(const Extent& extent) {
  Lab lab;
  Findings findings;
  for (const ModuleCut& cut : kModuleCuts) findings.push_back(CutModule(lab, extent, cut));
  for (const TillCut& cut : kTillCuts) findings.push_back(CutTill(lab, extent, cut));
  return findings;
}

} // namespace trust
