#include "SLogger.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "initorder.h"
#include "sigpipe.h"
#include "simplecfg.h"
#include "util.h"
#include "utilf.h"

namespace {

constexpr unsigned long kMiB = 1024 * 1024;
constexpr long kDefaultMegabytes = 15;
constexpr long kMegabyteModulus = 11; // see ConfiguredLimit
constexpr tTicks kOpenLockMs = 1000;
constexpr tTicks kWriteLockMs = 60000;
constexpr tTicks kNoLockMs = 50;  // when there is nobody to wait for, or was not the last time
constexpr size_t kBackupMark = 5; // the backup name differs in its fifth character from the end
constexpr int kRawPrefixLevel = 50;
constexpr uintptr_t kFirstPage = 4096;
constexpr int kFirstFreeDescriptor = 3; // 0 to 2 belong to the host, even when it has closed them

struct LevelRow {
  char cLetter;
  int iThreshold;
};
constexpr LevelRow kLevels[] = {{'H', 100}, {'L', 200}};
constexpr char kDefaultLetter = 'M';
constexpr int kDefaultThreshold = 150;
constexpr char kLevelVariable[] = "ZAT_L_LEVEL";

// printf at the end of a string: a stack buffer holds almost every line, longer ones are formatted again in place.
void AppendFormatted(tString& line, const char* fmt, va_list args) __attribute__((format(printf, 2, 0)));
void AppendFormatted(tString& line, const char* fmt, va_list args) {
  char quick[1024];
  va_list again;
  va_copy(again, args);
  int length = vsnprintf(quick, sizeof quick, fmt, args);
  if (length > 0 && static_cast<size_t>(length) < sizeof quick) {
    line.append(quick, static_cast<size_t>(length));
  } else if (length > 0) {
    size_t old = line.size();
    line.resize(old + static_cast<size_t>(length) + 1);
    vsnprintf(line.data() + old, static_cast<size_t>(length) + 1, fmt, again);
    line.pop_back();
  }
  va_end(again);
}

void AppendHex(tString& text, const char* data, int length) {
  for (int i = 0; i < length; ++i) {
    char digits[3];
    if (snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(data[i])) != 2) {
      text += "!(^_^)!"; // a dump that goes wrong says so where it stops
      break;
    }
    text += digits;
  }
}

// "2026-11-21 14.03.59 {0000ABCD}", with which every line of both logs begins.
tString LineStart(LineTime& time) {
  constexpr size_t kUsualLine = 128;
  constexpr int kHexBits = 32;
  tString line;
  line.reserve(kUsualLine);
  line.append(time.Now()).append(" {");
  unsigned process = static_cast<unsigned>(GetPId());
  for (int shift = kHexBits - 4; shift >= 0; shift -= 4) line += "0123456789ABCDEF"[process >> shift & 0xF];
  return line += '}';
}

// Opens for appending above the standard descriptors: a host that closed its standard output must not find our
// log in its place. Unbuffered: a line goes out in one write, whole even where no lock guards it. Without waiting, which
// changes nothing for a file: a FIFO of that name must not keep the till for want of a reader.
FILE* OpenAppending(const char* name, bool clear) {
  int fd = ::open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (clear ? O_TRUNC : 0), 0666);
  if (fd >= 0 && fd < kFirstFreeDescriptor) {
    int above = fcntl(fd, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
    ::close(fd);
    fd = above;
  }
  FILE* stream = fd < 0 ? nullptr : fdopen(fd, "a");
  if (stream)
    setvbuf(stream, nullptr, _IONBF, 0);
  else if (fd >= 0)
    ::close(fd);
  return stream;
}

// The limit in bytes from the configured megabytes. Only the remainder of a division by 11 counts: 10 is 10 MiB,
// 11 is 0, the default of 15 is 4 MiB. Installations rely on it: whatever is configured, a log stays below 11 MiB.
unsigned long ConfiguredLimit(long megabytes) {
  return megabytes < 0 ? 0 : static_cast<unsigned long>(megabytes % kMegabyteModulus) * kMiB;
}

} // namespace

const char* LineTime::Now() {
  time_t now = time(nullptr);
  if (now == oMade) return mcText;
  struct tm local = {};
  localtime_r(&now, &local);
  strftime(mcText, sizeof mcText, "%Y-%m-%d %H.%M.%S", &local);
  oMade = now;
  return mcText;
}

bool IsObjectAddress(const void* pvSelf) {
  uintptr_t address = reinterpret_cast<uintptr_t>(pvSelf);
  return address >= kFirstPage && address % alignof(void*) == 0;
}

SLogger::SLogger()
    : poOut(nullptr), iLvl(0), fStdOut(false), ulMSize(kDefaultMegabytes * kMiB), pvSelfForCheck(this),
      fLockLost(false), fMayBreak(false), oDevice(0), oINode(0), oLooked(-1) {
  tString path;
  DetectLocDir("[GSLog]", path);
  tString home = path;
  ConvertLocToHome(home);
  SimpleCfg cfg;
  if (cfg.LoadFile((home + "micromgl" + ".cfg").c_str()) >= 0) {
    const char* name = cfg.GetValue("ENV", "LOGFILE", "");
    path = *name ? tString(name) : path + "/" + "zat_comm.log";
    ulMSize = ConfiguredLimit(cfg.GetLongValue("ENV", "LOGMEGSIZE", kDefaultMegabytes));
  } // otherwise the path stays a directory, which does not open: no log without a configuration
  open(path.c_str(), false);
  SetGlobLogLevel(this);
}

SLogger::SLogger(const char* pcFName, bool fClear)
    : poOut(nullptr), iLvl(0), fStdOut(false), ulMSize(kDefaultMegabytes * kMiB), pvSelfForCheck(this),
      fLockLost(false), fMayBreak(false), oDevice(0), oINode(0), oLooked(-1) {
  open(pcFName, fClear);
}

SLogger::~SLogger() {
  ForgetSelf(&pvSelfForCheck);
  close();
}

void SLogger::open(const char* pcFName, bool fClear) {
  close();
  fStdOut = strcmp(pcFName, "stdout") == 0;
  oFName = pcFName;
  oFLockN = oFName + ".lck";
  if (fStdOut) {
    fMayBreak = true;
    poOut = stdout;
  } else {
    CheckSize(pcFName);
    Adopt(OpenAppending(pcFName, fClear));
  }
}

void SLogger::Adopt(FILE* poNew) {
  struct stat info = {};
  if (poNew && fstat(fileno(poNew), &info) != 0) info = {};
  Identify(info);
  poOut = poNew;
}

void SLogger::Identify(const struct stat& info) {
  oDevice = info.st_dev;
  oINode = info.st_ino;
  fMayBreak = !S_ISREG(info.st_mode);
}

bool SLogger::IsOurs(const struct stat& info) const {
  return info.st_dev == oDevice && info.st_ino == oINode;
}

// False when the host has closed the log's descriptor, as daemons do with all that they do not know. The number may be
// another file's by now, which is neither written nor closed. Where the system cannot tell, it is open: taken for
// closed, the descriptor would never be given back.
bool SLogger::StillOpen(struct stat* poHeld) {
  struct stat info = {};
  const bool told = fstat(fileno(poOut), &info) == 0;
  const bool unknown = !told && errno != EBADF;
  if (told && oINode == 0) Identify(info); // it could not be told when the file was opened
  if (poHeld) *poHeld = info;
  return told ? IsOurs(info) : unknown;
}

// True when the open log may have another name by now. A till that starts moves it only beyond the limit, and a second
// move removes it, in which this till's lines would go on; for what a person moves, a look each second is enough.
bool SLogger::MayBeMoved(const struct stat& held) {
  time_t now = time(nullptr);
  bool due = now != oLooked;
  oLooked = now;
  return due || held.st_nlink == 0 || static_cast<unsigned long>(held.st_size) > ulMSize;
}

// Opens the log again when the host has closed it, or when it has another name by now. A name that is not absolute led
// somewhere else if the host has changed its directory, so that log is not looked for.
void SLogger::Follow() {
  if (fStdOut) return;
  struct stat info = {};
  bool open = StillOpen(&info), absolute = oFName[0] == '/';
  if (open && (!absolute || !MayBeMoved(info))) return;
  if (open && stat(oFName.c_str(), &info) == 0 && IsOurs(info)) return;
  FILE* next = absolute ? OpenAppending(oFName.c_str(), false) : nullptr;
  if (open && !next) return;
  if (open) fclose(poOut);
  Adopt(next);
}

void SLogger::CheckSize(const char* pcFName) {
  if (strlen(pcFName) < kBackupMark || fdpresent(pcFName) == 0) return; // nothing that has a backup name
  tString backup = pcFName;
  backup[backup.size() - kBackupMark] = '2';
  int lock = TakeLock(kOpenLockMs);
  if (lock >= 0) {
    Rotate(pcFName, backup.c_str());
    FreeLock(lock);
  } else {
    AppendToFLog(nullptr, "Can`t lock '%s' - skip log checksize", oFLockN.c_str());
  }
}

void SLogger::Rotate(const char* pcFName, const char* pcBackup) const {
  if (strcmp(pcBackup, pcFName) == 0 || fgetsize(pcFName) <= ulMSize) return;
  fremove(pcBackup);
  // A failed rename leaves the large file where it is: a log that grows is better than one that is lost.
  if (frename(pcFName, pcBackup) == 0) fremove(pcFName);
}

// The descriptor that holds the log's lock, or -1 when it was not to be had in time.
int SLogger::TakeLock(tTicks iMsWait) const {
  errno = 0;
  int lock = zat::TakeBriefLock(oFLockN.c_str());
  if (lock >= 0) return lock; // so nearly always, and then the clock is not asked
  tTicks start = TicksGet();
  zat::Pauses pauses;
  while (lock < 0) {
    // Only a lock that somebody holds is worth the whole wait. One that cannot be had at all (a full disk, a directory
    // without the right to write, no descriptor left) would keep the till waiting for nobody.
    bool held = errno == EWOULDBLOCK;
    if (TicksEnd(start, held ? iMsWait : std::min(iMsWait, kNoLockMs))) break;
    pauses.Next();
    errno = 0;
    lock = zat::TakeBriefLock(oFLockN.c_str());
  }
  return lock;
}

// Freed even when it was not ours: a lock file that outlived its writer goes away with the first line that could not
// wait for it, so that the lines after it do not wait again.
void SLogger::FreeLock(int iLock) const {
  if (iLock >= 0)
    zat::FreeBriefLock(oFLockN.c_str(), iLock);
  else
    remflock(oFLockN.c_str());
}

void SLogger::close() {
  if (poOut && !fStdOut && StillOpen()) fclose(poOut);
  poOut = nullptr;
}

void SLogger::SetLevel(int lvl) { iLvl = lvl; }
int SLogger::GetLevel() const { return iLvl; }
bool SLogger::Wants(int lvl) const { return poOut && lvl >= iLvl; }

bool SLogger::ItIsMe(void* pvSelf, int) {
  bool mine = KnowsItself<SLogger>(pvSelf);
  if (!mine) AppendToFLog(nullptr, "Addr %p - is not (SLogger*)", pvSelf);
  return mine;
}

void SLogger::Write(int lvl, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  WriteV(lvl, fmt, args);
  va_end(args);
}

void SLogger::WriteV(int lvl, const char* fmt, va_list args) {
  if (!Wants(lvl)) return;
  int lock = TakeLock(fLockLost ? kNoLockMs : kWriteLockMs);
  fLockLost = lock < 0;
  if (fLockLost) AppendToFLog(nullptr, "Can`t lock '%s' - skip block log", oFLockN.c_str());
  Follow();
  try {
    tString line = LineStart(oTime);
    if (iLvl <= kRawPrefixLevel) line += " L[" + std::to_string(iLvl) + ":" + std::to_string(lvl) + "]";
    line += " : ";
    AppendFormatted(line, fmt, args);
    line += "\r\n";
    Put(line);
  } catch (...) { // no memory loses it too, but neither the lock below nor the payment that the line tells of
  }
  FreeLock(lock);
}

// A full disk loses the line, and so does a pipe without a reader: there is nowhere left to say so.
void SLogger::Put(const tString& line) const {
  if (!poOut) return;
  zat::SigPipeShield shield(fMayBreak);
  errno = 0;
  fwrite(line.data(), 1, line.size(), poOut);
  fflush(poOut);
  shield.fRaised = errno == EPIPE;
}

void SLogger::Data(int lvl, const char* msg, const char* pcData, int iLen, bool fBinary) {
  if (iLen <= 0 || !Wants(lvl)) return;
  try {
    tString text = msg;
    text.reserve(text.size() +
                 static_cast<size_t>(iLen) * (fBinary ? 2 : 1)); // no copies left behind by growing
    if (fBinary)
      AppendHex(text, pcData, iLen);
    else
      text.append(pcData, static_cast<size_t>(iLen));
    Write(lvl, "%s", text.c_str());
  } catch (...) { // no memory: the line is lost
  }
}

void PutGlobLogLevel(char cLevel) {
  const char text[2] = {cLevel, '\0'};
  const char* now = getenv(kLevelVariable);
  // setenv is not safe beside a reader in another thread of the host, so it is called only to change something.
  if (!now || strcmp(now, text) != 0) setenv(kLevelVariable, text, 1);
}

char GetGlobLogLevel() {
  const char* now = getenv(kLevelVariable);
  return now ? *now : kDefaultLetter;
}

void SetGlobLogLevel(SLogger* poLog) {
  if (!SLogger::ItIsMe(poLog)) return;
  char letter = GetGlobLogLevel();
  int threshold = kDefaultThreshold;
  for (const LevelRow& row : kLevels)
    if (row.cLetter == letter) threshold = row.iThreshold;
  poLog->SetLevel(threshold);
}

bool AppendToFLog(const char* pccFName, const char* fmt, ...) {
  FILE* stream = OpenAppending(pccFName ? pccFName : "zat_expt.log", false);
  if (!stream) return false;
  bool written = false;
  va_list args;
  va_start(args, fmt);
  try {
    LineTime time;
    tString line = LineStart(time) + " : ";
    AppendFormatted(line, fmt, args);
    line += "\r\n";
    written = fwrite(line.data(), 1, line.size(), stream) == line.size();
  } catch (...) { written = false; }
  va_end(args);
  return fclose(stream) == 0 && written;
}

void GSLog(int lvl, const char* fmt, ...) {
  if (!GSWants(lvl)) return;
  va_list args;
  va_start(args, fmt);
  poGSLog->WriteV(lvl, fmt, args);
  va_end(args);
}

void GSData(int lvl, const char* msg, const char* pcData, int iLen, bool fBinary) {
  if (SLogger::ItIsMe(poGSLog)) poGSLog->Data(lvl, msg, pcData, iLen, fBinary);
}

bool GSWants(int lvl) { return SLogger::ItIsMe(poGSLog) && poGSLog->Wants(lvl); }

void GSErrno(const char* who, const char* what, const char* name) {
  int code = errno;
  const char* constant = strerrorname_np(code);
  const char* text = strerrordesc_np(code); // never translated: the log reads the same in every shop
  GSLog(300, "[%s] %s '%s': %s, %s", who, what, name, constant ? constant : "?", text ? text : "?");
  errno = code;
}

SLogger* poGSLog = nullptr;

namespace {

// Makes the global logger when the object is loaded and ends it when it is unloaded. Whatever goes wrong there leaves
// the object silent rather than stopping the host's start.
struct AutoInit {
  AutoInit() {
    try {
      poGSLog = new SLogger;
    } catch (...) { poGSLog = nullptr; }
  }
  ~AutoInit() {
    if (SLogger::ItIsMe(poGSLog)) delete poGSLog;
    poGSLog = nullptr;
  }
};

ZAT_INIT_LOGGER AutoInit libautoinit;

} // namespace
