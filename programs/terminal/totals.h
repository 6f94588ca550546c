// What the day's transactions add up to.
#pragma once
#include "day.h"

namespace zat {

struct tSum {
  long lCount = 0;
  uint64_t ulSum = 0; // minor units

  void Add(uint64_t ulAmount);
};

// What customers paid, what they got back by refunds (both without what was taken back again), and what reversals
// and voids took back.
struct tTotals {
  tSum oPaid, oRefunded, oCancelled;
};

// A pre-authorisation counts as paid once it is closed by reference.
tTotals TotalsOf(const tDay& oDay);

} // namespace zat
