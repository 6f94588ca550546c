#include "uni_misc.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "forkmutex.h"
#include "mmisc.h"
#include "util.h"

namespace {

constexpr int kArguments = 10; // slots, the closing null among them
constexpr int kNotExecuted = 255;

// What a handle points to.
struct ProcessHandle {
  char* mpcArgV[kArguments];
  int32_t iArgC;
  int32_t iPId;
};

// Gives SIGCHLD its default meaning while at least one call on any thread needs it. Counted: the second of two calls
// that overlap would otherwise find the default and put that back for good.
class DefaultChildSignal {
public:
  DefaultChildSignal() {
    std::lock_guard guard(oMutex);
    if (iUsers++ > 0) return;
    struct sigaction plain = {};
    plain.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &plain, &oHost);
  }
  ~DefaultChildSignal() {
    std::lock_guard guard(oMutex);
    if (--iUsers > 0) return;
    int code = errno;
    sigaction(SIGCHLD, &oHost, nullptr);
    MakeGood();
    errno = code;
  }
  DefaultChildSignal(const DefaultChildSignal&) = delete;
  DefaultChildSignal& operator=(const DefaultChildSignal&) = delete;

private:
  // Tells the host what it has missed of the children of its own that ended meanwhile.
  static void MakeGood() {
    siginfo_t info = {};
    if (!(oHost.sa_flags & SA_SIGINFO) && oHost.sa_handler == SIG_DFL) return;
    if (!(oHost.sa_flags & SA_SIGINFO) && oHost.sa_handler == SIG_IGN) {
      // Who ignores its children never waits for them: they would stay zombies.
      while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG) == 0 && info.si_pid != 0) info = {};
    } else if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0) {
      kill(getpid(), SIGCHLD);
    }
  }

  static inline zat::ForkMutex oMutex;
  static inline int iUsers = 0;
  static inline struct sigaction oHost = {};
};

// The child of a vfork: it borrows the parent's memory until the program is executed, so it calls nothing but system
// calls and touches nothing that the parent would miss.
[[noreturn]] void BecomeProgram(char* const* arguments, const sigset_t* mask) {
  // A host that ignores SIGPIPE or SIGCHLD would hand that on, and a module that never learns of a broken pipe or
  // cannot wait for its own children is no use. Handlers are reset by the execution itself.
  struct sigaction plain = {};
  plain.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &plain, nullptr);
  // A session of its own: Ctrl-C on the till's terminal, and its closing, are sent to every program of that terminal,
  // and would kill the module in the middle of a payment. Before signals are let in, so that there is no gap.
  setsid();
  sigprocmask(SIG_SETMASK, mask, nullptr);
  if (arguments[0]) execv(arguments[0], arguments);
  _exit(kNotExecuted);
}

// vfork does not copy the host's page tables: a till of half a gigabyte starts a module as fast as a small one. All
// signals are held back around it, because a handler of the host's must not run in the borrowed memory.
[[gnu::noinline]] pid_t Start(char* const* arguments) {
  sigset_t all, before, none;
  sigfillset(&all);
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pid_t child = vfork();
  if (child == 0) BecomeProgram(arguments, &none);
  int code = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = code;
  return child;
}

// Waits for the end of a process, and kills its group when the time is over. The raw status; -1 when it is lost.
int WaitOrKill(pid_t child, uint64_t ms) {
  tTicks begin = TicksGet();
  bool killed = false;
  int status = -1;
  pid_t got;
  while ((got = waitpid(child, &status, WNOHANG)) == 0 || (got < 0 && errno == EINTR)) {
    // Alone where it could not become the leader of a group: what it has started is not found then.
    if (!killed && TicksEnd(begin, ms)) killed = kill(-child, SIGKILL) == 0 || kill(child, SIGKILL) == 0;
    SleepMS(1);
  }
  return got == child ? status : -1;
}

void Free(ProcessHandle* handle) {
  FreeArgV(handle->mpcArgV, kArguments);
  delete handle;
}

} // namespace

int SysCall(const char* pccStr, int* piOrg) {
  int status = -1; // system(null) would only ask whether there is a shell
  if (pccStr) {
    DefaultChildSignal plain; // otherwise the status of our shell could be gone before system() asks for it
    status = system(pccStr);
  }
  if (piOrg) *piOrg = status;
  return static_cast<int8_t>(status >> 8);
}

int SysCallFor(const char* pccStr, uint64_t iMS, int* piOrg) {
  int status = -1;
  if (pccStr) {
    DefaultChildSignal plain;
    std::string shell = "/bin/sh", option = "-c", line = pccStr;
    char* arguments[] = {shell.data(), option.data(), line.data(), nullptr};
    pid_t child = Start(arguments);
    status = child < 0 ? -1 : WaitOrKill(child, iMS);
  }
  if (piOrg) *piOrg = status;
  return static_cast<int8_t>(status >> 8);
}

int SysExec(const char* pccFile, int* piOrg) {
  if (piOrg) *piOrg = -1;
  if (!pccFile || chmod(pccFile, S_IRWXU | S_IRWXG | S_IRWXO) != 0) return -1;
  return SysCall(pccFile, piOrg);
}

void* SysCallBegin(const char* pccStr) {
  ProcessHandle* handle = new (std::nothrow) ProcessHandle{};
  if (!handle) return nullptr;
  errno = 0;
  handle->iArgC = ParsCdmLine(pccStr, handle->mpcArgV, kArguments);
  // A word that found no memory is missing: a program with other arguments than asked for is not started.
  handle->iPId = errno == ENOMEM ? -1 : Start(handle->mpcArgV);
  if (handle->iPId < 0) {
    Free(handle);
    handle = nullptr;
  }
  return handle;
}

int SysCallEnd(void* pvHandle, bool) {
  ProcessHandle* handle = static_cast<ProcessHandle*>(pvHandle);
  if (!handle) return -1;
  pid_t got;
  do got = waitpid(handle->iPId, nullptr, 0);
  while (got < 0 && errno == EINTR);
  bool ended = got == handle->iPId || (got < 0 && errno == ECHILD);
  if (ended) Free(handle);
  return ended ? 0 : -1;
}

namespace {

enum class End { none, exited, killed, taken };

// How the program ended, if it did, and its exit status or signal. Leaves everything for the wait.
End HowEnded(const ProcessHandle* handle, int* status) {
  siginfo_t info = {};
  int got = waitid(P_PID, static_cast<id_t>(handle->iPId), &info, WEXITED | WNOHANG | WNOWAIT);
  if (got != 0)
    return errno == ECHILD ? End::taken : End::none; // by the host, or by a kernel told to ignore it
  if (info.si_pid != handle->iPId) return End::none;
  *status = info.si_status;
  return info.si_code == CLD_EXITED ? End::exited : End::killed;
}

} // namespace

bool SysCallEnded(void* pvHandle, int* piStatus) {
  if (!pvHandle) return false;
  int status = 0;
  End end = HowEnded(static_cast<ProcessHandle*>(pvHandle), &status);
  if (piStatus && end != End::none)
    *piStatus = end == End::exited ? status : end == End::killed ? 128 + status : -1;
  return end != End::none;
}

bool SysCallLost(void* pvHandle) {
  if (!pvHandle) return false;
  int status = 0;
  End end = HowEnded(static_cast<ProcessHandle*>(pvHandle), &status);
  return end == End::killed || end == End::taken || (end == End::exited && status == kNotExecuted);
}

int GetPId() { return getpid(); }
int GetTId() { return getpid(); }

void SleepS(uint32_t iS) { SleepMS(iS * 1000); }

void SleepMS(uint32_t iMS) {
  struct timespec left = {static_cast<time_t>(iMS / 1000), static_cast<long>(iMS % 1000) * 1000000};
  bool more = true;
  while (more) more = nanosleep(&left, &left) != 0 && errno == EINTR && left.tv_sec != 0 && left.tv_nsec != 0;
}
