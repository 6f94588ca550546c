// The log. One text file is shared by every till and launcher of an installation; each line is written under a
// lock file, so that lines of different processes never tear one another. Beside it stands the exception log, which
// needs neither lock nor logger and is used where the logger itself cannot be trusted.
//
// Levels: 100 flow lines, 150 detail and data dumps, 300 faults of the set-up. A line is written when its level is
// at least the logger's threshold:
//   letter "H" -> threshold 100,  "M" (default, and any other) -> 150,  "L" -> 200
#pragma once
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>

#include <sys/types.h>

#include "ztypes.h"

struct stat;

// The local time of a line in words. It is made anew only when the second has changed: to make it costs as much as all the
// rest of a line's text.
struct LineTime {
  const char* Now(); // valid until the next call

private:
  time_t oMade = -1;
  char mcText[32] = {};
};

struct SLogger {
  FILE* poOut;           // the open log, standard output, or null: logging off
  int iLvl;              // threshold
  bool fStdOut;          // poOut is the host's standard output, which is not ours to close
  tString oFLockN;       // the lock file: the log's name and ".lck"
  unsigned long ulMSize; // bytes beyond which open moves the file to its backup name
  void* pvSelfForCheck;  // this object's own address while it lives
  bool fLockLost;        // the last wait for the lock failed: until one succeeds, lines wait only briefly
  bool fMayBreak;        // poOut may be a pipe, whose reader may go
  tString oFName;        // the log's name
  dev_t oDevice;         // the file that was opened under it
  ino_t oINode;
  time_t oLooked; // when it was last looked whether that is still its name
  LineTime oTime;

  // The configured global logger: reads micromgl.cfg of the installation and opens the log named there (key
  // LOGFILE of section ENV), by default zat_comm.log beside the object. Without a configuration file there is no
  // log: poOut stays null. The threshold comes from the environment (SetGlobLogLevel).
  SLogger();

  // A logger on a file of its own, emptied first when fClear is set, that writes every line (threshold 0).
  SLogger(const char* pcFName, bool fClear);

  ~SLogger();
  SLogger(const SLogger&) = delete;
  SLogger& operator=(const SLogger&) = delete;

  // Opens pcFName for appending (emptied first when fClear is set), moving it to its backup name before when it
  // has outgrown ulMSize. The name "stdout" means the host's standard output. Failure leaves the logger silent.
  // The backup name is the name with its fifth character from the end replaced by "2" (zat_comm.log ->
  // zat_com2.log); a shorter name, a directory, and a name that is its own backup are never moved.
  void open(const char* pcFName, bool fClear);

  // Closes the file; the host's standard output stays open. A closed logger writes nothing.
  void close();

  void SetLevel(int lvl);
  int GetLevel() const;

  // True when pvSelf is a living logger. Anything else is noted in the exception log with its address. An address
  // below the first page or off the alignment is refused without being touched. `id` only tells call sites apart.
  static bool ItIsMe(void* pvSelf, int id = 0);

  // One line: local time, process id, the text formatted as by printf, carriage return and line feed. Waits up to
  // 60 s for a lock that another writer holds, 50 ms for one that cannot be had at all, and then writes without it,
  // which is noted in the exception log: a line is never lost to a lock that nobody frees. After one such wait the next
  // lines wait 50 ms, until a lock succeeds again. A log that was removed, closed, or moved for its size under the logger
  // is opened anew at once, one that somebody moved otherwise within a second. Never throws: without memory the line is
  // lost.
  void Write(int lvl, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
  void WriteV(int lvl, const char* fmt, va_list args) __attribute__((format(printf, 3, 0)));

  // One line of the title and iLen bytes: as they are, up to the first zero byte, or with fBinary as two
  // upper-case hexadecimal digits each. Nothing at all, not even the title, when iLen is not positive.
  void Data(int lvl, const char* msg, const char* pcData, int iLen, bool fBinary = false);

  // True when a line of this level would be written: lets a caller skip making a text that nobody reads.
  bool Wants(int lvl) const;

private:
  void Adopt(FILE* poNew);
  void Identify(const struct stat& info);
  bool IsOurs(const struct stat& info) const;
  bool StillOpen(struct stat* poHeld = nullptr);
  bool MayBeMoved(const struct stat& held);
  void Follow();
  void CheckSize(const char* pcFName);
  void Rotate(const char* pcFName, const char* pcBackup) const;
  void Put(const tString& line) const;
  int TakeLock(tTicks iMsWait) const;
  void FreeLock(int iLock) const;
};

// The level letter travels in the environment variable ZAT_L_LEVEL, so that the programs started by the object
// inherit it. Put overwrites it (the environment is left alone when it holds that letter already); Get returns its
// first character, "M" when it is not set.
void PutGlobLogLevel(char cLevel);
char GetGlobLogLevel();

// Sets the logger's threshold from the letter; ignored for anything that is not a living logger.
void SetGlobLogLevel(SLogger* poLog);

// Appends one line (time, process id, text) to the named file, or to zat_expt.log in the working directory when
// the name is null. No lock, no level. True when the line is in the file.
bool AppendToFLog(const char* pccFName, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// True when the address can be that of an object: beyond the first page and aligned. Reads nothing there.
bool IsObjectAddress(const void* pvSelf);

// The one test behind every ItIsMe: pvSelf can be an object, and what stands at the place of its pvSelfForCheck is
// pvSelf itself.
template<class T> bool KnowsItself(const void* pvSelf) {
  if (!IsObjectAddress(pvSelf)) return false;
  void* const volatile* mark = &static_cast<const T*>(pvSelf)->pvSelfForCheck;
  return *mark == pvSelf;
}

// Clears the mark, first thing in a destructor. Through volatile: to the compiler the object is dead by then, and a
// plain store would be dropped, which would leave the freed memory looking like a living object.
inline void ForgetSelf(void** ppvSelfForCheck) { *const_cast<void* volatile*>(ppvSelfForCheck) = nullptr; }

// The global logger; null before the object is initialised and after it is unloaded.
extern SLogger* poGSLog;

// Write and Data on the global logger, when it passes its check.
void GSLog(int lvl, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void GSData(int lvl, const char* msg, const char* pcData, int iLen, bool fBinary = false);

// True when the global logger would write a line of this level.
bool GSWants(int lvl);

// The one place where errno becomes a line: "[<who>] <what> '<name>': EACCES, Permission denied", level 300.
// errno is the same after the call.
void GSErrno(const char* who, const char* what, const char* name);
