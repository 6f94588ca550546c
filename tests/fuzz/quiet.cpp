// What makes a trial fast and without traces: no log, and waits that are over at once.
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "SLogger.h"
#include "quiet.h"

// Whatever a trial waits for does not come by waiting: it has written everything before.
extern "C" int poll(pollfd* descriptors, nfds_t count, int) {
  return static_cast<int>(syscall(SYS_poll, descriptors, count, 0));
}

namespace fuzz {

void Quiet() {
  static bool done = false;
  if (done) return;
  done = true;
  delete poGSLog;
  poGSLog = new SLogger("/", false); // a directory does not open, so no line is ever wanted
}

} // namespace fuzz
