#include "instlock.h"
#include "microus.h"
#include "utilf.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace zat {
namespace {

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

// One byte into the mark. errno tells why not.
bool InstallLock::Count(const tFd& oDir, int iFlags) {
  const tFd file(openat(oDir.fd, kUpdaterMark, O_WRONLY | O_NOFOLLOW | O_CLOEXEC | iFlags, 0666));
  struct stat info;
  if (!file || !WriteBytes(file.fd, ".", 1) || fsync(file.fd) || fstat(file.fd, &info)) return false;
  tries = static_cast<int>(info.st_size);
  return fsync(oDir.fd) == 0;
}

// The directory at a path, with our flock on it; empty, with errno, when it cannot be had.
static tFd OpenLocked(const std::string& path) {
  tFd dir(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (dir && flock(dir.fd, LOCK_EX | LOCK_NB)) return tFd();
  if (dir && SameFile(dir.fd, path)) return dir;
  if (dir || errno == ENOENT) errno = ESTALE; // taken away or replaced meanwhile
  return tFd();
}

// The lock made under another name, complete, and then renamed.
bool InstallLock::Make() {
  const std::string next = path + ".new";
  if (mkdir(next.c_str(), 0777) && errno != EEXIST) return false;
  tFd dir = OpenLocked(next);
  if (!dir || !Count(dir, O_CREAT | O_TRUNC)) return false;
  // A file system without this form of rename: between look and rename nobody else makes a lock, since only
  // updaters that got this far do, one at a time.
  if (renameat2(AT_FDCWD, next.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) &&
      (errno != EINVAL || access(path.c_str(), F_OK) == 0 || rename(next.c_str(), path.c_str())))
    return false;
  held = std::move(dir);
  return SyncPath(root);
}

bool InstallLock::TakeOver() {
  tFd dir = OpenLocked(path);
  if (!dir || !Count(dir, O_APPEND)) return false;
  held = std::move(dir);
  return true;
}

tMUResult InstallLock::Take() {
  RemoveTree(path + ".done"); // of a run that ended between giving the lock up and clearing it away
  for (int i = 0; i < kRetries; ++i) {
    struct stat info;
    const bool there = lstat(path.c_str(), &info) == 0;
    if (there && S_ISREG(info.st_mode)) {
      if (!ClearLauncherLock(path)) return Complain("%s: held by a launcher", path.c_str()), eMUbusy;
      continue;
    }
    if (there ? TakeOver() : Make()) return eMUgood;
    if (errno == EWOULDBLOCK) return Complain("%s: held by another updater", path.c_str()), eMUbusy;
    if (there && errno == ENOENT) return Complain("%s: not made by this updater", path.c_str()), eMUbusy;
    if (errno != ESTALE && errno != EEXIST) break; // else it has changed under our hands
  }
  return Complain("%s: %s", path.c_str(), strerror(errno)), eMUbad;
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
  // Cleared away under another name: emptied in place it would, for a moment, be a lock that anybody can remove.
  if (rename(path.c_str(), done.c_str())) Complain("%s: %s", path.c_str(), strerror(errno));
  SyncPath(root);
  RemoveTree(done);
  if (inside) remflock(main.c_str());
  held = tFd();
}

} // namespace zat
