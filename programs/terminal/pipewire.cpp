#include "pipewire.h"
#include "prtclock.h"
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zat {

namespace {

constexpr int kLook = 500;       // how often a waiting module makes sure that the till still lives, ms
constexpr int kHandOver = 60000; // a till that takes nothing for so long is not coming back, ms
constexpr size_t kMessage = 14 + 2048;
constexpr size_t kAtOnce = 4092; // the pipe takes a longer block in parts

bool IsPipe(int iFd) {
  struct stat o;
  return iFd >= 0 && fstat(iFd, &o) == 0 && S_ISFIFO(o.st_mode);
}

size_t BytesIn(int iFd) {
  int i = 0;
  return ioctl(iFd, FIONREAD, &i) == 0 && i > 0 ? static_cast<size_t>(i) : 0;
}

} // namespace

tPipeWire::tPipeWire() : iTill(getppid()) {}

bool tPipeWire::Open(const char* pccExport) {
  return oUP.Import(pccExport) && IsPipe(oUP.miHLoc[0]) && IsPipe(oUP.miHLoc[1]);
}

// The end of the pipe says that the till is gone, unless some other process of the till's holds a copy of its ends;
// then a changed parent says it. (A death signal from the kernel would not do: it comes when the thread that started
// the module ends, and a till may well start it from a thread of its own.)
bool tPipeWire::Orphaned() const { return getppid() != iTill; }

// Waits until the pipe takes more. False when nobody will read it.
bool tPipeWire::WaitRoom(const tDeadline& oEnd) const {
  pollfd o{oUP.miHLoc[1], POLLOUT, 0};
  while (!oEnd.Over() && !Orphaned())
    if (poll(&o, 1, oEnd.Left(kLook)) > 0) return o.revents == POLLOUT;
  return false;
}

bool tPipeWire::Send(const tString& oMsg) {
  if (oMsg.size() > kAtOnce) return SendRaw(Frame(oMsg));
  const tDeadline oEnd(kHandOver);
  const int iLen = static_cast<int>(oMsg.size());
  while (WaitRoom(oEnd)) {
    if (oUP.WriteBlock(oMsg.data(), iLen, UnnamedPipes::eBTver0) == iLen) return true;
    YieldMS(1);
  }
  return false;
}

// The frame of a block: start byte, length (2 bytes, low first), data, end byte.
tString tPipeWire::Frame(const tString& oMsg) const {
  char mcSys[2];
  UnnamedPipes::GetSysC(UnnamedPipes::eBTver0, mcSys);
  tString oFrame(1, mcSys[0]);
  oFrame += static_cast<char>(oMsg.size());
  oFrame += static_cast<char>(oMsg.size() >> 8);
  return oFrame + oMsg + mcSys[1];
}

bool tPipeWire::SendRaw(const tString& oBytes) {
  const tDeadline oEnd(kHandOver);
  for (size_t i = 0; i < oBytes.size();) {
    if (!WaitRoom(oEnd)) return false;
    i += static_cast<size_t>(oUP.Write(oBytes.data() + i, static_cast<int>(oBytes.size() - i)));
  }
  return true;
}

tGot tPipeWire::Recv(tString& oMsg, int iMs) {
  const tDeadline oEnd(iMs);
  char mc[kMessage];
  do {
    const bool fEvent = oUP.WaitIn(oEnd.Left(kLook));
    const bool fData = BytesIn(oUP.miHLoc[0]) > 0;
    if (!fData && (fEvent || Orphaned())) return eGgone; // readable without a byte: the end of the pipe
    const int iLen = fData ? oUP.ReadBlock(mc, sizeof mc, UnnamedPipes::eBTv0cb) : 0;
    if (iLen > 0) {
      oMsg.assign(mc, static_cast<size_t>(iLen));
      return eGmessage;
    }
  } while (!oEnd.Over());
  return eGnothing;
}

} // namespace zat
