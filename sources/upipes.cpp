#include "upipes.h"
#include "sigpipe.h"
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr char kFrameByte = 0x17;
constexpr size_t kHeader = 1 + 2; // start byte + length
constexpr int kForever = -1;
constexpr int kSilenceMs = 30000; // a module that stops in the middle of a block for so long is dead or hangs
constexpr int kPeerMs = 100;      // how often a wait asks whether the other side has ended
constexpr int kTries = 3;         // of a read that fails although it should not
constexpr int kFirstFree = 3;     // below are the standard descriptors, which any library may write to

// Moves a new descriptor above the standard ones, and lets children inherit it or not. -1 on failure; the
// given descriptor is gone in any case.
int Settle(int iFd, bool fInherit) {
  int iOut = iFd;
  if (iFd < kFirstFree) {
    iOut = fcntl(iFd, F_DUPFD_CLOEXEC, kFirstFree);
    close(iFd);
  }
  if (iOut >= 0 && fInherit) fcntl(iOut, F_SETFD, 0);
  return iOut;
}

void CloseBoth(int* piFds) {
  for (int i = 0; i < 2; ++i) {
    if (piFds[i] != -1) close(piFds[i]);
    piFds[i] = -1;
  }
}

// Waits for one of the events or the pipe's end; a negative time is no limit. False when the time has passed.
bool Await(int iFd, short iEvents, int iMs) {
  using namespace std::chrono;
  const auto oEnd = steady_clock::now() + milliseconds(iMs);
  pollfd oPoll{iFd, iEvents, 0};
  int iLeft = iMs;
  for (;;) {
    int iGot = poll(&oPoll, 1, iLeft);
    if (iGot >= 0) return iGot > 0;
    if (errno != EINTR) return false;
    if (iMs > 0)
      iLeft = std::max(0, static_cast<int>(ceil<milliseconds>(oEnd - steady_clock::now()).count()));
  }
}

// One read that never waits: the bytes moved, 0 when there are none yet, -1 when there will be none. A read that fails
// for no reason that lasts is tried again: given up in the middle of a block, it would cost the till that block.
ssize_t Take(int iFd, const iovec* poPieces, int iCount) {
  ssize_t lGot = -1;
  for (int iTries = 0; lGot < 0 && iTries < kTries; ++iTries) {
    do lGot = readv(iFd, poPieces, iCount);
    while (lGot < 0 && errno == EINTR);
    if (lGot < 0 && errno == EAGAIN) return 0;
  }
  return lGot > 0 ? lGot : -1;
}

// One write that never waits: the bytes moved, 0 when there is no room, -1 when nobody can read them.
ssize_t Put(int iFd, const iovec* poPieces, int iCount, bool fShield) {
  zat::SigPipeShield oShield(fShield);
  ssize_t lPut;
  do lPut = writev(iFd, poPieces, iCount);
  while (lPut < 0 && errno == EINTR);
  oShield.fRaised = lPut < 0 && errno == EPIPE;
  return lPut < 0 && errno == EAGAIN ? 0 : lPut;
}

} // namespace

bool UnnamedPipes::Open() {
  Close();
  int miOut[2] = {-1, -1}, miIn[2] = {-1, -1}; // from here to the other side, and back
  const bool fMade = pipe2(miOut, O_NONBLOCK | O_CLOEXEC) == 0 && pipe2(miIn, O_NONBLOCK | O_CLOEXEC) == 0;
  if (fMade) {
    miHLoc[0] = Settle(miIn[0], false);
    miHLoc[1] = Settle(miOut[1], false);
    miHExt[0] = Settle(miOut[0], true);
    miHExt[1] = Settle(miIn[1], true);
  } else {
    CloseBoth(miOut);
    CloseBoth(miIn);
  }
  const bool fOk = IsReady() && miHExt[0] != -1 && miHExt[1] != -1;
  if (!fOk) Close();
  return fOk;
}

const char* UnnamedPipes::Export() {
  const bool fThere = miHExt[0] != -1 && miHExt[1] != -1;
  oExpH = "-";
  if (fThere) oExpH = std::to_string(miHExt[1]) + "#" + std::to_string(miHExt[0]);
  return oExpH.c_str();
}

bool UnnamedPipes::Import(const char* pccIn) {
  if (!pccIn || *pccIn == '-') {
    fImported = false;
    return false;
  }
  Close();
  const char* pccEnd = pccIn + strlen(pccIn);
  int iWrite = -1, iRead = -1;
  auto oFirst = std::from_chars(pccIn, pccEnd, iWrite);
  if (oFirst.ec != std::errc() || oFirst.ptr == pccEnd) return false;
  auto oSecond = std::from_chars(oFirst.ptr + 1, pccEnd, iRead);
  if (oSecond.ec != std::errc() || iRead < 0) return false;
  miHLoc[0] = iRead;
  miHLoc[1] = iWrite;
  fImported = true;
  return true;
}

bool UnnamedPipes::Close() {
  if (fImported) miHLoc[0] = miHLoc[1] = -1;
  CloseBoth(miHLoc);
  CloseBoth(miHExt);
  fImported = false;
  lRest = 0;
  fRestLate = false;
  return true;
}

void UnnamedPipes::HangUp() {
  if (miHLoc[1] != -1 && !fImported) close(miHLoc[1]);
  miHLoc[1] = -1;
}

int UnnamedPipes::Read(void* pvIn, int iLen) {
  if (miHLoc[0] == -1 || iLen <= 0) return 0;
  const iovec oPiece{pvIn, static_cast<size_t>(iLen)};
  const ssize_t lGot = std::max<ssize_t>(0, Take(miHLoc[0], &oPiece, 1));
  Consumed(static_cast<size_t>(lGot));
  return static_cast<int>(lGot);
}

int UnnamedPipes::Write(const void* pvOut, int iLen) {
  if (miHLoc[1] == -1 || iLen <= 0) return 0;
  const iovec oPiece{const_cast<void*>(pvOut), static_cast<size_t>(iLen)};
  return static_cast<int>(std::max<ssize_t>(0, Put(miHLoc[1], &oPiece, 1, MayBreak())));
}

void UnnamedPipes::SetPeerCheck(bool (*gone)(void* peer), void* peer) {
  procGone = gone;
  pvPeer = peer;
}

bool UnnamedPipes::WaitIn(int iMs) { return Await(miHLoc[0], POLLIN, std::max(0, iMs)); }

int UnnamedPipes::ReadBlock(void* pvIn, int iLen, tBType oBT) {
  if (miHLoc[0] == -1 || iLen < 0) return 0;
  char* const pcIn = static_cast<char*>(pvIn);
  const size_t lLen = static_cast<size_t>(iLen);
  char mcSysC[2];
  if (GetSysC(oBT, mcSysC)) return ReadFramed(pcIn, lLen, oBT & eBTcanb, mcSysC);
  const size_t lGot = Fill(pcIn, lLen, nullptr, kForever);
  Consumed(lGot);
  return static_cast<int>(lGot);
}

int UnnamedPipes::WriteBlock(const void* pvOut, int iLen, tBType oBT) {
  if (miHLoc[1] == -1 || iLen < 0) return 0;
  char* const pcOut = const_cast<char*>(static_cast<const char*>(pvOut));
  const size_t lLen = static_cast<size_t>(iLen);
  char mcSysC[2];
  if (GetSysC(oBT, mcSysC)) {
    char mcHeader[kHeader] = {mcSysC[0], static_cast<char>(lLen & 0xFF), static_cast<char>(lLen >> 8 & 0xFF)};
    const iovec moPieces[3] = {{mcHeader, kHeader}, {pcOut, lLen}, {mcSysC + 1, 1}};
    return Put(miHLoc[1], moPieces, 3, MayBreak()) == static_cast<ssize_t>(kHeader + lLen + 1) ? iLen : 0;
  }
  for (size_t lDone = 0; lDone < lLen;) {
    const iovec oPiece{pcOut + lDone, lLen - lDone};
    const ssize_t lPut = Put(miHLoc[1], &oPiece, 1, MayBreak());
    if (lPut < 0 || (lPut == 0 && !Await(miHLoc[1], POLLOUT, kForever))) return 0;
    lDone += static_cast<size_t>(lPut);
  }
  return iLen;
}

bool UnnamedPipes::GetSysC(tBType oBT, char* mcSysC) {
  if (!(oBT & eBTver0)) return false;
  mcSysC[0] = mcSysC[1] = kFrameByte;
  return true;
}

// Waits until the pipe can be read or has ended: at most iMs milliseconds (negative: no limit) and, where the
// owner can tell, no longer than the other side is there.
bool UnnamedPipes::AwaitIn(int iMs) {
  if (!procGone) return Await(miHLoc[0], POLLIN, iMs);
  for (int iLeft = iMs; iLeft != 0;) {
    const int iSlice = iLeft < 0 ? kPeerMs : std::min(iLeft, kPeerMs);
    if (Await(miHLoc[0], POLLIN, iSlice)) return true;
    if (procGone(pvPeer)) return Await(miHLoc[0], POLLIN, 0); // what it wrote last is still read
    if (iLeft > 0) iLeft -= iSlice;
  }
  return false;
}

// Reads lLen bytes and, when pcEnd is given, one byte more into *pcEnd. Fewer when nothing comes for
// iSilenceMs, nobody can write any more or the other side is gone.
size_t UnnamedPipes::Fill(char* pcIn, size_t lLen, char* pcEnd, int iSilenceMs) {
  const size_t lAll = lLen + (pcEnd ? 1 : 0);
  size_t lGot = 0;
  while (lGot < lAll) {
    const size_t lData = std::min(lGot, lLen);
    const iovec moPieces[2] = {{pcIn + lData, lLen - lData}, {pcEnd, pcEnd ? 1u : 0u}};
    const ssize_t lNow = Take(miHLoc[0], moPieces, 2);
    if (lNow < 0 || (lNow == 0 && !AwaitIn(iSilenceMs))) break;
    lGot += static_cast<size_t>(lNow);
  }
  return lGot;
}

// Discards the rest of an earlier block, then the bytes in front of a start byte, and takes the start byte.
// False when the caller is not to wait for it, or nobody can write any more.
bool UnnamedPipes::FindStart(bool fCanBreak, const char* mcSysC) {
  for (;;) {
    if (!fCanBreak && !AwaitIn(kForever)) return false;
    char mcBytes[512];
    const bool fMayStart = lRest == 0 || fRestLate;
    const iovec oPiece{mcBytes, fMayStart ? 1 : std::min(lRest, sizeof mcBytes)};
    const ssize_t lGot = Take(miHLoc[0], &oPiece, 1);
    if (lGot < 0 || (lGot == 0 && fCanBreak)) return false;
    if (lGot == 0) continue;
    if (fMayStart && mcBytes[0] == mcSysC[0]) {
      lRest = 0;
      fRestLate = false;
      return true;
    }
    const bool fNoise = lRest == 0;
    const bool fEnd = mcBytes[lGot - 1] == mcSysC[1];
    explicit_bzero(mcBytes, static_cast<size_t>(lGot)); // of a block that nobody reads: it may name a card
    Consumed(static_cast<size_t>(lGot));
    if (fNoise && fCanBreak) return false;
    if (!fNoise && lRest == 0 && !fEnd) lRest = 1; // the block goes on until its end byte
  }
}

int UnnamedPipes::ReadFramed(char* pcIn, size_t lLen, bool fCanBreak, const char* mcSysC) {
  if (!FindStart(fCanBreak, mcSysC)) return 0;
  const int iSilence = fCanBreak ? kSilenceMs : kForever;
  unsigned char mbLen[2];
  char* const pcLen = reinterpret_cast<char*>(mbLen);
  if (Fill(pcLen, sizeof mbLen, nullptr, iSilence) != sizeof mbLen) return 0;
  const size_t lTold = mbLen[0] | static_cast<size_t>(mbLen[1]) << 8;

  char cEnd = 0;
  const bool fFits = lTold <= lLen;
  size_t lGot = Fill(pcIn, std::min(lTold, lLen), fFits ? &cEnd : nullptr, iSilence);
  if (lGot < (fFits ? lTold + 1 : lLen)) return GiveUp(lTold + 1 - lGot);
  if (!fFits) {
    lRest = lTold + 1 - lLen;
    return static_cast<int>(lLen);
  }
  for (lGot = lTold; cEnd != mcSysC[1];) { // no end byte in its place: the block goes on until one comes
    if (lGot == lLen) {
      lRest = 1;
      break;
    }
    pcIn[lGot++] = cEnd;
    if (Fill(nullptr, 0, &cEnd, iSilence) == 0) return GiveUp(1);
  }
  return static_cast<int>(lGot);
}

// Leaves a begun block unread; lLeft bytes of it are missing. The writer may have left it too, and begin a
// new one.
int UnnamedPipes::GiveUp(size_t lLeft) {
  lRest = lLeft;
  fRestLate = true;
  return 0;
}

// Bytes that an unframed read took may belong to a block that a framed read left.
void UnnamedPipes::Consumed(size_t lBytes) {
  lRest -= std::min(lRest, lBytes);
  if (lBytes) fRestLate = false;
}
