// The one place where the library's own code is compiled.
#define SI_IMPLEMENTATION
#include "simplecfg.h"
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

template class CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>>;

namespace {

constexpr std::string_view kUtf8Mark = SI_UTF8_SIGNATURE;
constexpr size_t kLargest =
    64 << 20; // what is larger is no configuration, and must not eat the host's memory

bool HasQuotes(const char* text) {
  size_t len = text ? std::strlen(text) : 0;
  return len >= 3 && text[0] == '"' && text[len - 1] == '"';
}

// Closes at the end, also when there is no memory for what was read, and keeps errno.
struct Closing {
  int fd;
  ~Closing() {
    int error = errno;
    close(fd);
    errno = error;
  }
};

// Reads a regular file whole. O_NONBLOCK, because a pipe under the name of a configuration file would otherwise
// hold the till for ever.
bool ReadWhole(const char* name, std::string& out) {
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  int fd = name ? TEMP_FAILURE_RETRY(open(name, kFlags)) : -1;
  if (fd < 0) return false;
  const Closing end{fd};
  struct stat info;
  bool good = fstat(fd, &info) == 0;
  if (good && !S_ISREG(info.st_mode)) {
    good = false;
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
  }
  char part[8192];
  for (ssize_t got = 1; good && got > 0;) {
    got = TEMP_FAILURE_RETRY(read(fd, part, sizeof part));
    if (got > 0) out.append(part, static_cast<size_t>(got));
    if (out.size() > kLargest) errno = EFBIG;
    good = got >= 0 && out.size() <= kLargest;
  }
  return good;
}

bool WriteWhole(int fd, std::string_view text) {
  while (!text.empty()) {
    ssize_t done = TEMP_FAILURE_RETRY(write(fd, text.data(), text.size()));
    if (done <= 0) return false;
    text.remove_prefix(static_cast<size_t>(done));
  }
  return true;
}

// The lines at the very beginning that start with a comment character: the comment of the file as a whole.
size_t LeadingComment(std::string_view text) {
  size_t end = 0;
  while (end < text.size() && (text[end] == ';' || text[end] == '#')) {
    size_t line = text.find_first_of("\r\n", end);
    if (line == text.npos) return text.size();
    end = text[line] == '\r' && line + 1 < text.size() && text[line + 1] == '\n' ? line + 2 : line + 1;
  }
  return end;
}

} // namespace

SI_Error SimpleCfg::LoadFile(const char* pccName) {
  std::string text;
  return ReadWhole(pccName, text) ? LoadData(text) : SI_FILE;
}

SI_Error SimpleCfg::LoadData(const char* pccData, size_t lLen) {
  if (!pccData) return SI_OK;
  if (fLoaded) return Merge(pccData, lLen);
  SI_Error rc = tIniDocument::LoadData(pccData, lLen);
  // Of an empty text the library keeps nothing, so the next load is a first one too.
  fLoaded = rc >= 0 && lLen > 0 && std::string_view(pccData, lLen) != kUtf8Mark;
  return rc;
}

// The library copies each value of a later load by a way of its own that cannot be entered from here. So the text
// is read into a document beside this one, and every entry goes through SetValue: in the order of the file, so that a
// later save writes it in that order.
SI_Error SimpleCfg::Merge(const char* pccData, size_t lLen) {
  tIniDocument oNew;
  SI_Error rc = oNew.LoadData(pccData, lLen);

  std::string_view text(pccData, lLen);
  if (text.starts_with(kUtf8Mark)) text.remove_prefix(kUtf8Mark.size());
  // Taken over by the library only when the document has no comment of its own yet.
  if (rc >= 0) rc = tIniDocument::LoadData(text.data(), LeadingComment(text));

  TNamesDepend oSections, oKeys;
  oNew.GetAllSections(oSections);
  oSections.sort(Entry::LoadOrder());
  for (const Entry& oSection : oSections) {
    if (rc >= 0) rc = SetValue(oSection.pItem, nullptr, nullptr, oSection.pComment);
    oNew.GetAllKeys(oSection.pItem, oKeys);
    oKeys.sort(Entry::LoadOrder());
    for (const Entry& oKey : oKeys)
      if (rc >= 0)
        rc = SetValue(oSection.pItem, oKey.pItem, oNew.GetValue(oSection.pItem, oKey.pItem), oKey.pComment);
  }
  return rc < 0 ? rc : SI_OK;
}

void SimpleCfg::Reset() {
  tIniDocument::Reset();
  fLoaded = false;
}

SI_Error SimpleCfg::SetValue(const char* pccSection, const char* pccKey, const char* pccValue,
                             const char* pccComment, bool fForceReplace) {
  if (!pccSection) return SI_FAIL;
  if (!HasQuotes(pccValue))
    return tIniDocument::SetValue(pccSection, pccKey, pccValue, pccComment, fForceReplace);
  std::string inner(pccValue + 1, std::strlen(pccValue) - 2);
  return tIniDocument::SetValue(pccSection, pccKey, inner.c_str(), pccComment, fForceReplace);
}

// The library's own goes through strtol, which is free to take what the host's locale calls a number.
long SimpleCfg::GetLongValue(const char* pccSection, const char* pccKey, long lDefault,
                             bool* pfHasMultiple) const {
  const char* pccValue = GetValue(pccSection, pccKey, nullptr, pfHasMultiple);
  std::string_view text(pccValue ? pccValue : "");
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  bool hex = text.starts_with("0x") || text.starts_with("0X");
  bool plus = text.starts_with('+');
  text.remove_prefix(hex ? 2 : plus ? 1 : 0);
  bool minus = text.starts_with('-');
  if (minus && (hex || plus)) return lDefault;
  long value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (error == std::errc::invalid_argument || end != text.data() + text.size()) return lDefault;
  if (error == std::errc::result_out_of_range) return minus ? LONG_MIN : LONG_MAX;
  return value;
}

SI_Error SimpleCfg::SaveFile(const char* pccName, bool fAddSignature) const {
  std::string text;
  SI_Error rc = Save(text, fAddSignature);
  if (rc < 0) return rc;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  int fd = pccName ? TEMP_FAILURE_RETRY(open(pccName, kFlags, 0666)) : -1;
  if (fd < 0) return SI_FILE;
  bool good = WriteWhole(fd, text);
  return close(fd) == 0 && good ? SI_OK : SI_FILE; // some file systems report a full disk only here
}
