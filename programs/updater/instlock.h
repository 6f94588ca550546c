// The lock that an installation holds: "updtlock.lck" in the root, as a directory.
//
// A directory of that name cannot be opened for writing by anybody, root included, so every launcher sees the
// update lock as taken and none can take it; it is never empty, so no launcher can remove it either. The
// updater holds an flock on the directory, which the kernel drops when the updater dies: a directory without
// an flock is an installation that was broken off, to be taken over and finished.
//
//   updtlock.lck/
//     tries     one byte for each updater that has begun this installation
//     staged    made, with the tree's path in it, once every file waits beside its place: only renames remain
#pragma once
#include "tree.h"
#include "updater.h"
#include <string>

namespace zat {

class InstallLock {
public:
  // root: a full path without a closing slash.
  explicit InstallLock(const std::string& root_) : root(root_), path(root_ + "/updtlock.lck") {}

  // Takes the lock. eMUgood: it is ours, new or taken over. eMUbusy: an updater or a launcher that lives
  // holds it. eMUbad: it cannot be made.
  tMUResult Take();

  // How many updaters have begun this installation, this one included.
  int Tries() const { return tries; }

  // The tree whose files wait in place; empty when it has not come so far.
  std::string Staged() const;

  // Records that every file of the tree waits in its place. It is on the disk when this returns true.
  bool SetStaged(const std::string& tree);
  // Forgets it again.
  bool ClearStaged();

  // Gives the lock up, in one step for all that look at it. wait set: first waits until no launcher is inside
  // its main lock, because the launcher that started this installation looks for the lock from inside it, and
  // would take an installation it never saw for one that failed.
  void Free(bool wait);

private:
  bool Make();
  bool TakeOver();
  bool Count(const tFd& oDir, int iFlags);

  const std::string root, path;
  tFd held;
  int tries = 0;
};

} // namespace zat
