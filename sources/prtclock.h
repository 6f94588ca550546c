// Giving the processor away for a moment.
#pragma once
#include <cstdint>

// Sleeps about iMS milliseconds, as SleepMS does: the pause of every loop that polls.
void YieldMS(uint32_t iMS);

namespace zat {

// The pauses of a loop that waits for something which is mostly over in microseconds, a lock that is held for one
// line: 50 us, then each twice as long as the one before, up to the millisecond of YieldMS.
class Pauses {
public:
  void Next();

private:
  uint32_t us = 50;
};

} // namespace zat
