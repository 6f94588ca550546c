#include "count_alloc.h"
#include <cstdlib>
#include <malloc.h>
#include <new>

size_t bench::lLiveBytes = 0;
size_t bench::lAllocations = 0;

namespace {

// What a block costs: its usable bytes and the word in front of it where malloc keeps its length.
size_t Cost(void* pv) { return malloc_usable_size(pv) + sizeof(size_t); }

} // namespace

void* operator new(size_t n) {
  void* pv = std::malloc(n ? n : 1);
  if (!pv) throw std::bad_alloc();
  bench::lLiveBytes += Cost(pv);
  ++bench::lAllocations;
  return pv;
}

void operator delete(void* pv) noexcept {
  if (pv) bench::lLiveBytes -= Cost(pv);
  std::free(pv);
}

void operator delete(void* pv, size_t) noexcept { operator delete(pv); }
