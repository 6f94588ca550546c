#include "instlock.h"
#include "utilf.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace zat {
namespace {

constexpr const char* kTries = "tries";
constexpr const char* kStagedMark = "staged";
constexpr int kRetries = 100;      // of taking a lock that others free under our hands
constexpr int kMainLockMs = 20000; // a launcher keeps the main lock for its budget of 7 s at most

// A lock file that a launcher has left or still holds. False when it lives.
bool ClearLauncherLock(const std::string& path) {
  return tryflock(path.c_str()) == 0 && remflock(path.c_str()) == 0;
}

bool SameFile(int fd, const std::string& path) {
  struct stat held, named;
  return fstat(fd, &held) == 0 && lstat(path.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
         held.st_dev == named.st_dev;
}

} // namespace

tMUResult InstallLock::Take() {
  RemoveTree(path + ".done"); // of a run that ended between giving the lock up and clearing it away
  for (int i = 0; i < kRetries; ++i) {
    if (mkdir(path.c_str(), 0777) && errno != EEXIST) break;
    tFd dir(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir && errno == ENOENT) continue;
    if (!dir && errno != ENOTDIR) break;
    if (!dir && !ClearLauncherLock(path)) return Complain("%s: held by a launcher", path.c_str()), eMUbusy;
    if (!dir) continue;
    if (flock(dir.fd, LOCK_EX | LOCK_NB))
      return Complain("%s: held by another updater", path.c_str()), eMUbusy;
    if (!SameFile(dir.fd, path)) continue;
    held = std::move(dir);
    if (CountTry()) return eMUgood;
    break;
  }
  return Complain("%s: %s", path.c_str(), strerror(errno)), eMUbad;
}

bool InstallLock::CountTry() {
  const tFd file(openat(held.fd, kTries, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0666));
  struct stat info;
  if (!file || !WriteBytes(file.fd, ".", 1) || fsync(file.fd) || fstat(file.fd, &info)) return false;
  tries = static_cast<int>(info.st_size);
  return fsync(held.fd) == 0 && SyncPath(root);
}

std::string InstallLock::Staged() const {
  const tFd file(openat(held.fd, kStagedMark, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  char text[4096];
  const ssize_t n = file ? read(file.fd, text, sizeof text) : 0;
  return n > 0 ? std::string(text, static_cast<size_t>(n)) : std::string();
}

bool InstallLock::SetStaged(const std::string& tree) {
  const std::string next = std::string(kStagedMark) + ".new";
  const tFd file(openat(held.fd, next.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
  const bool done = file && WriteBytes(file.fd, tree.data(), tree.size()) && fsync(file.fd) == 0 &&
                    renameat(held.fd, next.c_str(), held.fd, kStagedMark) == 0 && fsync(held.fd) == 0;
  return done || Complain("%s: %s", path.c_str(), strerror(errno));
}

bool InstallLock::ClearStaged() { return unlinkat(held.fd, kStagedMark, 0) == 0 && fsync(held.fd) == 0; }

void InstallLock::Free(bool wait) {
  const std::string main = root + "/mainlock.lck", done = path + ".done";
  bool inside = false;
  for (int i = 0; wait && !inside && i < kMainLockMs; ++i)
    if (!(inside = tryflock(main.c_str()) == 0)) YieldMS(1);
  // Cleared away under another name: emptied in place it would, for a moment, be a lock that anybody can
  // remove.
  if (rename(path.c_str(), done.c_str())) Complain("%s: %s", path.c_str(), strerror(errno));
  SyncPath(root);
  RemoveTree(done);
  if (inside) remflock(main.c_str());
  held = tFd();
}

} // namespace zat
