// The locks: who holds them, and which were left by processes that are gone.
//
// No lock is tried: for the moment of the trial a till that asks without waiting would be refused. The kernel's list of
// locks (/proc/locks) and the open files of the processes tell the same without touching anything.
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <fstream>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "doctor.h"
#include "logfile.h"
#include "microus.h"
#include "place.h"
#include "text.h"

namespace zat::tool {

namespace {

constexpr long kLongHold = 120;    // seconds; a launcher has a budget of 7, a line of the log takes none
constexpr long kLongPayment = 900; // seconds; longer than anybody stands at a till

// The process that holds an flock on a file by the kernel's list; 0 when none does.
//   1: FLOCK  ADVISORY  WRITE 4711 fe:01:131204 0 EOF
int LockHolder(const struct stat& file) {
  std::ifstream list("/proc/locks");
  std::string line;
  while (std::getline(list, line)) {
    char kind[16];
    int pid = 0;
    unsigned high = 0, low = 0;
    unsigned long long inode = 0;
    if (sscanf(line.c_str(), "%*d: %15s %*s %*s %d %x:%x:%llu", kind, &pid, &high, &low, &inode) != 5)
      continue;
    if (tString(kind) != "FLOCK" || inode != file.st_ino) continue;
    // Some file systems show another device to stat than to the kernel's list: then the number of the file decides.
    const bool same = high == major(file.st_dev) && low == minor(file.st_dev);
    if (same || major(file.st_dev) == 0) return pid > 0 ? pid : -1;
  }
  return 0;
}

// "4711 (zat_till)", or the programs that have the file open: a lock that a till passed on to its module still shows
// the till's number when the till has gone.
tString HolderText(int pid, const struct stat& file) {
  const auto name = [](int process) {
    tString text;
    ReadWhole(fmt::format("/proc/{}/comm", process), text);
    while (text.ends_with('\n')) text.pop_back();
    return text;
  };
  if (const tString program = pid > 0 ? name(pid) : ""; !program.empty())
    return fmt::format("process {} ({})", pid, ToScreen(program));
  for (const tString& process : NamesIn("/proc", "[0-9]*"))
    for (const tString& fd : NamesIn("/proc/" + process + "/fd", "*")) {
      struct stat open;
      if (stat(fmt::format("/proc/{}/fd/{}", process, fd).c_str(), &open) || open.st_ino != file.st_ino ||
          open.st_dev != file.st_dev)
        continue;
      return fmt::format("process {} ({})", process, ToScreen(name(std::atoi(process.c_str()))));
    }
  return "a process that is not seen from here";
}

struct tLockRow {
  const char *pccPattern, *pccWhat;
  long lLongest; // seconds that it may be held
};
constexpr tLockRow kLocks[] = {
    {"mainlock.lck", "the main lock", kLongHold},
    {"updtlock.lck", "the update lock", kLongHold},
    {"cid*.lck", "a terminal id", kLongPayment},
};

// The update lock as a directory: an updater at work, or one that was killed.
void CheckInstallation(Findings& found, const tString& name, const struct stat& info, int holder) {
  if (holder)
    found.Warn("locks", fmt::format("{}: an update is being installed by {}", name, HolderText(holder, info)),
               "wait; tills get X8 meanwhile");
  else
    found.Warn("locks", name + ": the installation of an update was broken off",
               "nothing: the next request of a till finishes it; then see updtlast.log");
}

void CheckHeld(Findings& found, const tLockRow& row, const tString& name, const struct stat& info,
               int holder) {
  const long age = time(nullptr) - info.st_mtime;
  const tString text =
      fmt::format("{}: {} is held by {} for {}", name, row.pccWhat, HolderText(holder, info), AgeText(age));
  if (age > row.lLongest)
    found.Warn("locks", text, "see what that process waits for; do not remove the lock");
  else
    found.Ok("locks", text);
}

void CheckLeft(Findings& found, const tString& path, const tString& name, const struct stat& info) {
  tString holder;
  ReadWhole(path, holder);
  const tString pid = holder.substr(0, holder.find_first_not_of("0123456789"));
  const tString text = fmt::format("{}: left by process {}, which is gone, {} ago", name,
                                   pid.empty() ? "?" : pid, AgeText(time(nullptr) - info.st_mtime));
  // A payment's lock that outlives its till means that the till or its module was killed in the middle.
  if (name.starts_with("cid"))
    found.Warn(
        "locks", text + " in the middle of an exchange",
        fmt::format("ask the terminal for the outcome: zat_tool log {} --tid {}; the lock frees itself",
                    found.oRoot, name.substr(3, name.size() - 7)));
  else
    found.Ok("locks", text + "; it frees itself");
}

void CheckLock(Findings& found, const tLockRow& row, const tString& name) {
  const tString path = found.oRoot + name;
  struct stat info;
  if (lstat(path.c_str(), &info)) return; // gone meanwhile, as locks do
  const int holder = LockHolder(info);
  if (S_ISDIR(info.st_mode) && access((path + "/" + kUpdaterMark).c_str(), F_OK) == 0)
    CheckInstallation(found, name, info, holder);
  else if (!S_ISREG(info.st_mode))
    found.Problem("locks", name + " is no file: no till can take it", "remove it while no till runs");
  else if (access(path.c_str(), W_OK))
    found.Problem("locks", fmt::format("{} cannot be written: {}", name, strerror(errno)),
                  "chown it to the till's user");
  else if (holder)
    CheckHeld(found, row, name, info, holder);
  else
    CheckLeft(found, path, name, info);
}

} // namespace

void CheckLocks(Findings& oFound) {
  const size_t before = oFound.oAll.size();
  for (const tLockRow& row : kLocks)
    for (const tString& name : NamesIn(oFound.oRoot, row.pccPattern)) CheckLock(oFound, row, name);
  const tString log = LogOfRoot(oFound.oRoot) + ".lck";
  struct stat info;
  if (stat(log.c_str(), &info) == 0 && LockHolder(info) && time(nullptr) - info.st_mtime > kLongHold)
    oFound.Warn("locks", fmt::format("{} is held by {}", log, HolderText(LockHolder(info), info)),
                "end that process if it hangs: tills wait 60 s for the log");
  if (oFound.oAll.size() == before) oFound.Ok("locks", "none is held, none is left over");
}

} // namespace zat::tool
