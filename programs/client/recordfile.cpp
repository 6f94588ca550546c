#include "recordfile.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "MiscFunc.h"
#include "utilf.h"

namespace zat::client {
namespace {

// Layout of a record: length of all (2), data, checksum of the data (2), length again (2); of the trailer: number of
// records (2), id (2), checksum of all records (2).
constexpr size_t kWord = 2;
constexpr size_t kAround = 3 * kWord; // what a record has besides its data
constexpr size_t kTrailer = 3 * kWord;
constexpr off_t kYoung = 64; // a file below this size has hardly more than its first record

size_t Word(const tString& bytes, size_t at) {
  return static_cast<size_t>(static_cast<unsigned char>(bytes[at]) << 8 |
                             static_cast<unsigned char>(bytes[at + 1]));
}

// The length of the record that stands here; 0 when none does. Three words have to fit, so that what looks like a
// record in the middle of a damaged one is one.
size_t RecordAt(const tString& bytes, size_t at) {
  if (at + kAround > bytes.size()) return 0;
  const size_t length = Word(bytes, at), data = length - kAround;
  if (length <= kAround || at + length > bytes.size() || Word(bytes, at + length - kWord) != length) return 0;
  const uint16_t sum = flatcrc16(bytes.data() + at + kWord, static_cast<uint16_t>(data), 0);
  return Word(bytes, at + kWord + data) == sum ? length : 0;
}

bool Load(const tString& name, tString& bytes, bool& exists) {
  const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  exists = fd >= 0;
  if (fd < 0) return errno == ENOENT;
  if (struct stat info; fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    close(fd);
    errno = EINVAL;
    return false;
  }
  char piece[65536];
  ssize_t got;
  while ((got = read(fd, piece, sizeof piece)) != 0 && (got > 0 || errno == EINTR))
    if (got > 0) bytes.append(piece, static_cast<size_t>(got));
  const int fault = errno;
  close(fd);
  errno = fault;
  return got == 0;
}

// Brings a file, or the names in a directory, to the disk.
bool Sync(const tString& name, int flags) {
  const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC | flags);
  if (fd < 0) return false;
  const int result = fsync(fd), fault = errno;
  close(fd);
  errno = fault;
  return result == 0;
}

tString DirectoryOf(const tString& name) {
  const size_t length = fsplitp(name.c_str());
  return length ? name.substr(0, length) : ".";
}

// Some file systems have nothing to do for a directory and say so.
bool SyncDirectory(const tString& name) {
  return Sync(DirectoryOf(name), O_DIRECTORY) || errno == EINVAL || errno == ENOTSUP;
}

} // namespace

bool RecordFile::Read(Contents& contents) const {
  contents = {};
  tString bytes;
  if (!Load(oName, bytes, contents.fExists)) return false;
  size_t at = 0, end = 0, bad = 0; // end: of the last record
  while (at < bytes.size()) {
    const size_t length = RecordAt(bytes, at);
    if (!length) {
      ++at;
      ++bad;
      continue;
    }
    contents.oRecords.push_back(bytes.substr(at + kWord, length - kAround));
    contents.lInside += bad;
    bad = 0;
    end = at += length;
  }
  const bool trailer = bytes.size() == end + kTrailer && Word(bytes, end) == contents.oRecords.size();
  contents.lBehind = trailer ? 0 : bad;
  return true;
}

bool RecordFile::IsSound() const {
  struct stat info;
  if (stat(oName.c_str(), &info) != 0) return errno == ENOENT;
  return S_ISREG(info.st_mode) && logCheck(oName.c_str(), uId, flatcrc16) != 0;
}

bool RecordFile::Append(const tString& record) const {
  struct stat info;
  // Whoever made the file may have been killed before its name was on the disk.
  const bool fresh = stat(oName.c_str(), &info) != 0 || info.st_size < kYoung;
  errno = 0;
  if (!logAppend(oName.c_str(), record.data(), record.size(), uId, flatcrc16, true)) {
    if (errno == 0) errno = ENOSPC; // a write that came out too short
    return false;
  }
  return Sync(oName, 0) && (!fresh || SyncDirectory(oName));
}

// Lets a finished file take the place of another. Those who could write the journal can write it afterwards, whoever
// happened to be at work when it was renewed.
bool RecordFile::Settle(const tString& finished, const tString& name) const {
  if (struct stat old; stat(oName.c_str(), &old) == 0) {
    if (chown(finished.c_str(), old.st_uid, old.st_gid) != 0) errno = 0; // only root may
    chmod(finished.c_str(), old.st_mode & 07777);
  }
  const bool done = Sync(finished, 0) && rename(finished.c_str(), name.c_str()) == 0 && SyncDirectory(name);
  const int fault = errno;
  if (!done) unlink(finished.c_str());
  errno = fault;
  return done;
}

bool RecordFile::Replace(const Records& records) const {
  const RecordFile fresh(oName + ".new", uId);
  if (unlink(fresh.oName.c_str()) != 0 && errno != ENOENT) return false;
  for (const tString& record : records) {
    errno = 0;
    if (logAppend(fresh.oName.c_str(), record.data(), record.size(), uId, flatcrc16, true)) continue;
    const int fault = errno ? errno : ENOSPC;
    unlink(fresh.oName.c_str());
    errno = fault;
    return false;
  }
  if (records.empty()) { // an empty log is an empty file
    const int fd = open(fresh.oName.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    close(fd);
  }
  return Settle(fresh.oName, oName);
}

bool RecordFile::CopyTo(const tString& name) const {
  const tString fresh = name + ".new";
  errno = 0;
  if (fcopy(oName.c_str(), fresh.c_str()) == 0) return Settle(fresh, name);
  const int fault = errno ? errno : ENOSPC;
  unlink(fresh.c_str());
  errno = fault;
  return false;
}

} // namespace zat::client
