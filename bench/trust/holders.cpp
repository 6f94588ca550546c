// Many processes at one lock, one of them killed again and again: never two holders, and never a lock that stays with
// the dead.
#include <atomic>
#include <csignal>
#include <random>
#include <sched.h>
#include <sys/wait.h>
#include <vector>

#include <fmt/core.h>

#include "locks.h"
#include "scratch.h"
#include "shared.h"
#include "utilf.h"

namespace trust {

namespace {

constexpr int kProcesses = 8;
constexpr int64_t kKillEvery = 50 * kMsNs;
constexpr int64_t kTakeOver = 100 * kMsNs;
constexpr int64_t kStarved =
    2 * kSecondNs; // the same where other tests share the cores: who was killed has to run to end
constexpr int64_t kStuck = 20 * kSecondNs;

// What the processes note of themselves, apart from the lock. Each life of a process has a number of its own.
struct Witness {
  std::atomic<uint32_t> inside;    // the life that holds the lock; 0: nobody
  std::atomic<uint64_t> taken;     // acquisitions
  std::atomic<uint64_t> inherited; // those that found the mark of one that was killed as holder
  std::atomic<uint64_t> clashes;   // two holders at once
  std::atomic<uint64_t> faults;    // a lock that could not be freed, a descriptor that was left open
  std::atomic<int64_t> killed;     // when a process was killed, until the next acquisition; 0
  std::atomic<int64_t> worst;      // the longest time between the two
  std::atomic<bool> stop;
  std::atomic<bool> condemned[1 << 16]; // by life: is being killed or was
};

void Enter(Witness& w, uint32_t me) {
  const uint32_t before = w.inside.exchange(me);
  const int64_t now = NowNs();
  if (before != 0) ++(w.condemned[before % std::size(w.condemned)] ? w.inherited : w.clashes);
  const int64_t killed = w.killed.exchange(0);
  if (killed != 0 && now - killed > w.worst) w.worst = now - killed; // only a holder writes it
  ++w.taken;
}

void Leave(Witness& w, uint32_t me) {
  if (!w.inside.compare_exchange_strong(me, 0)) ++w.clashes;
}

// Holds the lock in one of its three ways: by waiting for it, by trying, or for the moment of one line as the log does.
class Held {
public:
  Held(const char* pccLock, uint32_t way) : lock(pccLock), brief(way == 2 ? zat::TakeBriefLock(lock) : -1) {
    if (way == 0) noted = putflock(lock) == 0;
    if (way == 1) noted = tryflock(lock) == 0;
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

  bool Is() const { return noted || brief >= 0; }

  // False when it cannot be freed.
  bool Free() const {
    if (noted) return remflock(lock) == 0;
    zat::FreeBriefLock(lock, brief);
    return true;
  }

private:
  const char* const lock;
  const int brief;
  bool noted = false;
};

// One life, until it is told to stop.
int Live(Witness& w, const char* lock, uint32_t me) {
  const int before = dup(0); // the lowest free descriptor
  close(before);
  for (uint32_t i = 0; !w.stop; ++i) {
    const Held held(lock, i % 3);
    if (!held.Is()) {
      sched_yield();
      continue;
    }
    Enter(w, me);
    if (i % 32 == 0) sched_yield();
    Leave(w, me);
    if (!held.Free()) ++w.faults;
  }
  const int after = dup(0);
  return after == before ? 0 : 1;
}

class Contest {
public:
  Contest() {
    for (int i = 0; i < kProcesses; ++i) Start();
  }
  ~Contest() { Stop(); }
  Contest(const Contest&) = delete;
  Contest& operator=(const Contest&) = delete;

  // Kills one of them, the holder when there is one, and puts another in its place.
  void Kill() {
    const uint32_t holder = w->inside;
    size_t victim = random() % lives.size();
    for (size_t i = 0; i < lives.size(); ++i)
      if (lives[i].number == holder) victim = i;
    const Life life = lives[victim];
    w->condemned[life.number % std::size(w->condemned)] = true;
    w->killed = NowNs();
    kill(life.pid, SIGKILL);
    waitpid(life.pid, nullptr, 0);
    lives.erase(lives.begin() + static_cast<std::ptrdiff_t>(victim));
    ++kills;
    Start();
  }

  void Stop() {
    w->stop = true;
    while (!lives.empty()) End(lives.size() - 1);
  }

  Witness& Seen() { return *w; }
  int kills = 0;

private:
  struct Life {
    uint32_t number;
    pid_t pid;
  };

  void Start() {
    const uint32_t number = ++last;
    w->condemned[number % std::size(w->condemned)] = false;
    const std::string lock = place / "lock";
    lives.push_back({number, Forked([&] { return Live(*w, lock.c_str(), number); })});
  }

  // One that does not end by itself hangs in the lock.
  void End(size_t at) {
    const int64_t limit = NowNs() + kStuck;
    int status = 0;
    pid_t got;
    while ((got = waitpid(lives[at].pid, &status, WNOHANG)) == 0 && NowNs() < limit) usleep(1000);
    if (got == 0) {
      kill(lives[at].pid, SIGKILL);
      waitpid(lives[at].pid, &status, 0);
    }
    if (status != 0) ++w->faults;
    lives.erase(lives.begin() + static_cast<std::ptrdiff_t>(at));
  }

  Shared<Witness> w;
  Scratch place;
  std::vector<Life> lives;
  uint32_t last = 0;
  std::minstd_rand random;
};

} // namespace

Finding MeasureHolders(const Extent& extent) {
  const uint64_t wanted = extent.Of<uint64_t>(1000000, 10000);
  const int64_t begin = NowNs(), limit = extent.fShort ? kStarved : kTakeOver;
  const int64_t end = begin + static_cast<int64_t>(extent.dSeconds * kSecondNs);
  int64_t moved = begin;
  uint64_t before = 0;
  Contest contest;
  Witness& w = contest.Seen();
  // Not less than the wanted number of acquisitions, and some kills in any case.
  while ((w.taken < wanted || contest.kills < 10 || NowNs() < end) && NowNs() - moved < kStuck) {
    usleep(kKillEvery / 1000);
    contest.Kill();
    if (w.taken != before) moved = NowNs();
    before = w.taken;
  }
  const double seconds = static_cast<double>(NowNs() - begin) / kSecondNs;
  contest.Stop();
  return {fmt::format("one holder at a time, and the lock of a killed one is taken over within {} ms",
                      limit / kMsNs),
          fmt::format("{} processes, {} acquisitions in {:.1f} s, {} processes killed, {} of them as holder",
                      kProcesses, w.taken.load(), seconds, contest.kills, w.inherited.load()),
          fmt::format("{} times two holders, {} faults, taken over after {:.1f} ms at worst",
                      w.clashes.load(), w.faults.load(), static_cast<double>(w.worst) / kMsNs),
          w.clashes == 0 && w.faults == 0 && w.worst <= limit && w.taken >= wanted};
}

} // namespace trust
