// A directory tree as the updater sees it: regular files, directories and symbolic links, nothing else.
#pragma once
#include <string>
#include <sys/stat.h>
#include <vector>

namespace zat {

// A file descriptor that closes itself. -1: none.
struct tFd {
  int fd;
  explicit tFd(int fd_ = -1) : fd(fd_) {}
  tFd(tFd&& oFrom) noexcept : fd(oFrom.fd) { oFrom.fd = -1; }
  tFd& operator=(tFd&& oFrom) noexcept;
  ~tFd();
  explicit operator bool() const { return fd >= 0; }
};

struct tTreeEntry {
  std::string path;   // relative to the tree's top, no leading '/'
  mode_t mode;        // as lstat gives it: type and permissions
  std::string target; // of a symbolic link
};

// Everything below a directory, sorted by path, so that a directory comes before what it holds. Links are
// listed, never followed. False, with a complaint, when something cannot be read or is of a kind that an
// update may not hold.
bool ListTree(const std::string& top, std::vector<tTreeEntry>& oOut);

// Removes a directory with whatever stands in it. Links are removed, never followed. False, with a complaint, when
// something is left; a directory that does not exist is no failure.
bool RemoveTree(const std::string& top);

// Removes whatever stands in a directory, the entry called last after all others.
bool EmptyTree(const std::string& top, const char* last);

// Has a file's bytes, or a directory's names, on the disk when it returns true.
bool SyncPath(const std::string& path);

// All bytes of a descriptor, from where it stands, into another one.
bool CopyBytes(int from, int to);
bool WriteBytes(int to, const void* bytes, size_t size);

// The permissions an installed file gets from the ones an update carries: nothing that would let others write
// it or run it as somebody else, and always readable by its owner.
mode_t SafeMode(mode_t mode);

} // namespace zat
