#include "archive.h"
#include "names.h"
#include "packing.h"
#include "tree.h"
#include "utilf.h"
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <set>
#include <sys/file.h>
#include <unistd.h>

namespace zat {
namespace {

constexpr size_t kChunk = 1 << 16;
constexpr int64_t kMostBytes = int64_t{2} << 30;
constexpr int kWaitMs = 5000; // for another unpacking in the same directory

typedef std::unique_ptr<archive, int (*)(archive*)> tArchive;
typedef std::unique_ptr<archive_entry, void (*)(archive_entry*)> tEntry;

// One unpacking: writes entries below one directory, never through a symbolic link. It works in the directory
// itself ("."), so that it cannot touch another one that a launcher has put under the same name meanwhile.
class Unpacking {
public:
  explicit Unpacking(const std::string& dir) : top(dir) {}

  // Has the directory to itself and empty. The lock on it keeps out a second updater: one whose launcher was
  // killed goes on unpacking while the next launcher already starts another.
  bool Begin();
  // Writes one entry; the reader stands at its bytes.
  bool Put(archive* poReader, archive_entry* poEntry);
  // Has everything on the disk. Fails when somebody has cleared the directory meanwhile.
  bool Finish();
  // The mark goes last: a directory without it that is not empty is nobody's to clear.
  void Undo() { EmptyTree(".", kUnpacking); }

private:
  bool Directory(const std::string& path, mode_t mode);
  bool File(const std::string& path, archive* poReader, archive_entry* poEntry);
  bool Symlink(const std::string& path, const std::string& target);
  bool Hardlink(const std::string& path, const std::string& target);
  tFd Parent(const std::string& path);

  const std::string top;
  tFd lock; // the directory itself
  int64_t total = 0;
  std::set<std::string> names; // of everything but directories
  std::set<std::string> files; // of the regular files among them
};

const char* Leaf(const std::string& path) { return path.c_str() + path.rfind('/') + 1; }

bool Unpacking::Begin() {
  if (mkdir(top.c_str(), 0777) && errno != EEXIST) return Complain("%s: %s", top.c_str(), strerror(errno));
  lock = tFd(open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock) return Complain("%s: %s", top.c_str(), strerror(errno));
  int waited = 0;
  for (; flock(lock.fd, LOCK_EX | LOCK_NB); ++waited) {
    if (waited >= kWaitMs) return Complain("%s: another updater is unpacking there", top.c_str());
    YieldMS(1);
  }
  struct stat held, named;
  if (fstat(lock.fd, &held) || stat(top.c_str(), &named) || held.st_ino != named.st_ino || fchdir(lock.fd))
    return Complain("%s: taken away", top.c_str());
  std::vector<tTreeEntry> left;
  if (!ListTree(".", left)) return false;
  // Only what an unpacking left may be cleared: the name could be a mistyped one with somebody's files in it.
  const bool ours = waited || faccessat(lock.fd, kUnpacking, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
  if (!left.empty() && !(ours && EmptyTree(".", kUnpacking))) return Complain("%s: not empty", top.c_str());
  return bool(tFd(openat(lock.fd, kUnpacking, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)));
}

// The directory that an entry goes into, made on the way down. O_NOFOLLOW at every step: a link among the
// parents could lead anywhere.
tFd Unpacking::Parent(const std::string& path) {
  tFd at(fcntl(lock.fd, F_DUPFD_CLOEXEC, 3));
  for (size_t begin = 0, end; (end = path.find('/', begin)) != std::string::npos; begin = end + 1) {
    const std::string name = path.substr(begin, end - begin);
    mkdirat(at.fd, name.c_str(), 0755); // one that is there already is opened just as well
    at = tFd(openat(at.fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!at) break;
  }
  return at;
}

bool Unpacking::Directory(const std::string& path, mode_t mode) {
  const tFd made = Parent(path + "/");
  return made && fchmod(made.fd, SafeMode(mode) | 0700) == 0;
}

bool Unpacking::File(const std::string& path, archive* poReader, archive_entry* poEntry) {
  total += archive_entry_size(poEntry);
  if (total > kMostBytes || archive_entry_size(poEntry) < 0) return Complain("larger than an update may be");
  const tFd parent = Parent(path);
  const tFd file(openat(parent.fd, Leaf(path), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) return false;
  if (archive_read_data_into_fd(poReader, file.fd) != ARCHIVE_OK)
    return Complain("%s: %s", path.c_str(), archive_error_string(poReader));
  return fchmod(file.fd, SafeMode(archive_entry_perm(poEntry))) == 0 && fsync(file.fd) == 0 &&
         files.insert(path).second;
}

bool Unpacking::Symlink(const std::string& path, const std::string& target) {
  if (!LinkStays(path, target)) return Complain("%s: leads out of the directory", path.c_str());
  const tFd parent = Parent(path);
  return symlinkat(target.c_str(), parent.fd, Leaf(path)) == 0;
}

bool Unpacking::Hardlink(const std::string& path, const std::string& target) {
  // Only a file that this very archive has brought: anything else is not the update's to share. A symbolic
  // link under a second name, less deep, could leave the directory although the first one did not.
  if (!files.count(target)) return Complain("%s: leads out of the directory", path.c_str());
  const tFd from = Parent(target), to = Parent(path);
  return linkat(from.fd, Leaf(target), to.fd, Leaf(path), 0) == 0 && files.insert(path).second;
}

bool Unpacking::Put(archive* poReader, archive_entry* poEntry) {
  const char* raw = archive_entry_pathname(poEntry);
  if (!raw) return Complain("an entry has a name that cannot be read");
  const std::string path = TidyPath(raw);
  if (path.empty() && archive_entry_filetype(poEntry) == AE_IFDIR) return true; // "./"
  if (!PathStays(path)) return Complain("%s: not a name for an update", raw);
  if (archive_entry_filetype(poEntry) == AE_IFDIR && !archive_entry_hardlink(poEntry))
    return Directory(path, archive_entry_perm(poEntry)) || Complain("%s: %s", raw, strerror(errno));
  if (!names.insert(path).second) return Complain("%s: comes twice", raw);
  errno = 0;
  bool done = false;
  if (const char* target = archive_entry_hardlink(poEntry))
    done = Hardlink(path, TidyPath(target));
  else if (archive_entry_filetype(poEntry) == AE_IFREG)
    done = File(path, poReader, poEntry);
  else if (archive_entry_filetype(poEntry) == AE_IFLNK && archive_entry_symlink(poEntry))
    done = Symlink(path, archive_entry_symlink(poEntry));
  return done || Complain("%s: %s", raw, errno ? strerror(errno) : "refused");
}

bool Unpacking::Finish() {
  std::vector<tTreeEntry> all;
  if (!ListTree(".", all)) return false;
  for (const tTreeEntry& entry : all)
    if (S_ISDIR(entry.mode) && !SyncPath(entry.path)) return false;
  if (unlinkat(lock.fd, kUnpacking, 0)) return Complain("%s: cleared by somebody else", top.c_str());
  return fsync(lock.fd) == 0 && SyncPath("..");
}

// All entries of an archive into an unpacking.
bool Extract(int fd, Unpacking& oTo) {
  const tArchive reader(archive_read_new(), archive_read_free);
  AllowPackings(reader.get());
  archive_read_support_format_tar(reader.get());
  archive_entry* entry = nullptr;
  int code = archive_read_open_fd(reader.get(), fd, kChunk);
  size_t count = 0;
  while (code == ARCHIVE_OK && (code = archive_read_next_header(reader.get(), &entry)) == ARCHIVE_OK) {
    if (!oTo.Put(reader.get(), entry)) return false;
    ++count;
  }
  if (code != ARCHIVE_EOF) return Complain("damaged: %s", archive_error_string(reader.get()));
  return count || Complain("the archive is empty");
}

// One entry of a tree, and its bytes, into an archive. Owners and times stay behind: an update of the same
// tree is the same file, byte for byte.
bool Append(archive* poWriter, const std::string& top, const tTreeEntry& oFrom) {
  const tEntry entry(archive_entry_new(), archive_entry_free);
  const std::string full = top + "/" + oFrom.path;
  archive_entry_set_pathname(entry.get(), oFrom.path.c_str());
  archive_entry_set_filetype(entry.get(), oFrom.mode & S_IFMT);
  archive_entry_set_perm(entry.get(), S_ISLNK(oFrom.mode) ? 0777 : SafeMode(oFrom.mode));
  if (S_ISLNK(oFrom.mode)) archive_entry_set_symlink(entry.get(), oFrom.target.c_str());
  const tFd file(S_ISREG(oFrom.mode) ? open(full.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC) : -1);
  struct stat info = {};
  if (S_ISREG(oFrom.mode) && (!file || fstat(file.fd, &info)))
    return Complain("%s: %s", full.c_str(), strerror(errno));
  archive_entry_set_size(entry.get(), info.st_size);
  if (archive_write_header(poWriter, entry.get()) != ARCHIVE_OK)
    return Complain("%s: %s", full.c_str(), archive_error_string(poWriter));
  std::string buffer(kChunk, '\0');
  off_t written = 0;
  for (ssize_t n = 1; file && n > 0; written += n) {
    n = read(file.fd, buffer.data(), buffer.size());
    if (n < 0 || archive_write_data(poWriter, buffer.data(), static_cast<size_t>(n)) != n)
      return Complain("%s: cannot be packed", full.c_str());
  }
  return written == info.st_size || Complain("%s: changes while it is packed", full.c_str());
}

bool Write(int fd, const std::string& top, const std::vector<tTreeEntry>& oAll) {
  const tArchive writer(archive_write_new(), archive_write_free);
  archive_write_add_filter_xz(writer.get());
  archive_write_set_format_gnutar(writer.get()); // names as they are, whatever their encoding
  if (archive_write_open_fd(writer.get(), fd) != ARCHIVE_OK)
    return Complain("%s", archive_error_string(writer.get()));
  for (const tTreeEntry& entry : oAll)
    if (!Append(writer.get(), top, entry)) return false;
  return archive_write_close(writer.get()) == ARCHIVE_OK ||
         Complain("%s", archive_error_string(writer.get()));
}

} // namespace

tMUResult UnpackUpdate(const std::string& file, const std::string& dir) {
  const tFd from(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!from) return Complain("%s: %s", file.c_str(), strerror(errno)), eMUbad;
  // The whole file is checked before its first entry is written, so that damage leaves nothing to clean up.
  Unpacking to(dir);
  if (!PackingWhole(from.fd) || !to.Begin()) return eMUbad;
  if (Extract(from.fd, to) && to.Finish()) return eMUunpacked;
  to.Undo();
  return eMUbad;
}

tMUResult PackUpdate(const std::string& dir, const std::string& file) {
  std::vector<tTreeEntry> all;
  if (!ListTree(dir, all)) return eMUbad;
  if (all.empty()) return Complain("%s: empty", dir.c_str()), eMUbad;
  for (const tTreeEntry& entry : all)
    if (!PathStays(entry.path) || (S_ISLNK(entry.mode) && !LinkStays(entry.path, entry.target)))
      return Complain("%s: would be refused when it is unpacked", entry.path.c_str()), eMUbad;
  const std::string next = file + ".tmp";
  const tFd to(open(next.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!to) return Complain("%s: %s", next.c_str(), strerror(errno)), eMUbad;
  if (Write(to.fd, dir, all) && fsync(to.fd) == 0 && rename(next.c_str(), file.c_str()) == 0) return eMUgood;
  unlink(next.c_str());
  return Complain("%s: not made", file.c_str()), eMUbad;
}

} // namespace zat
