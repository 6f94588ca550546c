// The object as a guest in somebody else's process.
#include <sys/wait.h>

#include <fmt/core.h>

#include "areas.h"
#include "guest.h"
#include "host.h"

namespace trust {

namespace {

struct Row {
  const char* pccName;
  ChildSignal oChildSignal;
  int iFullTables; // two of them wait 7 s for locks that cannot be made
};
constexpr Row kHosts[] = {{"ignored", ChildSignal::ignored, 12},
                          {"left alone", ChildSignal::plain, 4},
                          {"handled", ChildSignal::handled, 4}};
constexpr long kHeapNoise = 64 << 10; // caches of the allocator, one for each thread

// The hosts' sums, and what was odd in one of them.
struct Sums {
  int iWarm = 0, iFullTables = 0, begun = 0;
  int paid = 0, refused = 0, unclear = 0, fullPaid = 0, fullRefused = 0, fullUnclear = 0;
  int otherWork = 0, otherFaults = 0, signals = 0, strayHandlers = 0, maskChanges = 0;
  long heapGrowth = 0, residentGrowth = 0; // of the host that grew most
  std::string oDifferences, oDeaths;

  void Add(const Row& row, const HostPlan& plan, const HostSeen& seen, int status) {
    iWarm += plan.iExchanges / 5;
    iFullTables += plan.iFullTables;
    for (auto [sum, one] : {std::pair(&begun, &seen.begun),
                            {&paid, &seen.paid},
                            {&refused, &seen.refused},
                            {&unclear, &seen.unclear},
                            {&fullPaid, &seen.fullPaid},
                            {&fullRefused, &seen.fullRefused},
                            {&fullUnclear, &seen.fullUnclear},
                            {&otherWork, &seen.otherWork},
                            {&otherFaults, &seen.otherFaults},
                            {&signals, &seen.signals},
                            {&strayHandlers, &seen.strayHandlers},
                            {&maskChanges, &seen.maskChanges}})
      *sum += *one;
    heapGrowth = std::max(heapGrowth, seen.heapGrowth.load());
    residentGrowth = std::max(residentGrowth, seen.residentGrowth.load());
    if (*seen.mcDifferences) oDifferences += fmt::format("SIGCHLD {}: {}. ", row.pccName, seen.mcDifferences);
    if (status != 0)
      oDeaths += fmt::format("; the host with SIGCHLD {} ended with status {:#x}", row.pccName, status);
  }
};

Findings FindingsOf(const Sums& sums) {
  const bool all = sums.paid == sums.begun && sums.begun > 0 && sums.oDeaths.empty();
  const bool threads = !sums.otherFaults && !sums.strayHandlers && !sums.maskChanges && sums.signals > 0;
  return {
      {"every sale is paid while the host does its own work",
       fmt::format("{} hosts of {} threads, SIGCHLD ignored, left alone, handled; descriptors 0 to 2 closed, "
                   "a comma in its numbers: {} sales, {} pieces of other work, {} signals",
                   std::size(kHosts), kTills + kOthers, sums.begun, sums.otherWork, sums.signals),
       fmt::format(
           "{} paid, {} refused, {} unclear; {} faults in other threads, {} handlers outside the host, {} "
           "times another mask or locale after a call{}",
           sums.paid, sums.refused, sums.unclear, sums.otherFaults, sums.strayHandlers, sums.maskChanges,
           sums.oDeaths),
       all && threads},
      {"with a full descriptor table a sale is paid or refused, and the next one paid",
       fmt::format("{} sales with 0 and more descriptors left", sums.iFullTables),
       fmt::format("{} paid, {} refused, {} unclear", sums.fullPaid, sums.fullRefused, sums.fullUnclear),
       sums.fullPaid + sums.fullRefused == sums.iFullTables && all},
      {"the host is as it was before the object was loaded",
       "signals, mask, descriptors, locale, umask, directory, environment, children, threads",
       sums.oDifferences.empty() ? "no difference" : sums.oDifferences,
       sums.oDifferences.empty() && sums.oDeaths.empty()},
      {"memory does not grow",
       fmt::format("{} sales after {} to warm up", sums.begun - sums.iWarm, sums.iWarm),
       fmt::format("{:+} bytes in use, {:+} kB resident", sums.heapGrowth, sums.residentGrowth / 1024),
       sums.heapGrowth < kHeapNoise && sums.oDeaths.empty()}};
}

} // namespace

Findings MeasureGuest(const Extent& extent) {
  Sums sums;
  for (const Row& row : kHosts) {
    const HostPlan plan = {row.oChildSignal, extent.Of(3400, 10), extent.dSeconds / std::size(kHosts),
                           extent.Of(row.iFullTables, 1)};
    Shared<HostSeen> seen;
    const pid_t host = Forked([&] { return LiveAsHost(plan, *seen); });
    int status = -1;
    waitpid(host, &status, 0);
    sums.Add(row, plan, *seen, status);
  }
  Findings all = FindingsOf(sums);
  all.push_back(MeasureForks(extent));
  all.push_back(MeasureBrokenPipes());
  all.push_back(MeasureSymbols());
  return all;
}

} // namespace trust
