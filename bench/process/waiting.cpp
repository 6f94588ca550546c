// What it costs a till to wait 10 s for a card holder. All waits run at the same time, each in a process of its own.
#include "measure.h"
#include "rows.h"
#include "till.h"
#include <poll.h>
#include <sys/resource.h>

namespace bench {

namespace {

constexpr int kSeconds = 10;
constexpr int kBesides = 3; // of each kind, for a median

struct Cost {
  double cpuMs, wakes, calls;
};

// What the process uses from here on.
class Meter {
public:
  Cost Read(int calls) const {
    return {static_cast<double>(NsOf(CLOCK_PROCESS_CPUTIME_ID) - cpu) / 1e6,
            static_cast<double>(Wakes() - wakes), static_cast<double>(calls)};
  }

private:
  // A process that gives the processor up by itself waits for something, and is woken for it.
  static long Wakes() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
  }
  int64_t cpu = NsOf(CLOCK_PROCESS_CPUTIME_ID);
  long wakes = Wakes();
};

int CountCall(void* count) {
  ++*static_cast<int*>(count);
  return 0;
}

Cost WaitInTill(const Shop& shop, int number, bool idle) {
  Till till(shop);
  const std::string id = fmt::format("{:010}", number);
  till.Ask(Order(0, kStatus, id));
  int calls = 0;
  const Meter meter;
  till.Ask(Order(kSeconds * 1000000, kStatus, id), idle ? CountCall : nullptr, &calls);
  const Cost cost = meter.Read(calls);
  till.Call(Message("10", "end", id));
  return cost;
}

Cost OnePoll() {
  const Meter meter;
  poll(nullptr, 0, kSeconds * 1000);
  return meter.Read(0);
}

// Looks at a pipe and calls the till, every millisecond.
Cost BareLoop() {
  int ends[2], calls = 0;
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  pollfd look{ends[0], POLLIN, 0};
  FUN_IDLE volatile callback = CountCall;
  const Meter meter;
  const int64_t end = NowNs() + kSeconds * INT64_C(1000000000);
  while (NowNs() < end) {
    callback(&calls);
    poll(&look, 1, 1);
  }
  return meter.Read(calls);
}

Cost MedianOf(std::vector<Child<Cost>>& children) {
  std::vector<double> cpu, wakes, calls;
  for (Child<Cost>& child : children) {
    const Cost cost = child.Get();
    cpu.push_back(cost.cpuMs);
    wakes.push_back(cost.wakes);
    calls.push_back(cost.calls);
  }
  return {Median(cpu), Median(wakes), Median(calls)};
}

} // namespace

void MeasureWaiting(Report& report) {
  Shop shop(kModule, 'L');
  std::vector<Child<Cost>> quiet, idle, one, loop;
  for (int i = 0; i < kBesides; ++i) {
    quiet.emplace_back([&] { return WaitInTill(shop, 2 * i + 1, false); });
    one.emplace_back(OnePoll);
    idle.emplace_back([&] { return WaitInTill(shop, 2 * i + 2, true); });
    loop.emplace_back(BareLoop);
  }
  const Cost quietly = MedianOf(quiet), once = MedianOf(one), idly = MedianOf(idle), bare = MedianOf(loop);

  const char *kPoll = "one poll of 10 s", *kLoop = "a poll of 1 ms and the callback, for 10 s";
  report.Add({"waiting 10 s: processor time", "ms", quietly.cpuMs, once.cpuMs, kPoll, kNone, 2});
  report.Add({"waiting 10 s: wake-ups", "", quietly.wakes, once.wakes, kPoll, kNone, 120});
  report.Add(
      {"waiting 10 s with idle callback: processor time", "ms", idly.cpuMs, bare.cpuMs, kLoop, 1.1, kNone});
  report.Add({"waiting 10 s with idle callback: wake-ups", "", idly.wakes, bare.wakes, kLoop, 1.1, kNone});
  report.Add({"waiting 10 s with idle callback: calls", "", idly.calls, bare.calls, kLoop, kNone, kNone});
}

} // namespace bench
