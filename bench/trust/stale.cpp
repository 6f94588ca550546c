// What may stand in the place of a lock: recovered, or refused and left as it is, and never followed.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>

#include "locks.h"
#include "scratch.h"
#include "utilf.h"

namespace trust {

namespace {

constexpr char kUntouched[] = "untouched";

struct Stale {
  const char* pccWhat;
  void (*procMake)(const Scratch& place, const std::string& lock);
  bool fRecovered; // else refused
};

void Leave(const Scratch& place, const std::string& text) { place.Put("lock", text); }

// A process takes the lock and dies with it.
void DeadHolder(const Scratch&, const std::string& lock) {
  const pid_t holder = fork();
  if (holder == 0) _exit(putflock(lock.c_str()));
  waitpid(holder, nullptr, 0);
}

void Link(const Scratch& place, const std::string& lock, const std::string& target) {
  if (symlink((place / target).c_str(), lock.c_str()) != 0) std::abort();
}

constexpr Stale kStale[] = {
    {"a dead process", DeadHolder, true},
    {"a reused process number", // of a living process that holds nothing
     [](const Scratch& p, const std::string&) { Leave(p, fmt::format("{}\r\n7", getppid())); }, true},
    {"an empty file", [](const Scratch& p, const std::string&) { Leave(p, ""); }, true},
    {"garbage",
     [](const Scratch& p, const std::string&) { Leave(p, "\xFF\x01-%n 99999999999999999999\r\n-5"); }, true},
    {"a descriptor of the host's",
     [](const Scratch& p, const std::string&) { Leave(p, fmt::format("{}\r\n{}", getpid(), STDIN_FILENO)); },
     true},
    {"a directory", [](const Scratch&, const std::string& lock) { mkdir(lock.c_str(), 0777); }, false},
    {"a link to a file", [](const Scratch& p, const std::string& lock) { Link(p, lock, "target"); }, false},
    {"a link to nothing", [](const Scratch& p, const std::string& lock) { Link(p, lock, "nowhere"); }, false},
    {"a FIFO", [](const Scratch&, const std::string& lock) { mkfifo(lock.c_str(), 0666); }, false},
};

// Takes and frees the lock over what stands there: what is wrong about that, "" for nothing. A wait that does not end
// is ended by the alarm.
std::string Try(const Stale& stale, int (*take)(const char*)) {
  Scratch place;
  const std::string lock = place / "lock";
  place.Put("target", kUntouched);
  stale.procMake(place, lock);
  struct stat before = {}, after = {};
  lstat(lock.c_str(), &before);
  const int code = take(lock.c_str());
  lstat(lock.c_str(), &after);
  if ((code == 0) != stale.fRecovered) return stale.fRecovered ? "not recovered" : "not refused";
  if (before.st_ino != after.st_ino || before.st_mode != after.st_mode) return "replaced";
  if (code == 0 && !holdsflock(lock.c_str())) return "not held";
  if (code == 0 && remflock(lock.c_str()) != 0) return "not freed";
  if (place.Get("target") != kUntouched) return "the target is changed";
  if (place.Has("nowhere")) return "the target is made";
  if (fcntl(STDIN_FILENO, F_GETFD) == -1) return "the host's descriptor is closed";
  return "";
}

std::string TryApart(const Stale& stale, int (*take)(const char*)) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    alarm(5);
    const std::string wrong = Try(stale, take);
    _exit(write(ends[1], wrong.data(), wrong.size()) < 0);
  }
  close(ends[1]);
  char text[64] = {};
  const ssize_t n = read(ends[0], text, sizeof text - 1);
  close(ends[0]);
  int status = -1;
  waitpid(child, &status, 0);
  if (status != 0) return WIFSIGNALED(status) ? "hangs" : "fails";
  return std::string(text, static_cast<size_t>(std::max<ssize_t>(n, 0)));
}

int TakeWaiting(const char* name) { return putflock(name); }
int TakeAtOnce(const char* name) { return tryflock(name); }

} // namespace

Finding MeasureStale() {
  int recovered = 0, refused = 0;
  std::string wrong, tried;
  for (const Stale& stale : kStale) {
    tried += (tried.empty() ? "" : ", ") + std::string(stale.pccWhat);
    for (auto take : {TakeWaiting, TakeAtOnce}) {
      const std::string what = TryApart(stale, take);
      if (!what.empty())
        wrong += fmt::format("; {}: {}", stale.pccWhat, what);
      else
        ++(stale.fRecovered ? recovered : refused);
    }
  }
  return {"what stands in a lock's place is taken over or refused, never followed", tried,
          fmt::format("{} taken over, {} refused{}", recovered, refused, wrong), wrong.empty()};
}

} // namespace trust
