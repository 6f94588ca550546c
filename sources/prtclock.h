// Giving the processor away for a moment.
#pragma once
#include <cstdint>

// Sleeps about iMS milliseconds, as SleepMS does: the pause of every loop that polls.
void YieldMS(uint32_t iMS);
