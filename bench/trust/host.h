// A program with a life of its own in which the object is a guest: 16 threads, signals, processes, a foreign locale.
#pragma once
#include "shared.h"
#include <atomic>
#include <string>

namespace trust {

enum class ChildSignal { ignored, plain, handled };

struct HostPlan {
  ChildSignal oChildSignal;
  int iExchanges;  // a fifth of them to warm up
  double dSeconds; // go on selling for so long
  int iFullTables; // exchanges with every descriptor in use, and so on with some left
};

// What became of it.
struct HostSeen {
  std::atomic<int> begun;                              // with descriptors to be had
  std::atomic<int> paid, refused, unclear;             // with descriptors to be had
  std::atomic<int> fullPaid, fullRefused, fullUnclear; // while the table was full
  std::atomic<int> otherWork;                          // pieces of work of the other threads
  std::atomic<int> otherFaults;                        // what went wrong in them
  std::atomic<int> signals, strayHandlers;      // handler calls; those in a process that is not the host
  std::atomic<int> maskChanges;                 // calls after which the calling thread was another
  std::atomic<long> heapGrowth, residentGrowth; // bytes, from the warm-up to the end
  char mcDifferences[2000];                     // what was not as before
};

constexpr int kTills = 4, kOthers = 12;

// Lives in this process, which is to be a fresh fork, and returns 0 when it came to its end.
int LiveAsHost(const HostPlan& plan, HostSeen& seen);

// Builds a locale with a comma in its numbers below the directory; its name, or that of the plainest one there is.
// LOCPATH points to it afterwards.
std::string MakeForeignLocale(const std::string& directory);

} // namespace trust
