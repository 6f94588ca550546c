#include "utilf.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kFirstFreeDescriptor = 3; // 0 to 2 belong to the host, even when it has closed them

// A name without the quotes it may come in, for the time of one call.
class Unquoted {
public:
  explicit Unquoted(const char* name) : text(name), copy(fpathr(&text)) {}
  ~Unquoted() {
    int code = errno;
    free(copy);
    errno = code;
  }
  Unquoted(const Unquoted&) = delete;
  Unquoted& operator=(const Unquoted&) = delete;
  operator const char*() const { return text; }

private:
  const char* text;
  char* copy;
};

} // namespace

char* fpathr(const char** ppccName) {
  size_t length = *ppccName ? strlen(*ppccName) : 0;
  if (length <= 2 || (*ppccName)[0] != '"' || (*ppccName)[length - 1] != '"') return nullptr;
  char* copy = strndup(*ppccName + 1, length - 2);
  if (copy) *ppccName = copy;
  return copy;
}

int fremove(const char* pccName) { return remove(Unquoted(pccName)); }
int frename(const char* pccOld, const char* pccNew) { return rename(Unquoted(pccOld), Unquoted(pccNew)); }
int flink(const char* pccOld, const char* pccNew) { return link(Unquoted(pccOld), Unquoted(pccNew)); }
int fmkdir(const char* pccName) { return mkdir(pccName, 0777); }

int frpresent(const char* pccName) { return fxpresent(Unquoted(pccName), S_IFREG); }
int fdpresent(const char* pccName) { return fxpresent(Unquoted(pccName), S_IFDIR); }

int fxpresent(const char* pccName, unsigned uMode) {
  struct stat info;
  if (stat(Unquoted(pccName), &info) != 0) return -1;
  return (info.st_mode & uMode) == uMode ? 0 : 1;
}

size_t fsplitp(const char* pccName) {
  const char* slash = pccName ? strrchr(pccName, '/') : nullptr;
  return slash ? static_cast<size_t>(slash - pccName) + 1 : 0;
}

size_t fpathup(const char* pccPath) {
  size_t length = pccPath ? strlen(pccPath) : 0;
  if (length <= 2 || pccPath[length - 1] != '/') return 0;
  const void* slash = memrchr(pccPath, '/', length - 1);
  return slash ? static_cast<size_t>(static_cast<const char*>(slash) - pccPath) + 1 : 0;
}

int fcopy(const char* pccSrc, const char* pccDst) {
  FILE* from = fopen(pccSrc, "rbe");
  FILE* to = from ? fopen(pccDst, "wbe") : nullptr;
  int result = to ? 0 : -1;
  char part[8192];
  for (size_t n; to && result == 0 && (n = fread(part, 1, sizeof part, from)) > 0;)
    if (fwrite(part, 1, n, to) != n) result = 1;
  if (to && ferror(from)) result = 1;
  if (from) fclose(from);
  if (to && fclose(to) != 0) result = 1; // the last part may meet the full disk only now
  return result;
}

unsigned long fgetsize(const char* pccName) {
  int fd = open(pccName, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return 0;
  struct stat info = {};
  unsigned long size = fstat(fd, &info) == 0 ? static_cast<unsigned long>(info.st_size) : 0;
  close(fd);
  return size;
}

// --- Lock files -------------------------------------------------------------------------------------------------

namespace {

// A lock that this process, or the parent it was forked from, holds. The descriptor is looked at again before it is used:
// a host that closes every descriptor it does not know has closed ours too, and the number may be another file's now.
struct HeldLock {
  std::string name;
  dev_t device;
  ino_t inode;
  int fd;
  pid_t owner;

  bool IsFile(const struct stat& info) const { return info.st_dev == device && info.st_ino == inode; }
  bool Alive() const {
    struct stat info;
    return fstat(fd, &info) == 0 && IsFile(info);
  }
};

// The locks of this process: at most a few, one for each session and one for the file being written.
std::mutex oHeldMutex;
std::vector<HeldLock> oHeld;

// Opens a lock file without following, blocking on or creating anything but a regular file.
int OpenLock(const char* name) {
  int fd = open(name, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
  if (fd >= 0 && fd < kFirstFreeDescriptor) {
    int above = fcntl(fd, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
    close(fd);
    fd = above;
  }
  struct stat info;
  if (fd >= 0 && (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))) {
    close(fd);
    fd = -1;
  }
  return fd;
}

// True when this process holds the open file's lock through another descriptor.
bool HeldHere(int fd) {
  struct stat info;
  if (fstat(fd, &info) != 0) return false;
  std::lock_guard guard(oHeldMutex);
  for (const HeldLock& lock : oHeld)
    if (lock.owner == getpid() && lock.IsFile(info) && lock.Alive()) return true;
  return false;
}

// Whether the path still names the file that the descriptor has open. The one who held the lock before may have removed
// it between our opening and our locking; a lock on a file that nobody can find any more excludes nobody.
bool StillThere(int fd, const char* name) {
  struct stat opened, found;
  return fstat(fd, &opened) == 0 && lstat(name, &found) == 0 && opened.st_dev == found.st_dev &&
         opened.st_ino == found.st_ino;
}

int LockOpen(int fd, bool wait) {
  int result;
  do result = flock(fd, LOCK_EX | (wait ? 0 : LOCK_NB));
  while (result != 0 && errno == EINTR);
  return result;
}

// Opens the file and takes the lock on it: the descriptor, or -1.
int Acquire(const char* name, bool wait) {
  for (;;) {
    int fd = OpenLock(name);
    if (fd < 0) return -1;
    if (HeldHere(fd) || LockOpen(fd, wait) != 0) {
      close(fd);
      return -1;
    }
    if (StillThere(fd, name)) return fd;
    close(fd);
  }
}

bool WriteHolder(int fd) {
  char text[32];
  int length = snprintf(text, sizeof text, "%d%s%d", static_cast<int>(getpid()), "\r\n", fd);
  return pwrite(fd, text, static_cast<size_t>(length), 0) == length;
}

// Notes the lock as this process's. False when there is no memory for that.
bool Note(int fd, const char* name) {
  struct stat info;
  if (fstat(fd, &info) != 0) return false;
  std::lock_guard guard(oHeldMutex);
  std::erase_if(oHeld, [](const HeldLock& lock) { return lock.owner == getpid() && !lock.Alive(); });
  try {
    oHeld.push_back({name, info.st_dev, info.st_ino, fd, getpid()});
  } catch (...) { return false; }
  return true;
}

int Take(const char* name, bool wait, bool inherit) {
  int fd = Acquire(name, wait);
  if (fd < 0) return 1;
  int result = 0;
  if (!WriteHolder(fd))
    result = -1;
  else if (!Note(fd, name) || (inherit && fcntl(fd, F_SETFD, 0) != 0))
    result = 1;
  if (result != 0) {
    flock(fd, LOCK_UN);
    close(fd);
  }
  return result;
}

// Takes the lock of this name out of the table: the newest one first, since a lock that was lost (its file removed by
// somebody else) may stand there still. False when there is none.
bool Forget(const char* name, HeldLock* out) {
  std::lock_guard guard(oHeldMutex);
  for (size_t i = oHeld.size(); i-- > 0;) {
    if (oHeld[i].name != name) continue;
    *out = std::move(oHeld[i]);
    oHeld.erase(oHeld.begin() + static_cast<std::ptrdiff_t>(i));
    return true;
  }
  return false;
}

} // namespace

int putflock(const char* pccName) { return Take(pccName, true, false); }
int tryflock(const char* pccName, bool fInherit) { return Take(pccName, false, fInherit); }

int remflock(const char* pccName) {
  HeldLock lock;
  if (!Forget(pccName, &lock)) return fremove(pccName);
  if (lock.owner != getpid()) {
    // A forked copy of the holder: it shares the open file, and unlocking here would unlock the parent.
    std::lock_guard guard(oHeldMutex);
    oHeld.push_back(std::move(lock));
    errno = EPERM;
    return -1;
  }
  int result = fremove(pccName);
  int code = errno;
  if (lock.Alive()) {
    flock(lock.fd, LOCK_UN);
    close(lock.fd);
  }
  errno = code;
  return result;
}

int isflock(const char* pccName) {
  int fd = open(pccName, O_RDWR | O_EXCL | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd >= 0) close(fd);
  return fd >= 0 || errno == ENOENT ? 0 : 1;
}
