#include "microus.h"
#include "SLogger.h"
#include "micros.h"
#include "updtlist.h"
#include "util.h"
#include "utilf.h"
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kSection = "LAST";
constexpr const char* kInstalled = "INST";
constexpr const char* kHighest = "HI";
constexpr const char* kLoading = "LOAD";
constexpr const char* kNoUpdate = "00000000.000";

constexpr tTicks kUnlockMs = 7000;
constexpr tTicks kCannotOpenMs = 60000;

bool WriteAll(int fd, const tString& oText) {
  for (size_t done = 0; done < oText.size();) {
    const ssize_t n = write(fd, oText.data() + done, oText.size() - done);
    if (n < 0 && errno != EINTR) return false;
    if (n > 0) done += static_cast<size_t>(n);
  }
  return true;
}

// Puts a text in the place of a file so that a power cut leaves the old text or the new one. The new file takes
// over owner and mode: whoever delivers the updates, often another user, must be able to write it again.
bool ReplaceFile(const tString& oName, const tString& oText) {
  const tString oNext = oName + ".new";
  const int fd = open(oNext.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  struct stat oWas;
  bool fGood = true;
  if (stat(oName.c_str(), &oWas) == 0) {
    const bool fOwner =
        fchown(fd, oWas.st_uid, oWas.st_gid) == 0 || fchown(fd, static_cast<uid_t>(-1), oWas.st_gid) == 0;
    fGood = fchmod(fd, oWas.st_mode & 0777) == 0 || !fOwner; // not ours to change: the list matters more
  }
  fGood = fGood && WriteAll(fd, oText) && fsync(fd) == 0;
  close(fd);
  if (fGood && frename(oNext.c_str(), oName.c_str()) == 0) return true;
  fremove(oNext.c_str());
  return false;
}

} // namespace

FListStorage::FListStorage() : fOpen(false), uLock(0), mpccML{}, mpccOL{}, pccHi(nullptr), pccLD(nullptr) {}

bool FListStorage::Open(const tString& oPath_, const tString& oCId_) {
  // The texts point into the document: none may be left behind when the lock fails below.
  mpccOL[0] = pccHi = pccLD = nullptr;
  oCfg.Reset();
  oCfg.SetUnicode(false);
  oCfg.SetMultiKey(false);
  oCfg.SetMultiLine(false);

  oPath = oPath_;
  oCId = oCId_;
  if (fdpresent(oPath.c_str())) fmkdir(oPath.c_str());
  if (!oCId.empty()) {
    oPath += oCId + "/";
    if (fdpresent(oPath.c_str())) fmkdir(oPath.c_str());
  }
  oFName = oPath + "verslist" + ".upd";
  oFNameL = oFName + ".lck";
  moV[0] = "HHHHHHHH.000"; // a mask: "0" takes any digit, so that a series ".001" needs no new launcher
  moV[1] = moV[0] + ".tmp";
  mpccML[0] = moV[0].c_str();
  mpccML[1] = moV[1].c_str();
  mpccML[2] = nullptr;

  if (!Lock(false)) return false;
  Load();
  Unlock(true);
  return fOpen = true;
}

void FListStorage::Load() {
  // A pipe of that name would keep fopen waiting for ever.
  if (frpresent(oFName.c_str()) == 0) oCfg.LoadFile(oFName.c_str());
  mpccOL[0] = oCfg.GetValue(kSection, kInstalled, kNoUpdate);
  mpccOL[1] = mpccOL[2] = nullptr;
  pccHi = oCfg.GetValue(kSection, kHighest, kNoUpdate);
  pccLD = oCfg.GetValue(kSection, kLoading, kNoUpdate);
}

void FListStorage::Save() {
  tString oText;
  if (fOpen && oCfg.Save(oText, false) >= 0) ReplaceFile(oFName, oText);
}

void FListStorage::SaveLI(const char* pccFName) {
  if (!fOpen || !pccFName) return;
  const tString oName = pccFName; // often one of the texts that the load below takes away
  if (!Lock(true)) return;
  Load();
  // Every request without an update records the highest name again; only a change is worth a write to the disk.
  if (oName != oCfg.GetValue(kSection, kInstalled, "")) {
    oCfg.SetValue(kSection, kInstalled, oName.c_str());
    mpccOL[0] = oCfg.GetValue(kSection, kInstalled, kNoUpdate);
    Save();
  }
  Unlock(true);
}

uint32_t FListStorage::Lock(bool fNeed) {
  if (uLock) return ++uLock;
  tTicks oShut = TicksGet(); // since when the lock could not be tried at all
  for (errno = 0; tryflock(oFNameL.c_str()); errno = 0) {
    if (errno == EWOULDBLOCK) oShut = TicksGet(); // held by another process: that ends
    if (!fNeed || TicksEnd(oShut, kCannotOpenMs)) return 0;
    YieldMS(1);
  }
  return uLock = 1;
}

uint32_t FListStorage::Unlock(bool fNeed) {
  if (uLock != 1) return uLock ? --uLock : 0;
  const tTicks oBeg = TicksGet();
  while (remflock(oFNameL.c_str()) && errno != ENOENT) {
    if (!fNeed || TicksEnd(oBeg, kUnlockMs)) return uLock;
    YieldMS(1);
  }
  return uLock = 0;
}

// --- The update steps ---------------------------------------------------------------------------------------------

namespace {

constexpr tTicks kLeastRunMs = 1000; // what a started updater gets even when the budget is nearly used up

constexpr int kUnpacked = 2; // exit codes of the updater
constexpr int kUnderway = 3;

void ReleaseLock(const tString& oLock) {
  remflock(oLock.c_str());
  GSLog(100, "[MicroS] Rem lock: %s", oLock.c_str());
}

void RemoveUnpacked(const MicroSGlData_tag* poMSGD) {
  if (fremoved(poMSGD->oUpdtD.c_str()) == 0) GSLog(150, "[MicroS] Remove: %s", poMSGD->oUpdtD.c_str());
}

// Runs the updater and returns its exit code. An updater that hangs is killed: no till may wait for it without end,
// and it must survive that as it survives a power cut. *piRaw: its raw status, -1 when nothing is known of it.
int RunUpdater(const MicroSGlData_tag* poMSGD, const tString& oLine, int* piRaw) {
  const tTicks oGone = TicksDiff(poMSGD->oTimS) * 1000 / PCperS();
  const tTicks oLeft = oGone < poMSGD->oTimDms ? poMSGD->oTimDms - oGone : 0;
  return SysCallFor(oLine.c_str(), std::max(oLeft, kLeastRunMs), piRaw);
}

// The updater's command lines. The quotes are part of the contract: both arguments may hold blanks.
tString UpdaterLine(const MicroSGlData_tag* poMSGD, const tString& oFirst, const tString& oSecond) {
  return poMSGD->oUpdtE + " \"" + oFirst + "\" \"" + oSecond + "\"";
}

int RunInstall(const MicroSGlData_tag* poMSGD) {
  const tString oLine = UpdaterLine(poMSGD, poMSGD->oUpdtD, poMSGD->oRPath);
  int iRaw = 0;
  const int iCode = RunUpdater(poMSGD, oLine, &iRaw);
  GSLog(100, "[MicroS] System: %s <Er: %d>", oLine.c_str(), iCode);
  return iCode;
}

// The lists of the client's updates, from the version list as it is loaded. False when the walk failed.
bool MakeLists(const MicroSGlData_tag* poMSGD, const tString& oDir, tFListData& oLists) {
  const FListStorage& oFLS = poMSGD->oFLS;
  const char* const mpccDirs[] = {poMSGD->oCIdS.c_str(), nullptr};
  oLists.oIn = {oFLS.mpccOL, oFLS.mpccML, oFLS.pccHi, mpccDirs};
  const bool fMade = FSMSMakeFList(oDir.c_str(), &oLists, oFLS.pccHi) == 0;
  oLists.oIn = {};
  return fMade;
}

// Selects the lowest update there is to install. 1 or 0.
int SelectUpdate(MicroSGlData_tag* poMSGD, const tString& oDir) {
  tFListData oLists;
  if (!MakeLists(poMSGD, oDir, oLists)) return 0;
  GSLog(100, "[MicroS] Update list maked");
  // What stands beside a half-written update, also a finished file of that number, may be half-written too.
  const bool fCleared = !oLists.oOut.oSMb.empty();
  for (const auto& [oMask, oIn] : oLists.oOut.oSMb) FSMSDirDelete(oIn.c_str(), oMask.c_str());
  if (fCleared && !MakeLists(poMSGD, oDir, oLists)) return 0;
  const tStrStrMap& oSM = oLists.oOut.oSM;
  if (!oSM.empty()) {
    poMSGD->oUpdtN = oSM.begin()->first;
    poMSGD->oUpdtS = oSM.begin()->second;
    poMSGD->fUpdPck = true;
  } else if (!fCleared) {
    poMSGD->oFLS.SaveLI(poMSGD->oFLS.pccHi); // nothing is left up to the highest one: the client stands there
  }
  return !oSM.empty();
}

// For one client-id lock file: counts it when it is held, removes it when a dead process left it.
int CountHeld(tFSysMpScData* poData) {
  if (poData->oFType != eFSMSFTfile || !poData->fBefore) return eFSMSCgood;
  const char* pccLock = poData->oWork.pccPathIn;
  if (tryflock(pccLock)) {
    ++*static_cast<int*>(poData->pvUser);
    GSLog(100, "[MicroS] Locked CIdLck: %s", pccLock);
  } else {
    remflock(pccLock);
    GSLog(100, "[MicroS] Remove CIdLck: %s", pccLock);
  }
  return eFSMSCgood;
}

// Unpacks the selected update into an empty oUpdtD. When that fails the update is removed as well, or every request
// of the till would try it again. It stays when the updater could not be run at all, which is not the update's fault.
bool UnpackSelected(const MicroSGlData_tag* poMSGD) {
  RemoveUnpacked(poMSGD);
  if (fmkdir(poMSGD->oUpdtD.c_str()) == 0) GSLog(150, "[MicroS] Create: %s", poMSGD->oUpdtD.c_str());
  const tString oLine = UpdaterLine(poMSGD, poMSGD->oUpdtS, poMSGD->oUpdtD);
  int iRaw = 0;
  const int iCode = RunUpdater(poMSGD, oLine, &iRaw);
  GSLog(100, "[MicroS] System: %s <Er: %d>", oLine.c_str(), iCode);
  if (iCode == kUnpacked) return true;
  RemoveUnpacked(poMSGD);
  if (iRaw != -1 && fremove(poMSGD->oUpdtS.c_str()) == 0)
    GSLog(150, "[MicroS] Remove: %s", poMSGD->oUpdtS.c_str());
  return false;
}

// An update may bring a new updater: that one installs it, once it has shown that it works here. False when it does
// not; true as well when there is none.
bool TakeNewUpdater(const MicroSGlData_tag* poMSGD) {
  const tString &oNew = poMSGD->oUpdtEn, &oOld = poMSGD->oUpdtE;
  if (frpresent(oNew.c_str())) return true;
  int iRaw = -1;
  const int iCode = chmod(oNew.c_str(), 0777) ? -1 : RunUpdater(poMSGD, oNew, &iRaw);
  GSLog(150, "[MicroS] New updater: %s <Er: %d>", oNew.c_str(), iCode);
  // The raw status: one that a signal has ended shows a code of 0 as well. In the place of a missing updater the new
  // one would be a first installation, not an update. The rename replaces the old one in one step: there is no moment
  // without an updater.
  if (iRaw != 0 || chmod(oNew.c_str(), 0755) || frpresent(oOld.c_str()) ||
      frename(oNew.c_str(), oOld.c_str()))
    return false;
  GSLog(150, "[MicroS] Rename %s to %s", oNew.c_str(), oOld.c_str());
  return true;
}

// Waits until the updater holds the update lock: then, and only then, the installation is sure to go on without us.
bool UpdaterHoldsLock(MicroSGlData_tag* poMSGD) {
  bool fHeld = false;
  while (!fHeld && !poMSGD->TicksEnd()) {
    GSLog(100, "[MicroS] Wait lock: %s", poMSGD->oUpdtLck.c_str());
    fHeld = isflock(poMSGD->oUpdtLck.c_str()) != 0;
    if (!fHeld) YieldMS(1); // every look is a line in the log
  }
  return fHeld;
}

// One attempt to install what is unpacked. *pfTried tells whether there was time for it; the update lock is released
// then. The main lock is held throughout, so that no launcher takes the update lock between ours and the updater's.
tProcECode Install(MicroSGlData_tag* poMSGD, bool* pfTried) {
  tProcECode oRes = ePECnupd;
  while (!*pfTried && !poMSGD->TicksEnd()) {
    if (putflock(poMSGD->oMainLck.c_str())) {
      YieldMS(1);
      continue;
    }
    GSLog(100, "[MicroS] Put lock: %s", poMSGD->oMainLck.c_str());
    ReleaseLock(poMSGD->oUpdtLck);
    *pfTried = true;
    if (RunInstall(poMSGD) == kUnderway && UpdaterHoldsLock(poMSGD)) {
      oRes = ePECupdt;
      if (poMSGD->fUpdPck) poMSGD->oFLS.SaveLI(poMSGD->oUpdtN.c_str()); // else a tree that was pending
      fremove(poMSGD->oUpdtS.c_str());
      GSLog(150, "[MicroS] Installed: %s; Removed: %s", poMSGD->oUpdtN.c_str(), poMSGD->oUpdtS.c_str());
    }
    ReleaseLock(poMSGD->oMainLck);
  }
  return oRes;
}

// Whether the update lock is the directory that zat_mu makes of it, and that updater is dead.
bool InstallationBrokenOff(const tString& oLock) {
  const int fd = open(oLock.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  const bool fDead =
      faccessat(fd, zat::kUpdaterMark, F_OK, AT_SYMLINK_NOFOLLOW) == 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
  close(fd);
  return fDead;
}

} // namespace

int FindUpdate(MicroSGlData_tag* poMSGD) {
  const tString oDir = poMSGD->oRPath + "DOWNLOAD" + "/";
  FListStorage& oFLS = poMSGD->oFLS;
  GSLog(100, "[MicroS] Update in");
  if (!oFLS.Open(oDir, poMSGD->oCIdS)) {
    GSLog(100, "[MicroS] Update skip");
    return 0;
  }
  GSLog(100, "[MicroS] Update inits: %s; %s", oFLS.mpccOL[0], oFLS.pccHi);
  GSLog(100, "[MicroS] Update updts: %s", oDir.c_str());
  const int iRes = SelectUpdate(poMSGD, oDir);
  poMSGD->fUpdImp = true;
  GSLog(150, "[MicroS] Update %d: %s - I:%d", iRes, poMSGD->oUpdtS.c_str(), poMSGD->fUpdImp);
  return iRes;
}

int GetNumCId(MicroSGlData_tag* poMSGD) {
  const tString oMask = tString(pccCIdLPref) + "*" + pccCIdLPosf;
  int iHeld = 0;
  tFSysMpScData oWalk = {};
  oWalk.oInit.pccPathIn = poMSGD->oRPath.c_str();
  oWalk.oInit.pccMask = oMask.c_str();
  oWalk.pvUser = &iHeld;
  FSysMpSc(&oWalk, CountHeld, false, 1);
  return iHeld;
}

tProcECode Unpack(MicroSGlData_tag* poMSGD) {
  tProcECode oRes = ePECnupd;
  bool fTried = false; // the install command was run, and the update lock given up for it
  if (!poMSGD->fUpdPck || UnpackSelected(poMSGD)) {
    if (!TakeNewUpdater(poMSGD)) {
      oRes = ePECnupu;
    } else {
      oRes = Install(poMSGD, &fTried);
      if (!fTried) RemoveUnpacked(poMSGD);
    }
  }
  if (!fTried) ReleaseLock(poMSGD->oUpdtLck);
  return oRes;
}

bool zat::MendInstallation(MicroSGlData_tag* poMSGD) {
  if (!InstallationBrokenOff(poMSGD->oUpdtLck)) return false;
  if (RunInstall(poMSGD) != kUnderway && InstallationBrokenOff(poMSGD->oUpdtLck)) {
    // Not even the updater can help. Every file is whole, old or new; a till that works with them is better than one
    // that waits for ever.
    fremoved(poMSGD->oUpdtLck.c_str());
    GSLog(100, "[MicroS] Rem lock: %s", poMSGD->oUpdtLck.c_str());
  }
  return true;
}
