// Starting a module and waiting for its end, from a small host and from one with half a gigabyte in memory.
#include "clock.h"
#include "measure.h"
#include "rows.h"
#include "utilf.h"
#include <sys/mman.h>

namespace bench {

namespace {

constexpr char kProgram[] = ZAT_BENCH_DIR "/bench_exit";
constexpr size_t kLarge = 500u << 20;
constexpr int kRounds = 60, kAtOnce = 20;

// Microseconds of one of kAtOnce pieces of work.
template<class Work> double Each(Work work) {
  const int64_t begin = NowNs();
  for (int i = 0; i < kAtOnce; ++i) work();
  return static_cast<double>(NowNs() - begin) / 1000 / kAtOnce;
}

void StartOurs() {
  if (SysCallEnd(SysCallBegin(kProgram)) != 0) throw std::runtime_error("no module started");
}

void StartBare() {
  char* arguments[] = {const_cast<char*>(kProgram), nullptr};
  const pid_t child = vfork();
  if (child == 0) {
    execv(kProgram, arguments);
    _exit(255);
  }
  waitpid(child, nullptr, 0);
}

// A process with kLarge bytes in memory, in pages of the ordinary size, that starts modules when it is told.
class LargeHost {
public:
  LargeHost() {
    if (pipe(ask) != 0 || pipe(tell) != 0 || (child = fork()) < 0) throw std::runtime_error("no process");
    if (child == 0) Serve();
    close(ask[0]);
    close(tell[1]);
    Start(); // it is ready
  }
  ~LargeHost() {
    close(ask[1]);
    close(tell[0]);
    waitpid(child, nullptr, 0);
  }
  LargeHost(const LargeHost&) = delete;
  LargeHost& operator=(const LargeHost&) = delete;

  double Start() {
    double us = 0;
    if (write(ask[1], "", 1) != 1 || read(tell[0], &us, sizeof us) != sizeof us)
      throw std::runtime_error("the large host failed");
    return us;
  }

private:
  [[noreturn]] void Serve() {
    close(ask[1]);
    close(tell[0]);
    char* memory =
        static_cast<char*>(mmap(nullptr, kLarge, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (memory == MAP_FAILED) _exit(1);
    madvise(memory, kLarge, MADV_NOHUGEPAGE);
    for (size_t i = 0; i < kLarge; i += 4096) memory[i] = 1;
    char go;
    while (read(ask[0], &go, 1) == 1) {
      const double us = Each(StartOurs);
      if (write(tell[1], &us, sizeof us) != sizeof us) break;
    }
    _exit(0);
  }

  int ask[2], tell[2];
  pid_t child;
};

} // namespace

void MeasureStarting(Report& report) {
  const Pair small = Alternate(
      kRounds, [](int) { return Each(StartOurs); }, [](int) { return Each(StartBare); });
  report.Add({"start and reap a module, small host", "us", small.ours, small.bare,
              "vfork and execv of the same file", 1.3, kNone});
  LargeHost host;
  const Pair large = Alternate(
      kRounds, [&](int) { return host.Start(); }, [](int) { return Each(StartOurs); });
  report.Add({"start and reap a module, host with 500 MB", "us", large.ours, large.bare, "the small host",
              1.5, kNone, ""});
}

} // namespace bench
