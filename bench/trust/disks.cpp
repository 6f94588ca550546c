// Places in which little works: a full disk, one that can only be read, no directory for the log, none for the locks; and
// a wall clock that is set back. A payment still ends with a definite result, in bounded time.
#include "areas.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

#include <fmt/core.h>
#include <linux/capability.h>

#include "lab.h"
#include "scratch.h"

namespace fs = std::filesystem;

namespace trust {

using namespace faults;

namespace {

constexpr int kCannot = 126; // the place cannot be spoiled on this machine

void Need(bool done) {
  if (!done) _exit(kCannot);
}

void WriteId(const char* file, const std::string& text) {
  const int fd = open(file, O_WRONLY | O_CLOEXEC);
  Need(fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  close(fd);
}

// File systems that this process alone sees. Without the right to them, as root of a user namespace.
void OwnMounts() {
  const std::string user = fmt::format("0 {} 1", getuid()), group = fmt::format("0 {} 1", getgid());
  if (unshare(CLONE_NEWNS) != 0) {
    Need(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0);
    WriteId("/proc/self/setgroups", "deny");
    WriteId("/proc/self/uid_map", user);
    WriteId("/proc/self/gid_map", group);
  }
  Need(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
}

// The installation on a disk of its own that has no byte left.
void FullDisk(const std::string& root) {
  OwnMounts();
  const Scratch aside;
  fs::copy(root, aside / "copy", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  Need(mount("none", root.c_str(), "tmpfs", 0, "size=64m") == 0);
  fs::copy(aside / "copy", root, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  std::ofstream fill(root + "/fill", std::ios::binary);
  for (const std::string block(4096, 'x'); fill.write(block.data(), 4096).flush();) {}
}

void ReadOnlyDisk(const std::string& root) {
  OwnMounts();
  Need(mount(root.c_str(), root.c_str(), nullptr, MS_BIND, nullptr) == 0);
  Need(mount(nullptr, root.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0);
}

void NoLogDirectory(const std::string& root) {
  std::ofstream(root + "/micromgl.cfg") << "[ENV]\nLOGLEVEL=H\nLOGFILE=" << root << "/none/zat_comm.log\n";
}

// The superuser may write anywhere; without that right a mode counts for it, too.
void ObeyModes() {
  for (int right : {CAP_DAC_OVERRIDE, CAP_FOWNER}) prctl(PR_CAPBSET_DROP, right);
}

void NoLocks(const std::string& root) {
  ObeyModes();
  fs::permissions(root, fs::perms(0555));
}

void NoLogLocks(const std::string& root) {
  ObeyModes();
  std::ofstream(root + "/BIN/zat_comm.log").flush();
  fs::permissions(root + "/BIN", fs::perms(0555));
}

void Mend(const std::string& root) {
  for (const char* dir : {"", "/BIN"}) fs::permissions(root + dir, fs::perms(0755));
}

struct Place {
  const char* pccWhat;
  Lab::procSpoil_t procSpoil;
  int iCutHow;
  const char* pccReason; // what a payment comes to
  double dMostSeconds;
};
constexpr double kPaidSeconds = 5, kLocksSeconds = 10; // the locks' 7 s, and the lines of the log
constexpr Place kPlaces[] = {
    {"a full disk", FullDisk, eNoCut, "X8", kLocksSeconds},
    {"a disk that can only be read", ReadOnlyDisk, eNoCut, "X8", kLocksSeconds},
    {"no directory for the log", NoLogDirectory, eNoCut, "ok", kPaidSeconds},
    {"a directory of locks without the right to write", NoLocks, eNoCut, "X8", kLocksSeconds},
    {"a directory of the log without the right to write", NoLogLocks, eNoCut, "ok", kPaidSeconds},
    {"a clock set back an hour behind each block", nullptr, eClockBack, "ok", kPaidSeconds}};

Finding MeasurePlace(const Place& place, int times) {
  Lab lab("zat_fault_till", place.procSpoil);
  std::vector<Trial> trials;
  for (int i = 0; i < times; ++i)
    trials.push_back({"plain", eTill, 0, 0, 1, 0, eCalls, place.iCutHow, i % 4});
  double worst = 0;
  std::string problem;
  for (const Result& result : lab.Run(trials)) {
    worst = std::max(worst, result.dWorstMs / 1000);
    if (result.oReason != place.pccReason) problem = "a result of " + result.oReason;
    if (!result.oProblem.empty()) problem = result.oProblem;
  }
  Mend(lab.Root());
  const bool paid = std::string(place.pccReason) == "ok";
  const std::string what = paid ? "paid" : fmt::format("refused with {}", place.pccReason);
  return {place.pccWhat, fmt::format("{} payments", times),
          problem.empty() ? fmt::format("{}, longest call {:.1f} s", what, worst) : problem,
          problem.empty() && worst < place.dMostSeconds};
}

} // namespace

Findings MeasureDisks(const Extent& extent) {
  Findings findings;
  for (const Place& place : kPlaces) findings.push_back(MeasurePlace(place, extent.Of(40, 4)));
  return findings;
}

} // namespace trust
