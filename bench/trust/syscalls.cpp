// Every call to the system fails once: while a till makes a sale, while an update is installed, and in the parts of the
// library that neither comes by.
#include "areas.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <string_view>
#include <sys/syscall.h>

#include <fmt/core.h>

#include "lab.h"
#include "sites.h"
#include "tally.h"

namespace trust {

using namespace faults;

namespace {

constexpr int kErrors[] = {EINTR, EACCES, ENOSPC, EMFILE, EIO, kShort};
constexpr size_t kTurn = 5; // of them in turn; the last one is for calls that move bytes

constexpr size_t kKnownErrors = 2; // for a place that has had them all elsewhere

// What is run, and of the calls from places that have had their errors already, one of how many meets one more.
struct Stage {
  const char* pccScene;
  int iRole;
  size_t lStride, lErrors; // a place meets so many errors
};
constexpr Stage kStages[] = {{"sale", eTill, 1, 6},      {"mend", eTill, 20, 6},   {"update", eTill, 20, 6},
                             {"update", eUpdater, 4, 2}, {"mend", eUpdater, 4, 2}, {"check", eUpdater, 4, 2},
                             {"unpack", eUpdater, 4, 2}};
constexpr const char* kSteps[] = {"records",  "rewind", "copies", "trees",     "untyped", "settings",
                                  "logs",     "locks",  "lost",   "versions",  "closed",  "processes",
                                  "children", "pipes",  "serial", "connection"};

// The kernel answers a wait for an own child with that child, an interruption, or that there is none. After any other
// answer nobody can say whether the child still runs, so one that is left then is no finding.
bool IsNeverSo(const Trial& trial, const std::string& problem) {
  const std::string_view name = NameOf(NameIn(trial.ulAt));
  return name == "waitpid" && trial.iError != EINTR &&
         (problem == "a zombie is left" || problem == "a child is left");
}

// System calls that the table of calls stands for, or that the language and the loader make.
constexpr long kKnown[] = {
    // Files, directories and streams.
    SYS_openat, SYS_close, SYS_read, SYS_write, SYS_pread64, SYS_pwrite64, SYS_readv, SYS_writev, SYS_pwritev,
    SYS_lseek, SYS_fstat, SYS_newfstatat, SYS_faccessat, SYS_faccessat2, SYS_fchmod, SYS_fchown,
    SYS_ftruncate, SYS_fsync, SYS_flock, SYS_fcntl, SYS_getdents64, SYS_dup, SYS_chdir, SYS_fchdir,
    SYS_getcwd, SYS_renameat, SYS_renameat2, SYS_unlinkat, SYS_mkdirat, SYS_linkat, SYS_symlinkat,
    SYS_readlinkat, SYS_fchmodat, SYS_ioctl,
#ifdef SYS_open // older architectures have these besides the ...at forms
    SYS_open, SYS_access, SYS_chmod, SYS_link, SYS_mkdir, SYS_readlink, SYS_rename, SYS_rmdir, SYS_symlink,
    SYS_unlink, SYS_dup2, SYS_pipe, SYS_poll, SYS_vfork, SYS_fork, SYS_arch_prctl,
#endif
    SYS_dup3, SYS_close_range,
    // Pipes, processes, signals, clocks.
    SYS_pipe2, SYS_ppoll, SYS_clone, SYS_execve, SYS_exit_group, SYS_wait4, SYS_waitid, SYS_kill, SYS_setsid,
    SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_rt_sigpending, SYS_rt_sigtimedwait, SYS_getpid, SYS_umask,
    SYS_times, SYS_clock_nanosleep, SYS_nanosleep, SYS_sysinfo,
    // Memory, the loader and the language.
    SYS_brk, SYS_mmap, SYS_munmap, SYS_mprotect, SYS_mremap, SYS_madvise, SYS_futex, SYS_set_tid_address,
    SYS_set_robust_list, SYS_rseq, SYS_prlimit64, SYS_getrandom, SYS_rt_sigreturn, SYS_restart_syscall,
    SYS_gettid};

// Places that no failing call leads to.
constexpr std::string_view kElsewhere[] = {
    "close at packing.cpp:", // only where memory runs out
    // The INI library's own writing of a file, in the place of which SimpleCfg has another.
    "fputs at SimpleIni.h:", "fwrite at SimpleIni.h:", "fputs at simplecfg.cpp:", "fwrite at simplecfg.cpp:"};

class Measurement {
public:
  explicit Measurement(const Extent& extent_) : extent(extent_) {}

  Findings Run() {
    const std::string at = std::string(ZAT_INSTALLATION);
    const bool read = object.Load(at + "/BIN/libzat_ms.so") && shipped.Load(at + "/BIN/zat_mu") &&
                      updater.Load(at + "/bench/zat_fault_mu") && kit.Load(at + "/bench/zat_fault_kit");
    if (!read) return {{"every call to the system fails once", "objdump and nm", "cannot be run", false}};
    updater.LeaveOut(object);
    for (const Stage& stage : kStages) TryStage(stage);
    for (const char* step : kSteps)
      if (!extent.fShort) TryStep(step);
    Findings findings{tally.Verdict("every call to the system fails once"), Names(), Observed()};
    if (!extent.fShort) { // a few faults do not lead into every corner
      findings.push_back(Visited("every place in the object has met a fault", object));
      findings.push_back(Visited("and every place in the updater", updater));
    }
    return findings;
  }

private:
  void TryStage(const Stage& stage) {
    const std::vector<uint64_t> trace = lab.Trace(stage.pccScene, stage.iRole);
    std::vector<Trial> trials;
    std::map<uint64_t, long> times;
    for (size_t n = 1; n < trace.size(); ++n) {
      // A place that met every error in another scene meets some again: something else may come of it here.
      const bool first = ++times[trace[n]] == 1, known = !seen.insert(trace[n]).second;
      const Trial one{stage.pccScene, stage.iRole, trace[n], times[trace[n]]};
      const size_t errors = extent.fShort ? !known
                            : known       ? std::min(stage.lErrors, kKnownErrors)
                                          : stage.lErrors;
      for (size_t i = 0; first && i < errors; ++i)
        Add(trials, one, kErrors[errors < std::size(kErrors) ? (n + i * 3) % kTurn : i]);
      // Where a file system does not know a way of renaming, there is another.
      if (first && !strcmp(NameOf(NameIn(trace[n])), "renameat2")) Add(trials, one, EINVAL);
      if (!first && !extent.fShort && n % stage.lStride == 0) Add(trials, one, kErrors[n % kTurn]);
    }
    Take(lab, trials);
    for (uint64_t place : lab.Places()) {
      if (ImageIn(place) == eObject) object.Visit(NameOf(NameIn(place)), OffsetIn(place));
      if (RoleIn(place) == eUpdater && ImageIn(place) == eProgram)
        updater.Visit(NameOf(NameIn(place)), OffsetIn(place));
    }
  }

  // Only the library's own calls: what a step does besides must go well.
  void TryStep(const char* step) {
    std::vector<Trial> trials;
    std::map<uint64_t, long> times;
    for (uint64_t place : kitLab.Trace(step, eKit)) {
      if (ImageIn(place) != eProgram || !object.VisitAs(kit, NameOf(NameIn(place)), OffsetIn(place)))
        continue;
      if (!seen.insert(place).second) continue;
      const Trial one{step, eKit, place, ++times[place]};
      for (int error : kErrors) Add(trials, one, error);
    }
    Take(kitLab, trials);
    for (uint64_t place : kitLab.Places()) object.VisitAs(kit, NameOf(NameIn(place)), OffsetIn(place));
  }

  void Add(std::vector<Trial>& to, Trial trial, int error) {
    trial.iError = error;
    to.push_back(trial);
  }

  void Take(Lab& from, const std::vector<Trial>& trials) {
    std::vector<Result> results = from.Run(trials);
    for (size_t i = 0; i < trials.size(); ++i) {
      Result& result = results[i];
      if (IsNeverSo(trials[i], result.oProblem)) result.oProblem.clear();
      tally.Add(result, [&] { return Words(trials[i]); });
    }
  }

  std::string Words(const Trial& trial) const {
    const Sites& sites = trial.iRole == eKit ? kit : ImageIn(trial.ulAt) == eObject ? object : updater;
    return fmt::format("{}: {} for {}, time {}", trial.oScene, ErrorName(trial.iError),
                       sites.Text(NameOf(NameIn(trial.ulAt)), OffsetIn(trial.ulAt)), trial.lAt);
  }

  Finding Visited(const char* what, const Sites& sites) const {
    std::vector<std::string> missing = sites.Unvisited();
    for (std::string_view elsewhere : kElsewhere)
      std::erase_if(missing, [&](const std::string& place) { return place.starts_with(elsewhere); });
    for (const std::string& place : missing) fmt::print(stderr, "not met: {}\n", place);
    return {what, fmt::format("{} places", sites.Count()),
            fmt::format("{} of {}{}", sites.Count() - missing.size(), sites.Count(),
                        missing.empty() ? "" : ", not " + missing.front()),
            missing.empty()};
  }

  Finding Names() const {
    std::vector<std::string> unknown = object.UnknownNames();
    for (const std::string& name : shipped.UnknownNames()) unknown.push_back(name);
    return {"no call is forgotten: names taken from outside", "the object, the updater",
            unknown.empty() ? "all known" : unknown.front() + " and so on: not known", unknown.empty()};
  }

  Finding Observed() {
    std::string unknown;
    const std::set<long> calls = lab.Observe(
        {{"sale", eTill}, {"update", eTill}, {"mend", eTill}, {"check", eTill}, {"unpack", eTill}});
    for (long call : calls)
      if (std::find(std::begin(kKnown), std::end(kKnown), call) == std::end(kKnown))
        unknown += fmt::format(" {}", call);
    return {"nor by the kernel's own account", fmt::format("{} different calls", calls.size()),
            unknown.empty() ? "all known" : "not known, by number:" + unknown,
            unknown.empty() && !calls.empty()};
  }

  const Extent extent;
  Lab lab, kitLab{"zat_fault_kit"};
  Sites object, updater, kit, shipped;
  std::set<uint64_t> seen; // places that have had their errors
  Tally tally;
};

} // namespace

Findings MeasureSystemCalls(const Extent& extent) { return Measurement(extent).Run(); }

} // namespace trust
