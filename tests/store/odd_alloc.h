// An allocator for trying what a store does with its memory: blocks lie at odd addresses between fences that
// show any write outside, and it refuses when told to.
#pragma once
#include "EFTPMisc.h"
#include <cstdlib>
#include <cstring>
#include <new>

struct OddMemory {
  static inline size_t nLive = 0;           // blocks not freed
  static inline size_t nLimit = ~size_t{0}; // a longer block is refused
  static inline bool fBroken = false;       // somebody has written over a fence
};

template<class T> struct OddAlloc {
  typedef T value_type;
  static constexpr size_t kFence = 33;

  T* allocate(size_t n) {
    if (n > OddMemory::nLimit) throw std::bad_alloc();
    char* raw = static_cast<char*>(std::malloc(n + 2 * kFence));
    memset(raw, 0x5A, n + 2 * kFence);
    ++OddMemory::nLive;
    return reinterpret_cast<T*>(raw + kFence);
  }
  void deallocate(T* p, size_t n) {
    char* raw = reinterpret_cast<char*>(p) - kFence;
    for (size_t i = 0; i < kFence; ++i)
      if (raw[i] != 0x5A || raw[kFence + n + i] != 0x5A) OddMemory::fBroken = true;
    --OddMemory::nLive;
    std::free(raw);
  }
};

typedef basic_squeezet<char, OddAlloc<char>> OddStore;

// "A.B" = "1", "C" = 5, as drawn in squeezenode.h.
inline OddStore Drawn() {
  OddStore store(160, 0);
  store.PutData("A.B", "1", 1);
  store.PutLong("C", 5);
  return store;
}
