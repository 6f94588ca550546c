// One recursive walk of a directory tree, and the jobs that are done in it: delete, move, find the newest or
// oldest time stamps, list. A job is a callback that sees every entry before and after its subtree and steers
// the walk by its result.
#pragma once
#include "ztypes.h"
#include <ctime>

enum tFSysMpScFType : int { eFSMSFTnone = 0, eFSMSFTfile = 1, eFSMSFTdir = 2 };

// Results of a job.
enum tFSysMpScCode : int {
  eFSMSCbad = -1, // stop, a failure
  eFSMSCgood = 0, // go on
  eFSMSCstop = 1, // stop
  eFSMSCretg = 2  // leave out this entry's subtree and its after-call, then go on
};

// What walk and job share. The texts in oWork belong to the walk and may change with every call; none of them
// is freed before the outermost walk returns, which leaves oWork empty.
struct tFSysMpScData {
  struct tPaths {
    const char* pccPathIn;  // oInit: the directory that is walked; oWork: the path of the entry or directory
    const char* pccPathOut; // the same on the output side, for jobs that mirror a tree; may be null
    const char* pccMask;    // oInit: shell pattern that entries must match; oWork: the entry's bare name
    const char* pccMaskExtra; // oInit: a mask for the job's own use (strmask), may be null; oWork: not used
  } oInit, oWork;
  tFSysMpScFType oFType; // of the entry
  bool fBefore;          // called before the entry's subtree, or after it
  void* pvUser;          // the job's own
};

typedef int (*procFSMS_t)(tFSysMpScData*);

// Walks oInit.pccPathIn (a null path becomes "", a null pattern "*", in the caller's record too) and calls
// the job for each entry that matches the pattern, "." and ".." left out. Directories that do not match are
// not entered.
//
// fIDInc clear: every entry gets a before-call and an after-call, also a file: a job that counts acts on one
// of them. set: a directory gets its calls from its own walk, before its first entry and after its last one,
// and the top directory gets them too.
//
// iMDeep is the depth allowance: 0 no limit, 1 this directory only, n recursion while it is at least 2.
// Entering a directory lowers this directory's own allowance, so later siblings get a smaller one: with 3 the
// first subdirectory is walked with 2, the second with 1 and later ones not at all. Lists of downloads rely
// on the walk staying that small.
//
// A symbolic link counts as what it leads to. Only in the delete and move jobs below it is an entry of its
// own: what is outside the tree is neither deleted nor moved.
//
// Returns the last result of the job: 0 at the end of the walk, also when a job's last word was eFSMSCretg; 0
// as well for a directory that cannot be opened, after no call at all; what stopped the walk otherwise. -1
// without a record or a job.
int FSysMpSc(tFSysMpScData* poFSMSData, procFSMS_t procFSMS, bool fIDInc, int iMDeep);

// Appends '/' to a path that is not empty and has none at its end, then the name (null and "" add nothing).
// Returns the new length.
size_t MakePath(tString& oPath, const char* pccName);

// 0 a directory (or a link to one), 1 something else, -1 not there.
int FSMS_IsDirPresent(const char* pccFNameIn);

// Deletes a tree; with a mask (strmask) only the files whose names match, at every depth, and no directory.
// 0, or -1 at the first entry that could not be deleted. A path that is itself a symbolic link: without a
// mask the link is removed.
int FSMSDirDelete(const char* pccDirPath, const char* pccOnlyFMask);

// Moves a tree on the same file system: makes each directory that is missing, replaces files of the same name
// and leaves others. 0, or -1 at the first entry that could not be moved; what was moved stays so. A path
// that is itself a symbolic link is moved as one.
int FSMSDirRemove(const char* pccDirPathFrom, const char* pccDirPathTo);

struct tFSysMpScDT {
  time_t oATime, oMTime, oCTime; // access, modification, change
};
struct tFSysMpScExtDT {
  tFSysMpScDT oTBf, oTBd; // over files, over directories
  bool fMaxMin;           // true: the newest, false: the oldest; set by the caller
};

// The newest times of a tree, the top directory included. With fMaxMin clear every time is -1: that is where
// the search starts, and no time is smaller. It is kept, because callers take -1 for "not known".
int FSMSDirExtDT(const char* pccDirPath, tFSysMpScExtDT* poExtDT);

// The jobs. 0, or -1 when the system refuses.
int FSysMpScDelete(tFSysMpScData* poFSMSData); // oInit.pccMaskExtra: the mask of what to delete, or null
int FSysMpScRemove(tFSysMpScData* poFSMSData); // needs the output side
int FSysMpScExtDT(tFSysMpScData* poFSMSData);  // pvUser: a tFSysMpScExtDT
int FSysMpScList(tFSysMpScData* poFSMSData);   // "PATH [BEFORE] - file" and so on, to standard output
