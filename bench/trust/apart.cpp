#include "apart.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sys/prctl.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>

#include "scratch.h"
#include "table.h"

namespace trust {

namespace {

typedef std::chrono::steady_clock Clock;

constexpr char kNote[] = "findings";

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

Finding Fault(const Area& area, const std::string& found) {
  return {"the area comes to its end", area.pccName, found, false};
}

// In the child: measures, and leaves the findings as text in the other place.
[[noreturn]] void Measure(const Area& area, const Extent& extent, const Scratch& place,
                          const Scratch& notes) {
  prctl(PR_SET_PDEATHSIG, SIGKILL); // a check that is broken off leaves no area running
  Findings findings;
  try {
    std::filesystem::current_path(place / "");
    setenv("TMPDIR", (place / "").c_str(), 1);
    findings = area.procMeasure(extent);
  } catch (const std::exception& e) { findings.push_back(Fault(area, e.what())); }
  notes.Put(kNote, ToText(findings));
  _exit(0);
}

// Waits for the end of an area's process and kills it when the time is over: false then. What its tills and updaters have
// left to themselves is reaped meanwhile, or it would stand in the table of processes for as long as the area takes.
bool WaitOrKill(pid_t child, double limit, int* status) {
  const Clock::time_point begin = Clock::now();
  for (pid_t got; (got = waitpid(-1, status, WNOHANG)) != child;) {
    if (got > 0) continue;
    if (SecondsSince(begin) > limit) {
      kill(child, SIGKILL);
      waitpid(child, status, 0);
      return false;
    }
    usleep(5000);
  }
  return true;
}

// The processes that an area has left behind: as the nearest subreaper this one inherits them.
std::vector<pid_t> Orphans() {
  std::ifstream list(fmt::format("/proc/self/task/{}/children", getpid()));
  std::vector<pid_t> all;
  for (pid_t pid; list >> pid;) all.push_back(pid);
  return all;
}

// A module whose till was killed ends by itself, but not in the same moment.
size_t ClearAway() {
  constexpr double kGrace = 2;
  const Clock::time_point begin = Clock::now();
  std::vector<pid_t> left;
  do {
    while (waitpid(-1, nullptr, WNOHANG) > 0) {}
    left = Orphans();
    if (!left.empty()) usleep(10000);
  } while (!left.empty() && SecondsSince(begin) < kGrace);
  for (pid_t pid : left) kill(pid, SIGKILL);
  for (pid_t pid : left) waitpid(pid, nullptr, 0);
  return left.size();
}

// Where scratch places are made, unless the caller has chosen.
void ChoosePlace() {
  constexpr char kMemory[] = "/dev/shm";
  constexpr uint64_t kRoom = 256 << 20;
  struct statvfs info = {};
  if (statvfs(kMemory, &info) == 0 && !(info.f_flag & (ST_NOEXEC | ST_RDONLY)) &&
      info.f_bavail * info.f_frsize >= kRoom)
    setenv("TMPDIR", kMemory, 0);
}

} // namespace

Outcome RunApart(const Area& area, const Extent& extent, double dLimit) {
  const Clock::time_point begin = Clock::now();
  ChoosePlace();
  Scratch place, notes;
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t child = fork();
  if (child == 0) Measure(area, extent, place, notes);
  int status = -1;
  const bool inTime = child > 0 && WaitOrKill(child, dLimit, &status);

  Findings findings = FromText(notes.Get(kNote));
  if (child < 0)
    findings.push_back(Fault(area, "no process"));
  else if (!inTime)
    findings.push_back(Fault(area, fmt::format("not over after {:.0f} s", dLimit)));
  else if (WIFSIGNALED(status))
    findings.push_back(Fault(area, fmt::format("ended by SIG{}", sigabbrev_np(WTERMSIG(status)))));
  else if (findings.empty())
    findings.push_back(Fault(area, "no findings"));
  if (const size_t left = ClearAway())
    findings.push_back(
        {"nothing is left of the area", area.pccName, fmt::format("{} processes", left), false});
  return {findings, SecondsSince(begin)};
}

} // namespace trust
