#include "tree.h"
#include "updater.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace zat {

tFd& tFd::operator=(tFd&& oFrom) noexcept {
  std::swap(fd, oFrom.fd);
  return *this;
}

tFd::~tFd() {
  if (fd >= 0) close(fd);
}

bool ListTree(const std::string& top, std::vector<tTreeEntry>& oOut) {
  std::error_code error;
  fs::recursive_directory_iterator walk(top, error);
  for (; !error && walk != fs::recursive_directory_iterator(); walk.increment(error)) {
    const std::string full = walk->path().string();
    struct stat info;
    if (lstat(full.c_str(), &info)) return Complain("%s: %s", full.c_str(), strerror(errno));
    tTreeEntry entry{full.substr(top.size() + (top.ends_with('/') ? 0 : 1)), info.st_mode, {}};
    if (S_ISLNK(info.st_mode)) entry.target = fs::read_symlink(walk->path(), error).string();
    if (!S_ISLNK(info.st_mode) && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode))
      return Complain("%s: neither a file nor a directory nor a symbolic link", full.c_str());
    oOut.push_back(std::move(entry));
  }
  if (error) return Complain("%s: %s", top.c_str(), error.message().c_str());
  std::sort(oOut.begin(), oOut.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
  return true;
}

bool RemoveTree(const std::string& top) {
  std::error_code error;
  fs::remove_all(top, error);
  return !error || Complain("%s: %s", top.c_str(), error.message().c_str());
}

bool EmptyTree(const std::string& top, const char* last) {
  std::error_code error;
  bool done = true;
  for (const auto& entry : fs::directory_iterator(top, error))
    if (entry.path().filename() != last) done = RemoveTree(entry.path().string()) && done;
  return !error && done && RemoveTree(top + "/" + last);
}

bool SyncPath(const std::string& path) {
  const tFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  return (file && fsync(file.fd) == 0) || Complain("%s: %s", path.c_str(), strerror(errno));
}

bool WriteBytes(int to, const void* bytes, size_t size) {
  for (auto* at = static_cast<const char*>(bytes); size;) {
    const ssize_t n = write(to, at, size);
    if (n < 0 && errno != EINTR) return false;
    if (n > 0) at += n, size -= static_cast<size_t>(n);
  }
  return true;
}

bool CopyBytes(int from, int to) {
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = read(from, buffer, sizeof buffer);
    if (n == 0) return true;
    if (n < 0 ? errno != EINTR : !WriteBytes(to, buffer, static_cast<size_t>(n))) return false;
  }
}

mode_t SafeMode(mode_t mode) { return (mode & 0755) | 0600; }

} // namespace zat
