#include "prtclock.h"

#include "uni_misc.h"

void YieldMS(uint32_t iMS) { SleepMS(iMS); }
