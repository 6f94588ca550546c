// The system's calls under their own names. A program that carries this file is asked before the C library by everything
// it loads, so the object, as it ships, and the very objects of the updater meet the faults without a build of their
// own; and where a call came from stands in its return address.
#include "plan.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/times.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

namespace faults {

namespace {

// What a till's wait may really take before the rest of it passes at once: until the module is there, and while it waits
// for the till itself.
constexpr int kRealPollMs = 2000, kRealAwaitedMs = 500;

Plan* plan = nullptr; // of a process whose calls count
double quietMs = 0, sleptMs = 0;
bool objectSeen = false;

struct Attached {
  Attached() { plan = Attach(); }
};
Attached attached;

bool Mine() { return plan && plan->iRole == ZAT_FAULT_ROLE; }

// ---- Where a call came from --------------------------------------------------------------------------------

struct Known {
  const void* pvFrom;
  int iPlace;
};
constexpr size_t kKnown = 4096;
Known known[kKnown];

int PlaceOf(uint64_t key) {
  for (size_t i = key * 0x9E3779B97F4A7C15u >> 53, tries = 0; tries < Plan::kPlaces; ++tries, ++i) {
    std::atomic<uint64_t>& slot = plan->mulPlace[i % Plan::kPlaces];
    uint64_t empty = 0;
    if (slot == key || slot.compare_exchange_strong(empty, key) || empty == key)
      return static_cast<int>(i % Plan::kPlaces);
  }
  return 0;
}

uint64_t KeyOf(Name name, const void* from) {
  Dl_info info = {};
  dladdr(from, &info);
  const char* file = info.dli_fname ? info.dli_fname : "";
  static const void* const own = [] {
    Dl_info mine = {};
    dladdr(reinterpret_cast<const void*>(&Attach), &mine);
    return mine.dli_fbase;
  }();
  const Image image = info.dli_fbase == own ? eProgram : strstr(file, "libzat_ms") ? eObject : eLibrary;
  const uint64_t offset =
      static_cast<uint64_t>(static_cast<const char*>(from) - static_cast<const char*>(info.dli_fbase));
  return uint64_t{ZAT_FAULT_ROLE} << kRoleShift | uint64_t{image} << kImageShift |
         uint64_t{name} << kNameShift | offset;
}

int PlaceOfCall(Name name, const void* from) {
  for (size_t i = reinterpret_cast<uintptr_t>(from) >> 1, tries = 0; tries < kKnown; ++tries, ++i) {
    Known& at = known[i % kKnown];
    if (!at.pvFrom) at = {from, PlaceOf(KeyOf(name, from))};
    if (at.pvFrom == from) return at.iPlace;
  }
  return 0;
}

// ---- What becomes of a call --------------------------------------------------------------------------------

// Counts one call; the errno that it is to fail with, or what else is to happen to it, or 0.
int Count(int place) {
  const uint64_t key = plan->mulPlace[place];
  const long call = ++plan->lCalls;
  if (call < Plan::kTrace) plan->muTrace[call] = static_cast<uint16_t>(place);
  const bool there = plan->ulAt == 0 || plan->ulAt == key;
  if (there && plan->lAt > 0 && ++plan->lThere == plan->lAt) {
    plan->lLeft = plan->lSpan.load();
    plan->ulHit = key;
  }
  if (plan->lLeft <= 0) return 0;
  --plan->lLeft;
  if (plan->iError == kKill) raise(SIGKILL);
  return plan->iError;
}

int Visit(Name name, const void* from, bool refusable) {
  if (!Mine()) return 0;
  const int kept = errno;
  const int place = PlaceOfCall(name, from);
  errno = kept;
  if (ImageIn(plan->mulPlace[place]) != eLibrary) objectSeen = true;
  return refusable && plan->iWhat == eCalls ? Count(place) : 0;
}

bool Refused(Name name, const void* from, int* error) {
  *error = Visit(name, from, true);
  if (*error > 0) errno = *error;
  return *error > 0;
}

template<class T> T Next(const char* name) { return reinterpret_cast<T>(dlsym(RTLD_NEXT, name)); }

// ---- A clock that is put forward where nothing is to come ----------------------------------------------------

bool Jumps() { return ZAT_FAULT_ROLE != eUpdater && plan && plan->fJump; }

int PollQuick(pollfd* fds, nfds_t n, int ms) {
  static const auto real = Next<int (*)(pollfd*, nfds_t, int)>("poll");
  constexpr int kSlice = 5;
  int left = ms;
  while (Jumps() && left > 0 && !plan->fSilent && quietMs < (plan->fAwaits ? kRealAwaitedMs : kRealPollMs)) {
    const int slice = std::min(left, kSlice);
    const int got = real(fds, n, slice);
    quietMs = got ? 0 : quietMs + slice;
    if (got) return got;
    left -= slice;
  }
  const int got = real(fds, n, Jumps() && ms > 0 ? 0 : left);
  if (got == 0 && Jumps() && left > 0) plan->iSkewUs += left * 1000;
  return got;
}

int SleepQuick(const timespec* wanted, timespec* left) {
  static const auto real = Next<int (*)(const timespec*, timespec*)>("nanosleep");
  const int64_t us = wanted->tv_sec * 1000000 + wanted->tv_nsec / 1000;
  sleptMs += static_cast<double>(us) / 1000;
  if (!Jumps() || sleptMs <= plan->iRealSleepMs) return real(wanted, left);
  plan->iSkewUs += us;
  return 0;
}

clock_t TimesAhead(tms* to) {
  static const auto real = Next<clock_t (*)(tms*)>("times");
  const clock_t ticks = real(to);
  return plan ? ticks + plan->iSkewUs / (1000000 / ::sysconf(_SC_CLK_TCK)) : ticks;
}

int ClockAhead(clockid_t clock, timespec* to) {
  static const auto real = Next<int (*)(clockid_t, timespec*)>("clock_gettime");
  const int done = real(clock, to);
  if (!plan) return done;
  const int64_t us = to->tv_nsec / 1000 + plan->iSkewUs;
  to->tv_sec += us / 1000000 + (clock == CLOCK_REALTIME ? plan->iWallSkewS.load() : 0);
  to->tv_nsec = us % 1000000 * 1000 + to->tv_nsec % 1000;
  return done;
}

time_t TimeAhead(time_t* to) {
  timespec now = {};
  ClockAhead(CLOCK_REALTIME, &now);
  if (to) *to = now.tv_sec;
  return now.tv_sec;
}

dirent* ReadUntyped(DIR* dir) {
  static const auto real = Next<dirent* (*)(DIR*)>("readdir");
  dirent* entry = real(dir);
  if (entry && plan && plan->fNoTypes) entry->d_type = DT_UNKNOWN;
  return entry;
}

// The function behind a name: the C library's, or what stands for it in a till whose waits pass at once.
template<Name kName, class T> T Way(const char* name) {
  if constexpr (kName == eName_poll)
    return PollQuick;
  else if constexpr (kName == eName_nanosleep)
    return SleepQuick;
  else if constexpr (kName == eName_times)
    return TimesAhead;
  else if constexpr (kName == eName_clock_gettime)
    return ClockAhead;
  else if constexpr (kName == eName_time)
    return TimeAhead;
  else if constexpr (kName == eName_readdir)
    return ReadUntyped;
  else {
    static const T real = Next<T>(name);
    return real;
  }
}

} // namespace

void BeginCall() { quietMs = sleptMs = 0; }

double NowMs() {
  timespec now = {};
  ClockAhead(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

void ForgetImages() {
  memset(static_cast<void*>(known), 0, sizeof known);
  objectSeen = false;
}

} // namespace faults

// ---- The calls -------------------------------------------------------------------------------------------------
// Under names of their own, with the system's as the symbol: the system's declarations would not allow a second one.

using namespace faults;

#pragma GCC visibility push(default)

#define WAY(result, name, parameters) Way<eName_##name, result(*) parameters>(#name)
#define HERE __builtin_return_address(0)
#define FAILS(result, name, parameters, arguments, failed)                                                   \
  extern "C" result Call_##name parameters __asm__(#name);                                                   \
  result Call_##name parameters {                                                                            \
    int error;                                                                                               \
    if (Refused(eName_##name, HERE, &error)) return failed;                                                  \
    return WAY(result, name, parameters) arguments;                                                          \
  }
#define MOVES(result, name, parameters, arguments, failed, part)                                             \
  extern "C" result Call_##name parameters __asm__(#name);                                                   \
  result Call_##name parameters {                                                                            \
    int error;                                                                                               \
    if (Refused(eName_##name, HERE, &error)) return failed;                                                  \
    if (error == kShort) return WAY(result, name, parameters) part;                                          \
    return WAY(result, name, parameters) arguments;                                                          \
  }
#define CLOSES(result, name, parameters, arguments, failed)                                                  \
  extern "C" result Call_##name parameters __asm__(#name);                                                   \
  result Call_##name parameters {                                                                            \
    const int error = Visit(eName_##name, HERE, true);                                                       \
    const result done = WAY(result, name, parameters) arguments;                                             \
    if (error <= 0) return done;                                                                             \
    errno = error;                                                                                           \
    return failed;                                                                                           \
  }
#define NEVER(result, name, parameters, arguments)                                                           \
  extern "C" result Call_##name parameters __asm__(#name);                                                   \
  result Call_##name parameters {                                                                            \
    Visit(eName_##name, HERE, false);                                                                        \
    return WAY(result, name, parameters) arguments;                                                          \
  }
#define OTHER(name)
#include "calls.inc"

extern "C" int Call_open(const char* name, int flags, ...) __asm__("open");
int Call_open(const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  int error;
  if (Refused(eName_open, HERE, &error)) return -1;
  return WAY(int, open, (const char*, int, ...))(name, flags, mode);
}

extern "C" int Call_openat(int dir, const char* name, int flags, ...) __asm__("openat");
int Call_openat(int dir, const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  int error;
  if (Refused(eName_openat, HERE, &error)) return -1;
  return WAY(int, openat, (int, const char*, int, ...))(dir, name, flags, mode);
}

extern "C" int Call_fcntl(int fd, int command, ...) __asm__("fcntl");
int Call_fcntl(int fd, int command, ...) {
  va_list rest;
  va_start(rest, command);
  const long value = va_arg(rest, long); // whatever stands there when there is none
  va_end(rest);
  int error;
  if (Refused(eName_fcntl, HERE, &error)) return -1;
  return WAY(int, fcntl, (int, int, ...))(fd, command, value);
}

extern "C" int Call_printf(const char* format, ...) __asm__("printf");
int Call_printf(const char* format, ...) {
  int error;
  if (Refused(eName_printf, HERE, &error)) return -1;
  va_list rest;
  va_start(rest, format);
  const int done = vprintf(format, rest);
  va_end(rest);
  return done;
}

extern "C" int Call_dprintf(int fd, const char* format, ...) __asm__("dprintf");
int Call_dprintf(int fd, const char* format, ...) {
  int error;
  if (Refused(eName_dprintf, HERE, &error)) return -1;
  va_list rest;
  va_start(rest, format);
  const int done = vdprintf(fd, format, rest);
  va_end(rest);
  return done;
}

// A function that calls vfork cannot return: the child would leave its frame before the parent does. A fork costs the
// page tables of a small program here, and is no different to what comes after it.
extern "C" pid_t Call_vfork() __asm__("vfork");
pid_t Call_vfork() {
  int error;
  if (Refused(eName_vfork, HERE, &error)) return -1;
  return Way<eName_fork, pid_t (*)()>("fork")();
}

// ---- Memory ----------------------------------------------------------------------------------------------------
// Counted from the first call to the system on, the object's or the updater's own: before that it is the loader that
// works.

namespace {

bool NoMemory() {
  if (!Mine() || plan->iWhat != eMemory || !objectSeen) return false;
  if (Count(0) == 0) return false;
  errno = ENOMEM;
  return true;
}

} // namespace

#ifdef __SANITIZE_ADDRESS__ // has an allocator of its own, which a C name would get past
void* operator new(size_t size) {
  void* memory = NoMemory() ? nullptr : malloc(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return NoMemory() ? nullptr : malloc(size);
}
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t) noexcept { free(memory); }
#else
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);

extern "C" void* Call_malloc(size_t size) __asm__("malloc");
void* Call_malloc(size_t size) { return NoMemory() ? nullptr : __libc_malloc(size); }

extern "C" void* Call_calloc(size_t n, size_t size) __asm__("calloc");
void* Call_calloc(size_t n, size_t size) { return NoMemory() ? nullptr : __libc_calloc(n, size); }

extern "C" void* Call_realloc(void* was, size_t size) __asm__("realloc");
void* Call_realloc(void* was, size_t size) { return NoMemory() ? nullptr : __libc_realloc(was, size); }
#endif

#pragma GCC visibility pop
