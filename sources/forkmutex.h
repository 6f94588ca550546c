// A mutex for the few things that all threads of a process share, which a fork cannot leave locked for ever: it notes
// the process that is inside. A child that was forked while a thread of its parent was inside finds the parent's number
// and goes in, because that thread does not exist in the child.
#pragma once
#include <atomic>

#include <sys/types.h>
#include <unistd.h>

#include "prtclock.h"

namespace zat {

// For std::lock_guard. Waits by sleeping: a thread that spun could keep one of lower priority from leaving.
class ForkMutex {
public:
  void lock() {
    const pid_t self = getpid();
    pid_t inside = oInside.load(std::memory_order_relaxed);
    Pauses pauses;
    while (inside == self || !oInside.compare_exchange_weak(inside, self, std::memory_order_acquire)) {
      if (inside == self) pauses.Next();
      inside = oInside.load(std::memory_order_relaxed);
    }
  }
  void unlock() { oInside.store(0, std::memory_order_release); }

private:
  std::atomic<pid_t> oInside = 0; // 0: nobody
};

} // namespace zat
