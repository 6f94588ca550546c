// What the processes of one measurement share: memory, a clock, and how one of them is made.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace trust {

// A structure of atomics in memory that forked processes share.
template<class T> class Shared {
public:
  Shared() {
    void* memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    it = new (memory) T{};
  }
  ~Shared() { munmap(it, sizeof(T)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  T* operator->() const { return it; }
  T& operator*() const { return *it; }

private:
  T* it;
};

inline int64_t NowNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

constexpr int64_t kMsNs = 1000000;
constexpr int64_t kSecondNs = 1000 * kMsNs;

// A forked copy of this process that does the work and ends with its result as exit status.
inline pid_t Forked(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    int code = 255;
    try {
      code = work();
    } catch (...) {} // the status tells
    _exit(code);
  }
  if (child < 0) throw std::bad_alloc();
  return child;
}

} // namespace trust
