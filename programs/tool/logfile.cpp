#include "logfile.h"

#include <cerrno>
#include <charconv>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zat::tool {

namespace {

// A line's beginning: 9 stands for a digit, F for a hexadecimal one.
constexpr std::string_view kStart = "9999-99-99 99.99.99 {FFFFFFFF}";
constexpr size_t kWhenSize = 19, kProcessAt = 21, kProcessSize = 8;
constexpr std::string_view kTextMark = " : ";
constexpr std::string_view kLineEnd = "\r\n";

bool Fits(char mask, char c) {
  const bool digit = c >= '0' && c <= '9';
  if (mask == '9') return digit;
  if (mask == 'F') return digit || (c >= 'A' && c <= 'F');
  return mask == c;
}

bool StartsLine(std::string_view text) {
  if (text.size() < kStart.size()) return false;
  for (size_t i = 0; i < kStart.size(); ++i)
    if (!Fits(kStart[i], text[i])) return false;
  return true;
}

// Where the next line begins at or behind `from`: at the text's beginning or behind a line feed.
size_t NextLine(std::string_view text, size_t from) {
  while (from < text.size()) {
    if ((from == 0 || text[from - 1] == '\n') && StartsLine(text.substr(from))) return from;
    from = text.find('\n', from);
    from = from == text.npos ? text.size() : from + 1;
  }
  return text.size();
}

tRecord Cut(std::string_view line) {
  tRecord record;
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  record.oText = line;
  if (!StartsLine(line)) return record;
  record.oWhen = line.substr(0, kWhenSize);
  std::from_chars(line.data() + kProcessAt, line.data() + kProcessAt + kProcessSize, record.ulProcess, 16);
  // Behind the process may stand the levels of a logger that writes everything: " L[0:150]".
  const size_t mark = line.find(kTextMark, kStart.size());
  record.oText.remove_prefix(mark == line.npos ? kStart.size() : mark + kTextMark.size());
  return record;
}

bool ReadRest(int fd, tString& bytes) {
  char piece[1 << 16];
  for (;;) {
    const ssize_t count = read(fd, piece, sizeof piece);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    bytes.append(piece, static_cast<size_t>(count));
  }
}

} // namespace

void ForEachRecord(std::string_view oText, const std::function<void(const tRecord&)>& oTake) {
  size_t at = NextLine(oText, 0);
  if (at > 0) oTake({{}, 0, oText.substr(0, at)});
  while (at < oText.size()) {
    const size_t next = NextLine(oText, at + 1);
    oTake(Cut(oText.substr(at, next - at)));
    at = next;
  }
}

std::string_view MessageOf(std::string_view oText) {
  constexpr std::string_view kBlocks[] = {
      "[MicroS] WriteBlock: ", "[MicroS] ReadBlock: ", "[MicroS] WriteBreak: "};
  for (std::string_view title : kBlocks)
    if (oText.starts_with(title)) return oText.substr(title.size());
  constexpr std::string_view kDayLine = "[MicroS] : FinDay PL ", kEnd = ": ";
  const size_t end = oText.starts_with(kDayLine) ? oText.find(kEnd, kDayLine.size()) : oText.npos;
  return end == oText.npos ? std::string_view() : oText.substr(end + kEnd.size());
}

size_t WholeLines(std::string_view oText) {
  if (oText.ends_with(kLineEnd)) return oText.size();
  size_t last = 0;
  for (size_t at = NextLine(oText, 0); at < oText.size(); at = NextLine(oText, at + 1)) last = at;
  return last;
}

tString BackupName(const tString& oName) {
  constexpr size_t kMark = 5; // as the log itself names it
  if (oName.size() < kMark) return "";
  tString backup = oName;
  backup[backup.size() - kMark] = '2';
  return backup == oName ? "" : backup;
}

bool ReadWhole(const tString& oName, tString& oBytes) {
  const int fd = oName == "-" ? STDIN_FILENO : open(oName.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  const bool good = fd >= 0 && ReadRest(fd, oBytes);
  const int code = errno;
  if (fd > STDIN_FILENO) close(fd);
  errno = code;
  return good;
}

// ---- reading ----------------------------------------------------------------------------------------------

LogReader::LogReader(const tString& oName, bool fBackup)
    : oPath(oName), oBackup(BackupName(oName)), fBackupDone(!fBackup || oBackup.empty()) {}

LogReader::~LogReader() {
  if (iFd >= 0) close(iFd);
}

bool LogReader::ReadOpen(tString& oText) {
  struct stat info;
  if (fstat(iFd, &info) == 0 && lseek(iFd, 0, SEEK_CUR) > info.st_size) lseek(iFd, 0, SEEK_SET); // was cut
  return ReadRest(iFd, oText);
}

// True when the log's name stands for another file now, which is open then.
bool LogReader::Reopen() {
  const int fd = open(oPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return false;
  struct stat now, held;
  const bool same = iFd >= 0 && fstat(fd, &now) == 0 && fstat(iFd, &held) == 0 && now.st_ino == held.st_ino &&
                    now.st_dev == held.st_dev;
  if (same) {
    close(fd);
    return false;
  }
  if (iFd >= 0) close(iFd);
  iFd = fd;
  return true;
}

bool LogReader::Read(tString& oText) {
  if (!fBackupDone) {
    fBackupDone = true;
    iFd = open(oBackup.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (iFd < 0 && errno != ENOENT) return false;
  }
  if (iFd < 0 && !Reopen()) return false;
  // What was added before the log was moved is read before the new one is.
  bool good = ReadOpen(oText);
  while (good && Reopen()) good = ReadOpen(oText);
  return good;
}

} // namespace zat::tool
