#include "bundle.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cards.h"
#include "logfile.h"
#include "place.h"
#include "timeline.h"
#include "utilf.h"

namespace zat::tool {

namespace {

constexpr size_t kMostBytes = 16 << 20; // of one file; a log is moved away long before
constexpr char kFolder[] = "zat_support/";

class Bundle {
public:
  Bundle() : poArchive(archive_write_new(), archive_write_free) {
    archive_write_set_format_pax_restricted(poArchive.get());
    archive_write_add_filter_gzip(poArchive.get());
  }

  bool Open(int fd) { return poArchive && archive_write_open_fd(poArchive.get(), fd) == ARCHIVE_OK; }
  bool Close() { return archive_write_close(poArchive.get()) == ARCHIVE_OK && good; }
  const char* Why() const { return archive_error_string(poArchive.get()); }

  // A file of the archive, masked.
  void Put(const tString& name, tString bytes) {
    if (bytes.size() > kMostBytes) bytes.erase(0, bytes.size() - kMostBytes);
    MaskCards(bytes);
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                         archive_entry_free);
    archive_entry_set_pathname(entry.get(), (kFolder + name).c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0600);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(bytes.size()));
    archive_entry_set_mtime(entry.get(), time(nullptr), 0);
    good = good && archive_write_header(poArchive.get(), entry.get()) == ARCHIVE_OK &&
           archive_write_data(poArchive.get(), bytes.data(), bytes.size()) ==
               static_cast<la_ssize_t>(bytes.size());
  }

  // A regular file as it stands; nothing when it is not there. A pipe under its name would never end.
  void PutFile(const tString& name, const tString& path) {
    tString bytes;
    if (frpresent(path.c_str()) == 0)
      Put(name, ReadWhole(path, bytes) ? bytes : fmt::format("unreadable: {}\n", strerror(errno)));
  }

private:
  std::unique_ptr<archive, int (*)(archive*)> poArchive;
  bool good = true;
};

// "drwxr-xr-x" and the like, owner, size, time, name: what ls -l shows, the same on every machine.
void ListInto(tString& out, const tString& dir, const tString& shown, int depth) {
  constexpr int kDeepest = 4;
  for (const tString& name : NamesIn(dir, "*")) {
    struct stat info;
    if (lstat((dir + name).c_str(), &info)) continue;
    const char kind = S_ISDIR(info.st_mode)   ? 'd'
                      : S_ISREG(info.st_mode) ? '-'
                      : S_ISLNK(info.st_mode) ? 'l'
                                              : '?';
    out += fmt::format("{}{:04o} {:>5}:{:<5} {:>12} {} {}{}\n", kind, info.st_mode & 07777u, info.st_uid,
                       info.st_gid, info.st_size, TimeText(info.st_mtime), shown, name);
    if (kind == 'd' && depth < kDeepest) ListInto(out, dir + name + "/", shown + name + "/", depth + 1);
  }
}

tString Listing(const tString& root) {
  tString out;
  ListInto(out, root, "", 0);
  return out;
}

void Fill(Bundle& bundle, const Findings& found, const tString& text, const tString& json) {
  bundle.Put("report.txt", text);
  bundle.Put("report.json", json);
  bundle.Put("listing.txt", Listing(found.oRoot));
  for (const char* pattern : {"*.cfg", "*.log"})
    for (const tString& name : NamesIn(found.oRoot, pattern)) bundle.PutFile(name, found.oRoot + name);
  for (const tString& client : NamesIn(found.oRoot + "DOWNLOAD/", "*")) {
    const tString list = "DOWNLOAD/" + client + "/verslist.upd";
    bundle.PutFile(list, found.oRoot + list);
  }
  const tString log = LogOfRoot(found.oRoot);
  for (const tString& path : {BackupName(log), log, found.oRoot + "BIN/zat_expt.log"})
    bundle.PutFile("log/" + path.substr(fsplitp(path.c_str())), path);
}

} // namespace

tString WriteBundle(const Findings& oFound, const tString& oText, const tString& oJson,
                    const tString& oFile) {
  // Under another name until it is whole: half an archive must not be sent.
  const tString half = oFile + ".part";
  const int fd = open(half.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return strerror(errno);
  Bundle bundle;
  tString fault;
  if (bundle.Open(fd)) Fill(bundle, oFound, oText, oJson);
  if (!bundle.Close()) fault = bundle.Why() ? bundle.Why() : "not written whole";
  if (fault.empty() && (fsync(fd) || rename(half.c_str(), oFile.c_str()))) fault = strerror(errno);
  close(fd);
  if (!fault.empty()) unlink(half.c_str());
  return fault;
}

} // namespace zat::tool
