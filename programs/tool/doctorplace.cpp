// The installation's place: its path, its file system, who may write where.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <dirent.h>
#include <fmt/format.h>
#include <fnmatch.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "doctor.h"

namespace zat::tool {

namespace {

constexpr unsigned long long kLittleSpace = 50ull << 20, kNoSpace = 4ull << 20;

tString UserName(uid_t id) {
  const passwd* row = getpwuid(id);
  return row ? row->pw_name : std::to_string(id);
}

tString GroupName(gid_t id) {
  const group* row = getgrgid(id);
  return row ? row->gr_name : std::to_string(id);
}

// The group that the tills' users have in common, when there is one, may write the installation.
bool IsShared(const struct stat& top) { return (top.st_mode & S_IWGRP) != 0; }

bool IsMember(uid_t user, gid_t id) {
  const passwd* row = getpwuid(user);
  gid_t groups[256];
  int count = std::size(groups);
  return row && getgrouplist(row->pw_name, row->pw_gid, groups, &count) > 0 &&
         std::count(groups, groups + count, id) > 0;
}

// Whether somebody owns a thing who may write the installation anyway. What members of the group make carries the
// group; what an update brings may have lost it, and belongs to the user whose till has installed it.
bool IsOurs(const struct stat& info, const struct stat& top) {
  if (info.st_uid == 0 || info.st_uid == top.st_uid) return true;
  return IsShared(top) && (info.st_gid == top.st_gid || IsMember(info.st_uid, top.st_gid));
}

void CheckPath(Findings& found) {
  // The module is started with a command line that is split at blanks and quotes.
  const bool bad = found.oRoot.find_first_of(" \t\"'") != tString::npos;
  if (bad)
    found.Problem("path", "the path holds a blank or a quote: the terminal module cannot be started",
                  "move the installation, for example to /opt/zat_ms");
  else
    found.Ok("path", found.oRoot);
}

void CheckFileSystem(Findings& found) {
  struct statvfs info;
  if (statvfs(found.oRoot.c_str(), &info)) return;
  const unsigned long long space = static_cast<unsigned long long>(info.f_bavail) * info.f_frsize;
  const tString text = fmt::format("{} MiB free", space >> 20);
  if (info.f_flag & ST_NOEXEC)
    found.Problem("disk", "its file system is mounted noexec: nothing on it can be run",
                  "mount -o remount,exec");
  if (info.f_flag & ST_RDONLY)
    found.Problem("disk", "its file system is mounted read-only", "check the disk, remount it");
  if (space < kNoSpace)
    found.Problem("disk", text, "make room: locks, log and updates cannot be written");
  else if (space < kLittleSpace || info.f_favail == 0)
    found.Warn("disk", text, "make room before it is used up");
  else
    found.Ok("disk", text);
}

// Whoever may write a directory or a program here decides what tills run.
bool CheckMode(Findings& found, const tString& name, const struct stat& top) {
  struct stat info;
  const tString path = found.oRoot + name, shown = name.empty() ? "the installation's directory" : name;
  if (stat(path.c_str(), &info)) return true;
  const bool open = (info.st_mode & S_IWOTH) && !(info.st_mode & S_ISVTX && S_ISDIR(info.st_mode));
  const bool foreign = !IsOurs(info, top);
  if (open)
    found.Problem("rights", shown + " can be written by everybody on this machine", "chmod o-w " + path);
  if (foreign)
    found.Warn("rights",
               fmt::format("{} belongs to {}, the installation to {}", shown, UserName(info.st_uid),
                           UserName(top.st_uid)),
               fmt::format("chown {} {}", UserName(top.st_uid), path));
  return !open && !foreign;
}

void CheckRights(Findings& found) {
  struct stat top;
  if (stat(found.oRoot.c_str(), &top)) return;
  bool good = true;
  for (const char* name : {"", "BIN", "BIN/libzat_ms.so", "BIN/zat_mm", "BIN/zat_mu", "DOWNLOAD", "UPDATE_T",
                           "micromgl.cfg", "eftpos.cfg"})
    good = CheckMode(found, name, top) && good;
  for (const tString& client : NamesIn(found.oRoot + "DOWNLOAD/", "*"))
    good = CheckMode(found, "DOWNLOAD/" + client, top) && good;
  for (const tString& directory : {found.oRoot, found.oRoot + "BIN/"}) {
    if (access(directory.c_str(), W_OK) == 0) continue;
    good = false;
    found.Problem("rights",
                  fmt::format("{} cannot be written by {}: no locks, no log", directory, UserName(geteuid())),
                  "run this as the till's user; if it is, " +
                      (IsShared(top) ? "usermod -aG " + GroupName(top.st_gid) + " " + UserName(geteuid())
                                     : tString("give it the directory with chown")));
  }
  if (good)
    found.Ok("rights", fmt::format("owner {}{}, nobody else can write", UserName(top.st_uid),
                                   IsShared(top) ? " and group " + GroupName(top.st_gid) : ""));
}

} // namespace

void CheckPlace(Findings& oFound) {
  CheckPath(oFound);
  CheckFileSystem(oFound);
  CheckRights(oFound);
}

std::vector<tString> NamesIn(const tString& oDir, const char* pccPattern) {
  std::vector<tString> names;
  DIR* dir = opendir(oDir.c_str());
  if (!dir) return names;
  while (const dirent* entry = readdir(dir)) {
    const tString name = entry->d_name;
    if (name != "." && name != ".." && fnmatch(pccPattern, name.c_str(), 0) == 0) names.push_back(name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

tString AgeText(long lSeconds) {
  if (lSeconds < 120) return fmt::format("{} s", lSeconds);
  if (lSeconds < 2 * 3600) return fmt::format("{} min", lSeconds / 60);
  return lSeconds < 2 * 86400 ? fmt::format("{} h", lSeconds / 3600)
                              : fmt::format("{} days", lSeconds / 86400);
}

void CheckClock(Findings& oFound) {
  const time_t now = time(nullptr);
  struct tm local = {};
  localtime_r(&now, &local);
  char text[64];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &local);
  struct stat object;
  const bool behind =
      stat((oFound.oRoot + "BIN/libzat_ms.so").c_str(), &object) == 0 && object.st_ctime > now + 60;
  if (behind)
    oFound.Problem("clock", fmt::format("{} is before the installation was made", text),
                   "set the clock: receipts carry it");
  else
    oFound.Ok("clock", text);
}

} // namespace zat::tool
