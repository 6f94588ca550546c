#include "linkwire.h"
#include "PortCalls.h"
#include "deadline.h"
#include <cstring>

namespace zat {

namespace {

constexpr int kLook = 1000; // longest single wait for a byte, ms

tLinkWire& WireOf(PortSEtx_tag* poPort) { return *static_cast<tLinkWire*>(poPort->pvExtra); }

tString Sequence(tSEtxCmdId oId) {
  return tString(reinterpret_cast<const char*>(moEFTPCmdDefs[oId].poByte), moEFTPCmdDefs[oId].oLen);
}

} // namespace

tLinkWire::tLinkWire(Link& oLinkIn, const tFaults& oFaults)
    : oLink(oLinkIn), lNaks(oFaults[eFInak].lAt), lBadChecks(oFaults[eFIbadCheck].lAt) {}

bool tLinkWire::Open() {
  if (!EFTPWorkInit(&oPort, &oLink, nullptr, &EFTPLinkSetUp, true)) return false;
  oPort.pvExtra = this;
  oPort.MakeCmd = &MakeFrame;
  oPort.SecureDat = &Check;
  return true;
}

// The message comes finished, so only its frame is to be made. One that the port cannot hold makes none.
tLen tLinkWire::MakeFrame(PortSEtx_tag* poPort, void*) {
  const tString oFrame = Sequence(ePCISEstx) + *WireOf(poPort).poOut + Sequence(ePCISEetx);
  if (oFrame.size() + poPort->lCmdSign > poPort->lCmdMax) return 0;
  memcpy(poPort->pbCmd, oFrame.data(), oFrame.size());
  return oFrame.size();
}

tBool tLinkWire::Check(PortSEtx_tag* poPort, unsigned char* pb, tLen* plLen, tLen lMax, tBool fSet,
                       tLen lOfs) {
  const tBool fGood = EFTPSecureDat(poPort, pb, plLen, lMax, fSet, lOfs);
  if (fSet && fGood && WireOf(poPort).lBadChecks-- > 0) pb[*plLen - 1] ^= 0xFF;
  return fGood;
}

// Judges a whole frame: NAK as often as the fault wants, then the message is taken out of it.
tBool tLinkWire::TakeMessage(PortSEtx_tag* poPort, void* pvMsg, tLen lLen) {
  if (WireOf(poPort).lNaks-- > 0) return false;
  const tLen lBeg = poPort->lCmdBeg, lTail = poPort->lCmdEnd + poPort->lCmdSign;
  static_cast<tString*>(pvMsg)->assign(reinterpret_cast<char*>(poPort->pbCmd) + lBeg, lLen - lBeg - lTail);
  return true;
}

bool tLinkWire::Send(const tString& oMsg) {
  tPadsData oNone{};
  poOut = &oMsg;
  return LinkReply(&oPort, &oNone);
}

tString tLinkWire::Frame(const tString& oMsg) const {
  const unsigned char bCheck = XorSum(reinterpret_cast<const unsigned char*>(oMsg.data()), 0, oMsg.size());
  return Sequence(ePCISEstx) + oMsg + Sequence(ePCISEetx) + static_cast<char>(bCheck);
}

bool tLinkWire::SendRaw(const tString& oBytes) {
  return oPort.oPortCmds.Send(&oPort.oPortCmds, oBytes.data(), oBytes.size(), ePCInone) == oBytes.size();
}

// Looks whether a frame begins with the next byte, and gives the byte back then. Others are dropped: they are what
// the till said while it waited, a NAK mostly, and must not start a receive that would run into its time period.
bool tLinkWire::FrameBegins() {
  unsigned char b = 0;
  while (oLink.WaitIn(0))
    if (oPort.oPortCmds.Recv(&oPort.oPortCmds, &b, 1, ePCInone, 0, nullptr) == 1 &&
        b == moEFTPCmdDefs[ePCISEstx].poByte[0]) {
      oPort.oPortWork.iPreReaded = b;
      return true;
    }
  return false;
}

tGot tLinkWire::Recv(tString& oMsg, int iMs) {
  const tDeadline oEnd(iMs);
  do {
    oLink.WaitIn(static_cast<tTicks>(oEnd.Left(kLook)));
    if (FrameBegins() && oPort.RecvCmd(&oPort, ePCISEetx, &TakeMessage, &oMsg) != 0) return eGmessage;
    if (!oLink.IsOpen()) return eGgone;
  } while (!oEnd.Over());
  return eGnothing;
}

} // namespace zat
