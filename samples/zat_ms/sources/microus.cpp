#include "microus.h"
#include "util.h"
#include "utilf.h"
#include <cerrno>
#include <fcntl.h>
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
