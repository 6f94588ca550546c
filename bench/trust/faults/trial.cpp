#include "trial.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <istream>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace faults {

namespace {

constexpr int kFreeingMs = 500;

std::string HeldLocks(const std::string& root) {
  std::string held;
  for (const char* dir : {"", "BIN", "DOWNLOAD/123"}) {
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(root + "/" + dir, missing)) {
      if (entry.path().extension() != ".lck" || !entry.is_regular_file(missing)) continue;
      const int fd = open(entry.path().c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
      if (fd < 0) continue; // gone meanwhile
      if (flock(fd, LOCK_EX | LOCK_NB) != 0) held += " " + entry.path().filename().string();
      close(fd);
    }
  }
  return held;
}

// The children of a trial that the process still has: they are ended, so that the next trial does not find them.
std::string LeftChildren() {
  const pid_t child = waitpid(-1, nullptr, WNOHANG);
  std::ifstream list("/proc/self/task/" + std::to_string(getpid()) + "/children");
  for (pid_t pid; list >> pid;) kill(pid, SIGKILL);
  while (waitpid(-1, nullptr, 0) > 0) {}
  return child > 0 ? "a zombie is left" : child == 0 ? "a child is left" : "";
}

} // namespace

std::istream& operator>>(std::istream& in, Order& order) {
  return in >> order.oScene >> order.iRole >> order.ulAt >> order.lAt >> order.lSpan >> order.iError >>
         order.iWhat >> order.iCutHow >> order.iCut;
}

void ResetRecord(Plan& plan) {
  plan.iRequests = plan.iApprovals = plan.iEnds = 0;
  plan.iModule = 0;
  plan.fHangUp = plan.fSilent = plan.fAwaits = false;
}

void Arm(Plan& plan, const Order& order) {
  ResetRecord(plan);
  plan.iSkewUs = plan.iWallSkewS = 0;
  plan.lCalls = plan.lThere = plan.lLeft = 0;
  plan.ulHit = 0;
  plan.ulAt = order.ulAt;
  plan.lAt = order.lAt;
  plan.lSpan = order.lSpan;
  plan.iError = order.iError;
  plan.iWhat = order.iWhat;
  plan.iCut = order.iCut;
  plan.iCutHow = order.iCutHow;
  plan.fJump = order.iCutHow != eDies; // a death is to be noticed in real time
  plan.iRealSleepMs = 1000;
}

void Disarm(Plan& plan) {
  plan.iRole = eNobody;
  plan.fJump = plan.fNoTypes = false;
}

std::set<int> OpenDescriptors() {
  std::set<int> all;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd"))
    all.insert(atoi(entry.path().filename().c_str()));
  std::erase_if(all, [](int fd) { return fcntl(fd, F_GETFD) < 0; }); // the one that the list was read through
  return all;
}

std::string LeftBehind(const std::string& root, const std::set<int>& before) {
  if (OpenDescriptors() != before) return "a descriptor is left open";
  const std::string children = LeftChildren();
  if (!children.empty()) return children;
  // An updater frees the main lock a moment after it has taken its own away, which tells that it is done.
  std::string held = HeldLocks(root);
  for (int ms = 0; ms < kFreeingMs && !held.empty(); ++ms) {
    usleep(1000);
    held = HeldLocks(root);
  }
  return held.empty() ? "" : "still held:" + held;
}

bool AwaitInstalled(const std::string& root, int ms) {
  std::error_code error;
  for (; fs::is_directory(root + "/updtlock.lck", error); --ms) {
    if (ms == 0) return false;
    usleep(1000);
  }
  return true;
}

} // namespace faults
