#include "ssqueeze.h"
#include "forkmutex.h"
#include "util.h"
#include <atomic>
#include <charconv>
#include <ctime>
#include <limits>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

namespace {

// The process clock's low 32 bits. Every write to a store asks for it, and the system call behind the clock
// costs more than the write. The clock only moves when the kernel's timer ticks, and the coarse clock, which
// needs no system call, moves with it: while that one stands still, the value asked for last is still right.
uint32_t ClockLow() {
  static std::atomic<uint64_t> ulLast{0}; // coarse milliseconds (low 32 bits) << 32 | process clock
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  uint32_t stamp = static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_nsec / 1000000);
  uint64_t last = ulLast.load(std::memory_order_relaxed);
  if (last != 0 && last >> 32 == stamp) return static_cast<uint32_t>(last);
  uint32_t clock = static_cast<uint32_t>(PClock());
  ulLast.store(uint64_t{stamp} << 32 | clock, std::memory_order_relaxed);
  return clock;
}

// Counters in blocks that never move. A free counter stands in the list of free ones.
class CounterPool {
public:
  CounterPool() = default;
  ~CounterPool() {
    while (poBlocks) delete std::exchange(poBlocks, poBlocks->poNext);
  }
  CounterPool(const CounterPool&) = delete;
  CounterPool& operator=(const CounterPool&) = delete;

  uint64_t* Take() {
    std::lock_guard hold(oMutex);
    if (!poFree && !Extend()) return nullptr;
    tCounter* poTaken = std::exchange(poFree, poFree->poNextFree);
    return &poTaken->ulValue;
  }

  void Give(uint64_t* pulCounter) {
    std::lock_guard hold(oMutex);
    tCounter* po = reinterpret_cast<tCounter*>(pulCounter); // the value is the first member
    po->ulValue = SSqueeze::ss_make(po->ulValue);
    po->poNextFree = std::exchange(poFree, po);
  }

private:
  struct tCounter {
    uint64_t ulValue = 0;
    tCounter* poNextFree = nullptr;
  };
  static_assert(offsetof(tCounter, ulValue) == 0);
  struct tBlock {
    tCounter moCounter[64];
    tBlock* poNext = nullptr;
  };

  bool Extend() {
    tBlock* po = new (std::nothrow) tBlock;
    if (!po) return false;
    po->poNext = std::exchange(poBlocks, po);
    for (tCounter& counter : po->moCounter) counter.poNextFree = std::exchange(poFree, &counter);
    return true;
  }

  zat::ForkMutex oMutex;
  tBlock* poBlocks = nullptr;
  tCounter* poFree = nullptr;
};

// Built before and destroyed after every store that is a global of its own.
ZAT_INIT_NULL_ID CounterPool oPool;

} // namespace

ZAT_INIT_NULL_ID SSqueeze SQNull;

namespace zat {

uint64_t* CounterTake() { return oPool.Take(); }

void CounterGive(uint64_t* pulCounter) {
  if (pulCounter) oPool.Give(pulCounter);
}

} // namespace zat

void SSqueeze::ss_next(uint64_t* pulCounter) {
  if (ulLocal != 0) return;
  if (!pulGlobal && pulCounter) {
    pulGlobal = pulCounter;
    *pulGlobal = 0;
  }
  if (pulGlobal) *pulGlobal = ss_make(*pulGlobal);
}

uint64_t SSqueeze::ss_make(uint64_t ulPrevious) {
  return uint64_t{ClockLow()} << 32 | static_cast<uint32_t>(ulPrevious + 1);
}

size_t SSqueeze::fmtLongToString(long lValue, tString& oOut, size_t iWidth, tFmt oFmt, char cFill) {
  char digits[20]; // the longest: a minus sign and the 19 digits of 2^63
  char* end = digits + sizeof digits;
  if (!(oFmt & eFdec) && (oFmt & eFhex)) {
    end = std::to_chars(digits, end, static_cast<unsigned long>(lValue), 16).ptr;
    for (char* p = digits; p < end; ++p)
      if (*p >= 'a') *p = static_cast<char>(*p - 'a' + 'A');
  } else {
    end = std::to_chars(digits, end, lValue).ptr;
  }
  size_t length = static_cast<size_t>(end - digits);
  size_t fill = iWidth > length ? iWidth - length : 0;
  oOut.clear();
  try {
    oOut.reserve(length + fill);
  } catch (const std::exception&) { return 0; }
  if (!(oFmt & eFajl)) oOut.append(fill, cFill);
  oOut.append(digits, length);
  if (oFmt & eFajl) oOut.append(fill, cFill);
  return oOut.size();
}

size_t SSqueeze::fmtGetLong(const tString& oText, long& lOut, tFmt oFmt) {
  lOut = 0;
  const char* p = oText.data();
  const char* end = p + oText.size();
  bool negative = p < end && *p == '-';
  if (p < end && (*p == '-' || *p == '+')) ++p;

  bool open = !(oFmt & (eFdec | eFhex)); // the prefix decides
  int base = oFmt & eFdec || open ? 10 : 16;
  if (end - p >= 2 && *p == '0' && (base == 16 || open)) {
    if (p[1] == 'x' || p[1] == 'X') {
      base = 16;
      p += 2;
    } else if (open) {
      base = 8;
    }
  }

  unsigned long magnitude = 0;
  auto [stop, error] = std::from_chars(p, end, magnitude, base);
  unsigned long limit = static_cast<unsigned long>(std::numeric_limits<long>::max()) + (negative ? 1 : 0);
  if (error != std::errc() || stop != end || magnitude > limit) return 0;
  lOut = static_cast<long>(negative ? 0 - magnitude : magnitude);
  return oText.size();
}
