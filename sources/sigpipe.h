// Keeps the SIGPIPE of a write to a pipe without readers from the host: its default would end the process, and a handler
// of the host's is not meant for what we write.
#pragma once
#include <cerrno>
#include <csignal>
#include <ctime>

namespace zat {

// For the time of one write. The signal comes to the writing thread only, so it is held back there and taken away. One
// that the host itself held back before is left for it.
class SigPipeShield {
public:
  explicit SigPipeShield(bool fNeeded) : fOn(fNeeded) {
    if (!fOn) return;
    sigemptyset(&oOnly);
    sigaddset(&oOnly, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &oOnly, &oBefore);
    sigset_t oPending;
    fKeep = sigismember(&oBefore, SIGPIPE) && sigpending(&oPending) == 0 && sigismember(&oPending, SIGPIPE);
  }
  ~SigPipeShield() {
    if (!fOn) return;
    const int iErrno = errno;
    const timespec oNow{};
    bool fTaken = true;
    if (fRaised && !fKeep) {
      int iGot;
      do iGot = sigtimedwait(&oOnly, nullptr, &oNow);
      while (iGot < 0 && errno == EINTR);
      fTaken = iGot == SIGPIPE || errno == EAGAIN;
    }
    // One that could not be taken away stays held back: let in, it would end the host.
    if (fTaken && !sigismember(&oBefore, SIGPIPE)) pthread_sigmask(SIG_SETMASK, &oBefore, nullptr);
    errno = iErrno;
  }
  SigPipeShield(const SigPipeShield&) = delete;
  SigPipeShield& operator=(const SigPipeShield&) = delete;

  bool fRaised = false; // the write failed with EPIPE: for the one who writes to set

private:
  bool fOn, fKeep = false;
  sigset_t oOnly, oBefore;
};

} // namespace zat
