// The clock that all processes of the machine share.
#pragma once
#include <cstdint>
#include <time.h>

namespace bench {

inline int64_t NsOf(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

inline int64_t NowNs() { return NsOf(CLOCK_MONOTONIC); }

} // namespace bench
