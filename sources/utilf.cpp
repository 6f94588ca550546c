#include "utilf.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "forkmutex.h"

namespace {

constexpr int kFirstFreeDescriptor = 3; // 0 to 2 belong to the host, even when it has closed them

// A null name is the name of nothing; asking the system for it would be an error of our own.
const char* Given(const char* name) { return name ? name : ""; }

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
  operator const char*() const { return Given(text); }

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
int fmkdir(const char* pccName) { return mkdir(Given(pccName), 0777); }

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
  FILE* from = fopen(Given(pccSrc), "rbe");
  struct stat source, target;
  if (from && fstat(fileno(from), &source) == 0 && stat(Given(pccDst), &target) == 0 &&
      source.st_dev == target.st_dev && source.st_ino == target.st_ino)
    return fclose(from); // opened for writing, the file would lose what is to be copied
  FILE* to = from ? fopen(Given(pccDst), "wbe") : nullptr;
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
  int fd = open(Given(pccName), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return 0;
  struct stat info = {};
  unsigned long size = fstat(fd, &info) == 0 ? static_cast<unsigned long>(info.st_size) : 0;
  close(fd);
  return size;
}

// --- Lock files -------------------------------------------------------------------------------------------------

namespace {

struct FileId {
  dev_t device;
  ino_t inode;
  bool operator==(const FileId& other) const { return device == other.device && inode == other.inode; }
};

FileId IdOf(const struct stat& info) { return {info.st_dev, info.st_ino}; }

// Closes and keeps errno, which says why the descriptor is given up.
void Close(int fd) {
  int code = errno;
  close(fd);
  errno = code;
}

// Unlocks too: a child that was forked meanwhile has the descriptor as well and would keep the lock.
void Release(int fd) {
  int code = errno;
  flock(fd, LOCK_UN);
  close(fd);
  errno = code;
}

enum class Whose { nobodys, ours, parents };

// The locks that this process holds, or had when it was forked: at most a few, one for each session and one for the
// file being written. Files are told apart by device and inode, since a path may be spelled in several ways. Plain
// memory without constructor or destructor, because locks are taken before and given up after the time in which this
// file's other globals live.
class LockTable {
public:
  // Whether this very process holds the lock on a file.
  bool Ours(FileId id) {
    std::lock_guard guard(oMutex);
    const Entry* entry = Look(id);
    return entry && entry->owner == getpid();
  }

  // Notes a lock as the owner's, which is this process. False when the table is full.
  bool Add(FileId id, int fd, pid_t owner) {
    std::lock_guard guard(oMutex);
    Entry* entry = Free();
    if (entry) *entry = {id, fd, owner};
    return entry;
  }

  // Takes the lock on a file out: whose it was, and the descriptor that holds it.
  Whose Remove(FileId id, int* fd) {
    std::lock_guard guard(oMutex);
    Entry* entry = Look(id);
    if (!entry) return Whose::nobodys;
    Whose whose = entry->owner == getpid() ? Whose::ours : Whose::parents;
    *fd = entry->fd;
    *entry = {};
    return whose;
  }

  // Gives up the locks whose file somebody else has removed: they exclude nobody, and no path leads to them any more.
  void Sweep() {
    std::lock_guard guard(oMutex);
    for (Entry& entry : moEntry) Drop(entry);
  }

private:
  struct Entry {
    FileId id;
    int fd; // 0, which no lock ever has, in a free entry
    pid_t owner;
  };

  // Looks at the descriptor again before it is used: a host that closes every descriptor it does not know has closed
  // ours too, and the number may be another file's now. Where the system cannot tell just now, the lock is still ours:
  // forgotten, it would be held until the process ends.
  Entry* Look(FileId id) {
    for (Entry& entry : moEntry) {
      if (!entry.fd || !(entry.id == id)) continue;
      struct stat info;
      if (fstat(entry.fd, &info) == 0 ? IdOf(info) == id : errno != EBADF) return &entry;
      entry = {};
    }
    return nullptr;
  }

  Entry* Free() {
    for (bool drop : {false, true})
      for (Entry& entry : moEntry) {
        if (drop) Drop(entry);
        if (!entry.fd) return &entry;
      }
    return nullptr;
  }

  static void Drop(Entry& entry) {
    if (!entry.fd) return;
    struct stat info;
    const bool told = fstat(entry.fd, &info) == 0;
    if (!told && errno != EBADF) return;
    const bool same = told && IdOf(info) == entry.id;
    if (same && info.st_nlink > 0) return;
    if (same) Close(entry.fd);
    entry = {};
  }

  zat::ForkMutex oMutex; // a host may fork on one thread while another is in here
  Entry moEntry[256] = {};
};
constinit LockTable oLocks;

// Opens a lock file without following, blocking on or creating anything but a regular file.
int OpenLock(const char* name, FileId* id) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  int fd = TEMP_FAILURE_RETRY(open(Given(name), kFlags, 0666));
  if (fd >= 0 && fd < kFirstFreeDescriptor) {
    int low = fd;
    fd = fcntl(low, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
    Close(low);
  }
  if (fd < 0) return -1;
  struct stat info;
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) {
    *id = IdOf(info);
    return fd;
  }
  Close(fd);
  return -1;
}

// Whether the path still names the locked file. The one who held the lock before may have removed it between our
// opening and our locking; a lock on a file that nobody can find any more excludes nobody.
bool StillThere(FileId id, const char* name) {
  struct stat found;
  return lstat(name, &found) == 0 && IdOf(found) == id;
}

// Locks the open file: 0; not 0 with EWOULDBLOCK when another process has it, or this one. A wait for this process
// itself would never end.
int Lock(int fd, FileId id, bool wait) {
  if (!wait || !oLocks.Ours(id)) return TEMP_FAILURE_RETRY(flock(fd, LOCK_EX | (wait ? 0 : LOCK_NB)));
  errno = EWOULDBLOCK;
  return 1;
}

// Puts the digits of a number that is not negative in front of `end` and returns where they begin. A line of the log
// takes a lock each time, and printf would be a tenth of it.
char* PutDigits(char* end, int number) {
  do *--end = static_cast<char>('0' + number % 10);
  while ((number /= 10) != 0);
  return end;
}

bool WriteHolder(int fd, pid_t owner) {
  constexpr size_t kDigits = 10; // of the greatest number
  char text[kDigits + 2 + kDigits];
  char* const end = text + sizeof text;
  char* at = PutDigits(end, fd);
  *--at = '\n';
  *--at = '\r';
  at = PutDigits(at, owner);
  return TEMP_FAILURE_RETRY(pwrite(fd, at, static_cast<size_t>(end - at), 0)) == end - at;
}

// Opens the file and locks it: the descriptor, or -1.
int OpenLocked(const char* name, bool wait, FileId* id) {
  for (;;) {
    int fd = OpenLock(name, id);
    if (fd < 0) return -1;
    if (Lock(fd, *id, wait) != 0) {
      Close(fd);
      return -1;
    }
    if (StillThere(*id, name)) return fd;
    Release(fd);
  }
}

int Take(const char* name, bool wait, bool inherit) {
  FileId id;
  int fd = OpenLocked(name, wait, &id);
  if (fd < 0) return 1;
  int result = 0;
  const pid_t owner = getpid();
  if (!WriteHolder(fd, owner))
    result = -1;
  else if ((inherit && fcntl(fd, F_SETFD, 0) != 0) || !oLocks.Add(id, fd, owner))
    result = 1;
  if (result != 0) Release(fd);
  return result;
}

} // namespace

int putflock(const char* pccName) { return Take(pccName, true, false); }
int tryflock(const char* pccName, bool fInherit) { return Take(pccName, false, fInherit); }

int remflock(const char* pccName) {
  struct stat info = {};
  int fd = -1;
  Whose whose = lstat(Given(pccName), &info) == 0 ? oLocks.Remove(IdOf(info), &fd) : Whose::nobodys;
  if (whose == Whose::parents) {
    Close(fd); // only our copy: unlocking would unlock the parent
    return 0;
  }
  int result = fremove(pccName);
  if (whose == Whose::ours) {
    Release(fd);
  } else {
    // The file of a lock of ours may have been replaced, or could not be looked at before it was removed.
    int code = errno;
    oLocks.Sweep();
    errno = code;
  }
  return result;
}

int zat::TakeBriefLock(const char* pccName) {
  FileId id;
  int fd = OpenLocked(pccName, false, &id);
  if (fd >= 0 && !WriteHolder(fd, getpid())) {
    Release(fd);
    fd = -1;
  }
  return fd;
}

void zat::FreeBriefLock(const char* pccName, int iFd) {
  int code = errno;
  unlink(pccName);
  Release(iFd);
  errno = code;
}

bool holdsflock(const char* pccName) {
  struct stat info = {};
  return lstat(Given(pccName), &info) == 0 && oLocks.Ours(IdOf(info));
}

int isflock(const char* pccName) {
  int fd = open(Given(pccName), O_RDWR | O_EXCL | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd >= 0) close(fd);
  return fd >= 0 || errno == ENOENT ? 0 : 1;
}
