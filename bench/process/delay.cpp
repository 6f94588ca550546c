// How long a block is on its way: from the module's write to the return of eftp_do, beside a blocking read of the same
// bytes. The module works 2 to 4 ms before each block, so that the reader sleeps when it comes.
#include "measure.h"
#include "rows.h"
#include "till.h"
#include "utilf.h"
#include <fcntl.h>
#include <sched.h>

namespace bench {

namespace {

constexpr int kRounds = 300;

unsigned WorkUs(int round) { return 2000 + static_cast<unsigned>(round) * 370 % 2000; }

double Us(const char* block, int64_t arrived) { return static_cast<double>(arrived - StampOf(block)) / 1000; }

// The other end of two plain pipes.
class BareModule {
public:
  BareModule() {
    int down[2], up[2];
    if (pipe(down) != 0 || pipe(up) != 0) throw std::runtime_error("no pipes");
    fcntl(down[1], F_SETFD, FD_CLOEXEC);
    fcntl(up[0], F_SETFD, FD_CLOEXEC);
    handle = SysCallBegin(fmt::format("{} bare {} {}", kModule, down[0], up[1]).c_str());
    close(down[0]);
    close(up[1]);
    to = down[1];
    from = up[0];
  }
  ~BareModule() {
    close(to);
    close(from);
    SysCallEnd(handle);
  }
  BareModule(const BareModule&) = delete;
  BareModule& operator=(const BareModule&) = delete;

  double Delay(unsigned us) {
    char bytes[ZAT_MS_BUFFER];
    if (write(to, &us, sizeof us) != sizeof us) throw std::runtime_error("the bare module is gone");
    const ssize_t got = read(from, bytes, sizeof bytes);
    const int64_t arrived = NowNs();
    if (got != sizeof(Answer)) throw std::runtime_error("the bare module did not answer");
    return Us(bytes + offsetof(Answer, block), arrived);
  }

private:
  void* handle;
  int to, from;
};

void PinTo(int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<size_t>(core), &set);
  sched_setaffinity(0, sizeof set, &set);
}

// Which core a woken process runs on changes what the waking costs by several times, and the scheduler chooses
// differently from one moment to the next. So it is chosen here, for both sides of the comparison alike.
class Cores {
public:
  Cores() { sched_getaffinity(0, sizeof before, &before); }
  ~Cores() { sched_setaffinity(0, sizeof before, &before); }
  Cores(const Cores&) = delete;
  Cores& operator=(const Cores&) = delete;

  int First() const { return Next(0); }
  int Second() const { return Next(First() + 1); } // the first again when there is but one

private:
  int Next(int from) const {
    for (int core = from; core < CPU_SETSIZE; ++core)
      if (CPU_ISSET(static_cast<size_t>(core), &before)) return core;
    return from - 1;
  }
  cpu_set_t before;
};

Pair Measure(const char* workId, int tillCore, int moduleCore) {
  Shop shop(kModule);
  Till till(shop);
  PinTo(moduleCore); // inherited by what is started
  BareModule bare;
  till.Ask(Order(0, kStatus));
  PinTo(tillCore);
  const Pair pair = Alternate(
      kRounds,
      [&](int round) {
        till.Ask(Order(WorkUs(round), workId));
        return Us(till.answer, till.returned);
      },
      [&](int round) { return bare.Delay(WorkUs(round)); });
  till.Call(Message("10", "end"));
  return pair;
}

} // namespace

void MeasureDelay(Report& report) {
  const Cores cores;
  struct {
    const char *what, *workId;
    int till, module;
  } const kCases[] = {
      {"delay of a print line, module on another core", kPrintLine, cores.First(), cores.Second()},
      {"delay of a print line, module on the same core", kPrintLine, cores.First(), cores.First()},
      {"delay of a status with its log line, another core", kStatus, cores.First(), cores.Second()},
  };
  for (const auto& one : kCases) {
    const Pair pair = Measure(one.workId, one.till, one.module);
    report.Add({one.what, "us", pair.ours, pair.bare, "a blocking read of the same bytes", 1.5});
  }
}

} // namespace bench
