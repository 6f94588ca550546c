// Where the installations of the measurements stand.
#pragma once
#include <cstdlib>
#include <sys/statvfs.h>

namespace bench {

enum class Place {
  memory, // what is compared is this system then, not the disk; where programs may not be executed there, the disk
  disk, // beside the programs of the benchmark
};

inline void KeepIn(Place place) {
  constexpr char kMemory[] = "/dev/shm";
  struct statvfs info = {};
  const bool usable = statvfs(kMemory, &info) == 0 && !(info.f_flag & (ST_NOEXEC | ST_RDONLY));
  setenv("TMPDIR", place == Place::memory && usable ? kMemory : ZAT_BENCH_DIR, 1);
}

} // namespace bench
