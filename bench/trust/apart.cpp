#include "apart.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <poll.h>
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

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

Finding Fault(const Area& area, const std::string& found) {
  return {"the area comes to its end", area.pccName, found, false};
}

// In the child: measures, and hands the findings over as text.
[[noreturn]] void Measure(const Area& area, const Extent& extent, const std::string& place, int out) {
  prctl(PR_SET_PDEATHSIG, SIGKILL); // a check that is broken off leaves no area running
  Findings findings;
  try {
    std::filesystem::current_path(place);
    setenv("TMPDIR", place.c_str(), 1);
    findings = area.procMeasure(extent);
  } catch (const std::exception& e) { findings.push_back(Fault(area, e.what())); }
  const std::string text = ToText(findings);
  for (size_t done = 0; done < text.size();) {
    const ssize_t n = write(out, text.data() + done, text.size() - done);
    if (n < 0) break;
    done += static_cast<size_t>(n);
  }
  _exit(0);
}

// What the child writes until it closes its end; false when the time is over before that.
bool Listen(int in, double limit, std::string& text) {
  const Clock::time_point begin = Clock::now();
  for (;;) {
    const double left = limit - SecondsSince(begin);
    pollfd ready{in, POLLIN, 0};
    if (left <= 0 || poll(&ready, 1, static_cast<int>(left * 1000) + 1) == 0) return false;
    char part[4096];
    const ssize_t n = read(in, part, sizeof part);
    if (n == 0) return true;
    if (n > 0) text.append(part, static_cast<size_t>(n));
  }
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
  Scratch place;
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  int ends[2];
  if (pipe(ends) != 0) return {{Fault(area, "no pipe")}, 0};
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    Measure(area, extent, place / "", ends[1]);
  }
  close(ends[1]);
  std::string text;
  const bool inTime = child > 0 && Listen(ends[0], dLimit, text);
  close(ends[0]);
  int status = -1;
  if (child > 0 && !inTime) kill(child, SIGKILL);
  if (child > 0) waitpid(child, &status, 0);

  Findings findings = FromText(text);
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
