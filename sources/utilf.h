// Files and lock files. Names are NUL-terminated, null is the name of nothing; where noted, a name wrapped in double
// quotes is accepted. Failures are results, and errno stays as the system call set it.
#pragma once
#include <cstddef>

#include "mmisc.h"
#include "prtclock.h"
#include "uni_iodir.h"
#include "uni_misc.h"
#include "uni_time.h"

// When the name is longer than 2 characters and wrapped in double quotes: puts a heap copy without them in *ppccName
// and returns it, for the caller to free. Otherwise null, and the name stays (also when memory is out: a name with its
// quotes names no file, and the caller fails honestly).
char* fpathr(const char** ppccName);

// remove, rename and link, on names that may be quoted. 0, or -1 with errno.
int fremove(const char* pccName);
int frename(const char* pccOld, const char* pccNew);
int flink(const char* pccOld, const char* pccNew);

// Makes one directory, mode 0777 less the umask. 0, or -1 with errno.
int fmkdir(const char* pccName);

// 0 when a regular file (frpresent), a directory (fdpresent), or something whose mode has all the given bits
// (fxpresent) is there; 1 when something else is; -1 when nothing is. Names may be quoted. The test of fxpresent is one
// of bits, not of the file type: a block device passes for a directory, and callers give type bits knowing it.
int frpresent(const char* pccName);
int fdpresent(const char* pccName);
int fxpresent(const char* pccName, unsigned uMode);

// The length of the directory part, the last '/' included; 0 for null and for a name without one.
size_t fsplitp(const char* pccName);

// For a directory that ends with '/' and is longer than 2 characters: the length of its parent, '/' included. 0 for
// anything else and when there is no parent: "/a/b/" 3, "/ab/" 1, "ab/" 0.
size_t fpathup(const char* pccPath);

// Copies a file. 0, also for a file and itself, which stays; -1 when one of them cannot be opened; 1 when reading or
// writing stopped half-way.
int fcopy(const char* pccSrc, const char* pccDst);

// Size in bytes; 0 for a file that cannot be opened.
unsigned long fgetsize(const char* pccName);

// --- Lock files -------------------------------------------------------------------------------------------------
//
// A lock is held by an open descriptor on the file, which is not handed out: it ends when the same process calls
// remflock, or with the process, however that ends. The file then stays behind, unlocked, and the next one takes it
// at once. What stands in it is for people and for remflock:
//
//   process id, CR, LF, descriptor number       "4711\r\n5"      (a longer old content may follow)
//
// Only regular files are locks: a symbolic link is not followed, a FIFO does not block, a directory is refused.

// Takes the lock, waiting without limit for one that another process holds. 0 when it is held; 1 when the file cannot
// be opened or locked, and at once (EWOULDBLOCK) when this process holds it already, since that wait would never end;
// -1 when its content cannot be written whole: it is not held then.
int putflock(const char* pccName);

// The same without waiting: a lock that another process holds is a failure too, 1 with EWOULDBLOCK. fInherit lets the
// programs started while it is held keep it alive: the lock then ends with the last of the processes.
int tryflock(const char* pccName, bool fInherit = false);

// Frees the lock and removes the file: unlinks first, so that nobody can take a lock on a file that is about to go,
// then unlocks and closes. Removes the file in any case, whoever has locked it, and closes a descriptor only when this
// very process took the lock and the descriptor still is that file. What fremove returns.
//
// In a forked copy of the holder the lock is the parent's: file and lock stay, only the copy's descriptor is closed, so
// that the lock cannot outlive the parent. 0, since nothing is left for the copy to free.
int remflock(const char* pccName);

namespace zat {

// The lock of tryflock for the moment of one piece of work that calls nothing of the host's, as the writing of a line:
// the descriptor that holds it, or -1. Its owner gives that back to FreeBriefLock. It costs little more than its system
// calls, because it is not noted as held by this process: remflock does not know it.
int TakeBriefLock(const char* pccName);

// Removes the file, unlocks and closes the descriptor. errno is the same after the call.
void FreeBriefLock(const char* pccName, int iFd);

} // namespace zat

// True when this very process holds the lock on the file of this name.
bool holdsflock(const char* pccName);

// 1 when the file exists and cannot be opened for writing, else 0. It tells nothing of the flock of another process:
// it is how an updater, by an unwritable file, says that an installation is under way.
int isflock(const char* pccName);

// --- Directory trees (fsysmpsc) -----------------------------------------------------------------------------------

// Deletes a directory tree; moves one. What the walk returns: 0, or the first failure.
int fremoved(const char* pccDirName);
int frenamed(const char* pccOld, const char* pccNew);
