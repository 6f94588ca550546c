// One line of the log, beside what no program can do without that keeps its protocol: take the lock file, write the
// line, give the lock file back.
#include "SLogger.h"
#include "scratch.h"
#include <benchmark/benchmark.h>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kLine[] = "2026-11-21 14.03.59 {0000ABCD} : [MicroS] ReadBlock: 5-0\r\n";

void LogLine(benchmark::State& state) {
  Scratch scratch;
  SLogger log((scratch / "line.log").c_str(), true);
  log.SetLevel(150);
  for (auto _ : state) log.Write(150, "[MicroS] ReadBlock: %c-%c", '5', '0');
  if (scratch.Get("line.log").size() % (sizeof kLine - 1) != 0)
    state.SkipWithError("another line was written");
}

// The file is looked at before and after the lock is taken: it must be a regular file, and still be the one that its
// name leads to.
void LockProtocol(benchmark::State& state) {
  Scratch scratch;
  const std::string lock = scratch / "bare.log.lck";
  const int log = open((scratch / "bare.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  bool good = log >= 0;
  for (auto _ : state) {
    struct stat opened, found;
    const int fd =
        open(lock.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    good &= fstat(fd, &opened) == 0;
    good &= flock(fd, LOCK_EX | LOCK_NB) == 0;
    good &= lstat(lock.c_str(), &found) == 0;
    good &= pwrite(fd, "43981\r\n5", 8, 0) == 8;
    good &= write(log, kLine, sizeof kLine - 1) > 0;
    good &= unlink(lock.c_str()) == 0;
    good &= flock(fd, LOCK_UN) == 0;
    good &= close(fd) == 0;
  }
  if (!good) state.SkipWithError("a system call failed");
  close(log);
}

BENCHMARK(LogLine)->Name("Log/Line");
BENCHMARK(LockProtocol)->Name("Log/LockProtocol");

} // namespace
