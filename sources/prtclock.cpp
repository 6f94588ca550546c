#include "prtclock.h"

#include <algorithm>

#include <time.h>

#include "uni_misc.h"

void YieldMS(uint32_t iMS) { SleepMS(iMS); }

void zat::Pauses::Next() {
  constexpr uint32_t kLongest = 1000;
  const timespec pause = {0, static_cast<long>(us) * 1000};
  nanosleep(&pause, nullptr);
  us = std::min(us * 2, kLongest);
}
