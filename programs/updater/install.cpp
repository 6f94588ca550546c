#include "install.h"
#include "instlock.h"
#include "names.h"
#include "tree.h"
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace zat {
namespace {

constexpr const char* kModule = "BIN/zat_mm";
constexpr const char* kPrevious = ".prev";
constexpr int kMostTries = 4; // of one installation: it must not keep the tills out for good

std::string RealPath(const std::string& path) {
  char buffer[PATH_MAX];
  return realpath(path.c_str(), buffer) ? buffer : "";
}

std::string DirOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

// The bytes and the mode of one file under a second name: a second link where that is possible, else a copy.
bool Duplicate(const std::string& from, const std::string& to) {
  unlink(to.c_str());
  if (link(from.c_str(), to.c_str()) == 0) return true;
  const tFd in(open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  const tFd out(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  struct stat info;
  return in && out && fstat(in.fd, &info) == 0 && CopyBytes(in.fd, out.fd) &&
         fchmod(out.fd, SafeMode(info.st_mode)) == 0;
}

// One tree on its way over one root.
class Placing {
public:
  Placing(const std::string& tree_, const std::string& root_) : tree(tree_), root(root_) {}

  bool List() { return ListTree(tree, all); }
  bool Stage();    // step 1, and taken back when it fails
  void Unstage();  // takes it back
  bool PlaceAll(); // step 3: as much as can be done, false when something could not

private:
  bool StageOne(const tTreeEntry& oEntry);
  bool Place(const tTreeEntry& oEntry);
  bool KeepModule(const std::string& place);
  bool SyncPlaces();
  std::string To(const tTreeEntry& oEntry) const { return root + "/" + oEntry.path; }

  const std::string tree, root;
  std::vector<tTreeEntry> all;
};

bool Placing::StageOne(const tTreeEntry& oEntry) {
  const std::string to = To(oEntry), staged = to + kStaged;
  struct stat info;
  const bool there = lstat(to.c_str(), &info) == 0;
  if (S_ISDIR(oEntry.mode)) {
    // A link that leads to a directory serves as well: it is how an installation is spread over disks.
    if (there && stat(to.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return true;
    return mkdir(to.c_str(), SafeMode(oEntry.mode) | 0700) == 0;
  }
  if (there && S_ISDIR(info.st_mode)) return errno = EISDIR, false;
  if (!S_ISLNK(oEntry.mode)) return Duplicate(tree + "/" + oEntry.path, staged) && SyncPath(staged);
  unlink(staged.c_str());
  return symlink(oEntry.target.c_str(), staged.c_str()) == 0;
}

bool Placing::Stage() {
  for (const tTreeEntry& entry : all) {
    const bool allowed =
        PathStays(entry.path) && (!S_ISLNK(entry.mode) || LinkStays(entry.path, entry.target));
    errno = 0;
    if (allowed && StageOne(entry)) continue;
    Complain("%s: %s", entry.path.c_str(), errno ? strerror(errno) : "not for an installation");
    return Unstage(), false;
  }
  return SyncPlaces() || (Unstage(), false);
}

// Directories that were made stay: an empty one does no harm, and it might not be ours.
void Placing::Unstage() {
  for (const tTreeEntry& entry : all)
    if (!S_ISDIR(entry.mode)) unlink((To(entry) + kStaged).c_str());
}

bool Placing::SyncPlaces() {
  std::set<std::string> dirs{root};
  for (const tTreeEntry& entry : all) dirs.insert(DirOf(To(entry)));
  bool done = true;
  for (const std::string& dir : dirs) done = SyncPath(dir) && done;
  return done;
}

bool Placing::KeepModule(const std::string& place) {
  const std::string previous = place + kPrevious, next = previous + kStaged;
  struct stat info;
  if (lstat(place.c_str(), &info)) return errno == ENOENT; // the first module that this installation gets
  const bool kept = Duplicate(place, next) && SyncPath(next) && rename(next.c_str(), previous.c_str()) == 0;
  unlink(next.c_str()); // still there when the two names were the same file already
  return kept || Complain("%s: not kept", previous.c_str());
}

bool Placing::Place(const tTreeEntry& oEntry) {
  const std::string place = To(oEntry), staged = place + kStaged;
  struct stat info;
  if (S_ISDIR(oEntry.mode) || lstat(staged.c_str(), &info)) return true; // placed by an earlier run
  const bool kept = oEntry.path != kModule || KeepModule(place);
  if (rename(staged.c_str(), place.c_str())) return Complain("%s: %s", place.c_str(), strerror(errno));
  unlink(staged.c_str()); // as above
  return kept;
}

bool Placing::PlaceAll() {
  bool done = true;
  for (const tTreeEntry& entry : all) done = Place(entry) && done;
  return SyncPlaces() && done;
}

// Steps 3 and 4 but for the lock.
bool Finish(const std::string& tree, const std::string& root) {
  Placing work(tree, root);
  // A tree that is missing had been placed and was being removed.
  const bool done = access(tree.c_str(), F_OK) || (work.List() && work.PlaceAll());
  RemoveTree(tree);
  return SyncPath(DirOf(tree)) && done;
}

// Step 1 and 2.
bool Prepare(const std::string& tree, const std::string& root, InstallLock& oLock) {
  if (tree.empty()) return Complain("nothing to install");
  if (access((tree + "/" + kUnpacking).c_str(), F_OK) == 0) return Complain("%s: not whole", tree.c_str());
  Placing work(tree, root);
  return work.List() && work.Stage() && (oLock.SetStaged(tree) || (work.Unstage(), false));
}

// Nothing of the caller stays open: complaints go into the report, and the lock is all that is kept.
void Redirect(const std::string& root) {
  const std::string report = root + "/updtlast.log";
  const tFd log(open(report.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
  const tFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
  dup2(null.fd, 0);
  dup2(null.fd, 1);
  dup2(log ? log.fd : null.fd, 2);
  if (chdir("/")) return; // it only spares an unmount the wait
}

void Report(const char* text) {
  char now[32] = "";
  const time_t seconds = time(nullptr);
  struct tm broken;
  if (localtime_r(&seconds, &broken)) strftime(now, sizeof now, "%Y-%m-%d %H:%M:%S", &broken);
  Complain("%s %s", now, text);
}

// Steps 3 and 4 in a process that no terminal and no caller can reach. False when there is none to be had; whoever
// runs the updater next then finishes.
bool GoOnInBackground(const std::string& tree, const std::string& root, InstallLock& oLock) {
  const pid_t child = fork();
  if (child == 0) {
    setsid();
    const pid_t own = fork(); // the leader of a session could still be given a terminal; its child cannot
    if (own) _exit(own < 0);
    Redirect(root);
    Report("begins to put the files in place");
    Report(Finish(tree, root) ? "installed" : "installed as far as it could be; see above");
    oLock.Free(true);
    _exit(0);
  }
  int status = -1;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {}
  return status == 0 || Complain("no process: %s", strerror(errno));
}

} // namespace

tMUResult InstallUpdate(const std::string& dir, const std::string& root_, bool background) {
  const std::string root = RealPath(root_);
  std::string tree = RealPath(dir);
  struct stat info;
  if (root.empty() || stat(root.c_str(), &info) || !S_ISDIR(info.st_mode))
    return Complain("%s: no directory", root_.c_str()), eMUbad;
  if (!tree.empty() && (tree == "/" || (root + "/").starts_with(tree + "/")))
    return Complain("%s: holds the installation itself", dir.c_str()), eMUbad;

  InstallLock lock(root);
  const tMUResult taken = lock.Take();
  if (taken != eMUgood) return taken;
  const std::string old = lock.Staged();
  if (lock.Tries() > kMostTries) {
    lock.Free(false);
    return Complain("%s: broken off %d times, given up", root.c_str(), kMostTries), eMUbad;
  }
  if (!old.empty() && !tree.empty() && old != tree) {
    Finish(old, root);
    lock.ClearStaged();
  }
  if (!old.empty() && tree.empty()) tree = old;
  if ((old.empty() || old != tree) && !Prepare(tree, root, lock)) return lock.Free(false), eMUbad;

  if (background) return GoOnInBackground(tree, root, lock) ? eMUunderway : eMUbad;
  const bool done = Finish(tree, root);
  lock.Free(false);
  return done ? eMUunderway : eMUbad;
}

} // namespace zat
