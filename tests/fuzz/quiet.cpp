// What makes a trial fast and without traces: no log, and waits that are over at once. And the weather: system calls that
// fail for a while, because the trial says so.
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "SLogger.h"
#include "quiet.h"

namespace {

int failures = 0, code = 0;

// A system call, unless the weather is bad.
template<class... A> long Call(long number, A... arguments) {
  if (failures == 0) return syscall(number, arguments...);
  --failures;
  errno = code;
  return -1;
}

} // namespace

#pragma GCC diagnostic ignored "-Wshadow" // the function flock has the name of a structure
extern "C" {

// Whatever a trial waits for does not come by waiting: it has written everything before.
int poll(pollfd* descriptors, nfds_t count, int) {
  return static_cast<int>(Call(SYS_poll, descriptors, count, 0));
}
ssize_t readv(int fd, const iovec* pieces, int count) { return Call(SYS_readv, fd, pieces, count); }
ssize_t writev(int fd, const iovec* pieces, int count) { return Call(SYS_writev, fd, pieces, count); }
ssize_t pwrite(int fd, const void* from, size_t size, off_t at) {
  return Call(SYS_pwrite64, fd, from, size, at);
}
int flock(int fd, int how) noexcept { return static_cast<int>(Call(SYS_flock, fd, how)); }
int pipe2(int* ends, int flags) noexcept { return static_cast<int>(Call(SYS_pipe2, ends, flags)); }

int open(const char* name, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const int mode = flags & O_CREAT ? va_arg(more, int) : 0;
  va_end(more);
  return static_cast<int>(Call(SYS_openat, AT_FDCWD, name, flags, mode));
}
}

namespace fuzz {

void Weather(int times, int errorCode) {
  failures = times;
  code = errorCode;
}

void Quiet() {
  static bool done = false;
  if (done) return;
  done = true;
  delete poGSLog;
  poGSLog = new SLogger("/", false); // a directory does not open, so no line is ever wanted
}

} // namespace fuzz
