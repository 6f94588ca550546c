#include "fsysmpsc.h"
#include "MiscFunc.h"
#include "utilf.h"
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A directory that is read, closed at the end.
class Directory {
public:
  // A path without a '/' at its end can be kept from being a link.
  Directory(const char* pccPath, bool fLinks) {
    const int iFd = open(pccPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC | (fLinks ? 0 : O_NOFOLLOW));
    if (iFd == -1) return;
    poDir = fdopendir(iFd);
    if (!poDir) close(iFd);
  }
  ~Directory() {
    if (poDir) closedir(poDir);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  explicit operator bool() const { return poDir; }

  // The next entry but "." and ".."; null at the end.
  const dirent* Next() {
    const dirent* poEntry;
    do poEntry = readdir(poDir);
    while (poEntry && (!strcmp(poEntry->d_name, ".") || !strcmp(poEntry->d_name, "..")));
    return poEntry;
  }

private:
  DIR* poDir = nullptr;
};

class Walk {
public:
  Walk(tFSysMpScData& oShared, procFSMS_t fnCall, bool fIDInc)
      : oData(oShared), fnJob(fnCall), fDirsInclude(fIDInc),
        fLinks(fnCall != FSysMpScDelete && fnCall != FSysMpScRemove) {}

  // The directory in oData.oInit, lDepth directories below the first one.
  int Enter(size_t lDepth, int iAllowance) {
    if (!oData.oInit.pccPathIn) oData.oInit.pccPathIn = "";
    if (!oData.oInit.pccMask) oData.oInit.pccMask = "*";
    const tFSysMpScData::tPaths oOwn = oData.oInit;
    if (lDepth == oLevels.size()) oLevels.emplace_back();
    Level& oLevel = oLevels[lDepth];
    oLevel.Begin(oOwn);

    int iRes = eFSMSCgood;
    {
      const bool fTop = lDepth == 0; // the caller's own directory may be reached by a link
      Directory oDir(fTop ? oLevel.oIn.c_str() : oOwn.pccPathIn, fLinks || fTop);
      if (!oDir) return eFSMSCgood;
      if (fDirsInclude) iRes = CallForDirectory(true, oOwn);
      if (iRes == eFSMSCretg) return eFSMSCgood;
      const bool fEvery = !strcmp(oOwn.pccMask, "*");
      while (iRes == eFSMSCgood) {
        const dirent* poEntry = oDir.Next();
        if (!poEntry) break;
        if (fEvery || fnmatch(oOwn.pccMask, poEntry->d_name, FNM_NOESCAPE) == 0)
          iRes = Entry(lDepth, *poEntry, iAllowance);
      }
    }
    if (iRes == eFSMSCgood && fDirsInclude) iRes = CallForDirectory(false, oOwn);
    return iRes == eFSMSCretg ? eFSMSCgood : iRes;
  }

private:
  // The paths of one directory's entries. They are written over the same two texts, one entry after the
  // other.
  struct Level {
    tString oIn, oOut;
    size_t lIn = 0, lOut = 0; // the directory's part
    bool fOut = false;
    void Begin(const tFSysMpScData::tPaths& oOwn) {
      oIn = oOwn.pccPathIn;
      lIn = MakePath(oIn, nullptr);
      fOut = oOwn.pccPathOut;
      oOut = fOut ? oOwn.pccPathOut : "";
      lOut = MakePath(oOut, nullptr);
    }
    void Name(const char* pccName) {
      oIn.replace(lIn, tString::npos, pccName);
      if (fOut) oOut.replace(lOut, tString::npos, pccName);
    }
  };

  int CallForDirectory(bool fBefore, const tFSysMpScData::tPaths& oOwn) {
    oData.fBefore = fBefore;
    oData.oFType = eFSMSFTdir;
    oData.oWork.pccPathIn = oOwn.pccPathIn;
    oData.oWork.pccPathOut = oOwn.pccPathOut;
    return fnJob(&oData);
  }

  // One entry with its subtree. Spends from the allowance of the directory that it is in.
  int Entry(size_t lDepth, const dirent& oEntry, int& iAllowance) {
    Level& oLevel = oLevels[lDepth];
    oLevel.Name(oEntry.d_name);
    tFSysMpScData::tPaths& oWork = oData.oWork;
    oWork.pccPathIn = oLevel.oIn.c_str();
    oWork.pccPathOut = oLevel.fOut ? oLevel.oOut.c_str() : nullptr;
    oWork.pccMask = oWork.pccPathIn + oLevel.lIn;
    const bool fDir = IsDirectory(oEntry, oWork.pccPathIn);
    const bool fCall = !(fDir && fDirsInclude);
    oData.oFType = fDir ? eFSMSFTdir : eFSMSFTfile;
    oData.fBefore = true;

    int iRes = fCall ? fnJob(&oData) : eFSMSCgood;
    if (iRes != eFSMSCgood) return iRes == eFSMSCretg ? eFSMSCgood : iRes;
    if (fDir && (iAllowance == 0 || iAllowance >= 2)) {
      if (iAllowance) --iAllowance;
      iRes = Below(oLevel, lDepth + 1, iAllowance);
      if (iRes != eFSMSCgood) return iRes;
    }
    // After a subtree the record still shows the last entry seen in it, the type included: jobs that judge a
    // directory by its after-call see what it held last.
    oData.fBefore = false;
    if (fCall) iRes = fnJob(&oData);
    return iRes == eFSMSCretg ? eFSMSCgood : iRes;
  }

  int Below(const Level& oLevel, size_t lDepth, int iAllowance) {
    tFSysMpScData::tPaths& oInit = oData.oInit;
    const char* const pccIn = oInit.pccPathIn;
    const char* const pccOut = oInit.pccPathOut;
    oInit.pccPathIn = oLevel.oIn.c_str();
    oInit.pccPathOut = oLevel.fOut ? oLevel.oOut.c_str() : nullptr;
    const int iRes = Enter(lDepth, iAllowance);
    oInit.pccPathIn = pccIn;
    oInit.pccPathOut = pccOut;
    return iRes;
  }

  // The kernel mostly tells the type with the name, which saves a call for every entry.
  bool IsDirectory(const dirent& oEntry, const char* pccPath) const {
    switch (oEntry.d_type) {
    case DT_DIR: return true;
    case DT_LNK: return fLinks && FSMS_IsDirPresent(pccPath) == 0;
    case DT_UNKNOWN: {
      struct stat oStat;
      return (fLinks ? stat(pccPath, &oStat) : lstat(pccPath, &oStat)) == 0 && S_ISDIR(oStat.st_mode);
    }
    }
    return false;
  }

  tFSysMpScData& oData;
  const procFSMS_t fnJob;
  const bool fDirsInclude;
  const bool fLinks; // followed
  // A deque: a new level leaves the others, and the texts that the record shows, in place.
  std::deque<Level> oLevels;
};

// A path without the '/' at its end, which would lead through a link.
tString Bare(const char* pccPath) {
  tString oPath = pccPath;
  while (oPath.size() > 1 && oPath.back() == '/') oPath.pop_back();
  return oPath;
}

bool IsLink(const tString& oPath) {
  struct stat oStat;
  return lstat(oPath.c_str(), &oStat) == 0 && S_ISLNK(oStat.st_mode);
}

bool IsSame(const tString& oOne, const tString& oOther) {
  struct stat oStat, oStatOther;
  return stat(oOne.c_str(), &oStat) == 0 && stat(oOther.c_str(), &oStatOther) == 0 &&
         oStat.st_dev == oStatOther.st_dev && oStat.st_ino == oStatOther.st_ino;
}

int Replace(const char* pccFrom, const char* pccTo) {
  remove(pccTo); // what cannot be removed shows when it cannot be replaced
  return rename(pccFrom, pccTo);
}

} // namespace

int FSysMpSc(tFSysMpScData* poFSMSData, procFSMS_t procFSMS, bool fIDInc, int iMDeep) {
  if (!poFSMSData || !procFSMS) return eFSMSCbad;
  const int iRes = Walk(*poFSMSData, procFSMS, fIDInc).Enter(0, iMDeep);
  poFSMSData->oWork = {}; // its texts are gone
  return iRes;
}

size_t MakePath(tString& oPath, const char* pccName) {
  if (!oPath.empty() && oPath.back() != '/') oPath += '/';
  if (pccName) oPath += pccName;
  return oPath.size();
}

int FSMS_IsDirPresent(const char* pccFNameIn) {
  struct stat oStat;
  if (!pccFNameIn || stat(pccFNameIn, &oStat) != 0) return -1;
  return S_ISDIR(oStat.st_mode) ? 0 : 1;
}

// ---- Jobs -------------------------------------------------------------------------------------------------

int FSMSDirDelete(const char* pccDirPath, const char* pccOnlyFMask) {
  if (!pccDirPath) return eFSMSCgood;
  const tString oBare = Bare(pccDirPath);
  if (!pccOnlyFMask && IsLink(oBare)) return unlink(oBare.c_str());
  tFSysMpScData oData{};
  oData.oInit.pccPathIn = pccDirPath;
  oData.oInit.pccMaskExtra = pccOnlyFMask;
  return FSysMpSc(&oData, FSysMpScDelete, true, 0);
}

int FSMSDirRemove(const char* pccDirPathFrom, const char* pccDirPathTo) {
  if (!pccDirPathFrom || !pccDirPathTo) return eFSMSCbad;
  const tString oFrom = Bare(pccDirPathFrom), oTo = Bare(pccDirPathTo);
  if (IsSame(oFrom, oTo)) return eFSMSCgood; // or each file would be removed to make room for itself
  if (oTo.compare(0, oFrom.size() + 1, oFrom + "/") == 0)
    return eFSMSCbad; // the walk would follow its own traces
  if (IsLink(oFrom)) return Replace(oFrom.c_str(), oTo.c_str());
  tFSysMpScData oData{};
  oData.oInit.pccPathIn = pccDirPathFrom;
  oData.oInit.pccPathOut = pccDirPathTo;
  return FSysMpSc(&oData, FSysMpScRemove, true, 0);
}

int FSMSDirExtDT(const char* pccDirPath, tFSysMpScExtDT* poExtDT) {
  if (!poExtDT) return eFSMSCbad;
  const time_t oStart = poExtDT->fMaxMin ? 0 : -1;
  poExtDT->oTBf = poExtDT->oTBd = {oStart, oStart, oStart};
  tFSysMpScData oData{};
  oData.oInit.pccPathIn = pccDirPath;
  oData.pvUser = poExtDT;
  return FSysMpSc(&oData, FSysMpScExtDT, true, 0);
}

int FSysMpScDelete(tFSysMpScData* poFSMSData) {
  const char* const pccMask = poFSMSData->oInit.pccMaskExtra;
  const char* const pccPath = poFSMSData->oWork.pccPathIn;
  if (poFSMSData->fBefore && poFSMSData->oFType == eFSMSFTfile)
    return !pccMask || strmask(poFSMSData->oWork.pccMask, pccMask) ? remove(pccPath) : 0;
  if (!poFSMSData->fBefore && poFSMSData->oFType == eFSMSFTdir && !pccMask) return rmdir(pccPath);
  return eFSMSCgood;
}

int FSysMpScRemove(tFSysMpScData* poFSMSData) {
  const char* const pccFrom = poFSMSData->oWork.pccPathIn;
  const char* const pccTo = poFSMSData->oWork.pccPathOut;
  if (!pccTo) return eFSMSCbad;
  if (poFSMSData->oFType == eFSMSFTdir && !poFSMSData->fBefore) return rmdir(pccFrom);
  if (poFSMSData->oFType == eFSMSFTdir)
    return mkdir(pccTo, 0777) == 0 || (errno == EEXIST && FSMS_IsDirPresent(pccTo) == 0) ? eFSMSCgood
                                                                                         : eFSMSCbad;
  return poFSMSData->fBefore ? Replace(pccFrom, pccTo) : eFSMSCgood;
}

int FSysMpScExtDT(tFSysMpScData* poFSMSData) {
  tFSysMpScExtDT* const poExtDT = static_cast<tFSysMpScExtDT*>(poFSMSData->pvUser);
  struct stat oStat;
  if (!poFSMSData->fBefore || !poExtDT || stat(poFSMSData->oWork.pccPathIn, &oStat) != 0) return eFSMSCgood;
  tFSysMpScDT& oTB = poFSMSData->oFType == eFSMSFTdir ? poExtDT->oTBd : poExtDT->oTBf;
  const auto fnTake = [&](time_t& oHave, time_t oNew) {
    if (poExtDT->fMaxMin ? oNew > oHave : oNew < oHave) oHave = oNew;
  };
  fnTake(oTB.oATime, oStat.st_atime);
  fnTake(oTB.oMTime, oStat.st_mtime);
  fnTake(oTB.oCTime, oStat.st_ctime);
  return eFSMSCgood;
}

int FSysMpScList(tFSysMpScData* poFSMSData) {
  const int iPut =
      printf("%s [%s] - %s\n", poFSMSData->oWork.pccPathIn, poFSMSData->fBefore ? "BEFORE" : "AFTER",
             poFSMSData->oFType == eFSMSFTdir ? "directory" : "file");
  return iPut < 0 ? eFSMSCbad : eFSMSCgood;
}

int fremoved(const char* pccDir) { return FSMSDirDelete(pccDir, nullptr); }
int frenamed(const char* pccDir, const char* pccNew) { return FSMSDirRemove(pccDir, pccNew); }
