// Installations with tills that meet faults on order (faults/till.cpp), one for each core.
#pragma once
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "faults/plan.h"

namespace trust {

// One trial; the fields as faults/till.cpp describes them.
struct Trial {
  std::string oScene;
  int iRole = faults::eTill;
  uint64_t ulAt = 0; // 0: any place
  long lAt = 0, lSpan = 1;
  int iError = 0, iWhat = faults::eCalls, iCutHow = faults::eNoCut, iCut = 0;
};

struct Result {
  long lCalls = 0;
  std::string oReason;  // "ok", the code of a refusal, "--" when there was no session
  double dWorstMs = 0;  // the longest call, by the till's clock
  double dNextMs = 0;   // what the next till needed to pay
  std::string oProblem; // empty when there is none
  uint64_t ulPlace = 0; // of the call that met the fault; 0: none did
};

class Lab {
public:
  // Spoils the place of an installation (its directory) for the till that is about to start, in that till's process.
  typedef void (*procSpoil_t)(const std::string& root);

  explicit Lab(const char* pccProgram = "zat_fault_till", procSpoil_t procSpoil = nullptr);
  ~Lab();

  // Makes the trials, several at a time; the results in the same order. A till that dies or hangs is a problem.
  std::vector<Result> Run(const std::vector<Trial>& trials);

  // One trial without a fault: the place of each call that it counted, the first at index 1.
  std::vector<uint64_t> Trace(const std::string& scene, int role, int what = faults::eCalls);

  // The numbers of the system calls that these trials make, in the till and in the updaters that it starts, as the kernel
  // sees them.
  std::set<long> Observe(const std::vector<Trial>& trials);

  // Every place that has made a call so far, with its image and name.
  std::vector<uint64_t> Places() const;

  // Where the first installation stands, the directory with its '/'; its till is not at work between two runs.
  std::string Root() const;

private:
  struct Bench;
  std::vector<std::unique_ptr<Bench>> benches;
};

// The fault, in words: "ENOSPC", "a part", "killed".
std::string ErrorName(int error);

} // namespace trust
