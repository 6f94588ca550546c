// Counts what a piece of code takes from the heap. The counters cover the whole program; take differences.
#pragma once
#include <cstddef>

namespace bench {

extern size_t lLiveBytes;   // allocated with new and not freed, the allocator's own overhead included
extern size_t lAllocations; // calls of new

} // namespace bench
