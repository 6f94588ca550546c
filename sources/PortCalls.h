// The port's calls into its slots and into the link below, for the files that make up a port. An absent
// operation stands for silence: nothing sent, nothing received, no time left, so that no wait can last for
// ever.
#pragma once
#include "PortSEtx.h"

namespace zat {

// Bytes that may be written at pbCmd: all of mbCmd, or lCmdMax of a buffer that the link set-up brought.
inline tLen CmdRoom(const PortSEtx_tag* poSelf) {
  return poSelf->pbCmd == poSelf->mbCmd ? sizeof poSelf->mbCmd : poSelf->lCmdMax;
}

// XOR of the bytes from lBeg up to, not including, lEnd.
inline unsigned char XorSum(const unsigned char* pb, tLen lBeg, tLen lEnd) {
  unsigned char sum = 0;
  for (tLen i = lBeg; i < lEnd; ++i) sum ^= pb[i];
  return sum;
}

inline const unsigned char* PortGetCmd(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tLen* plLen) {
  return poSelf->GetCmd ? poSelf->GetCmd(poSelf, oPPCI, plLen) : nullptr;
}

// The first byte of a control sequence, or -1 when the command table has none.
inline int PortFirstByte(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI) {
  const unsigned char* pb = PortGetCmd(poSelf, oPPCI, nullptr);
  return pb ? *pb : -1;
}

inline tLen PortSend(PortSEtx_tag* poSelf, const void* pcv, tLen lLen, int iExtra) {
  PortCmds_tag& link = poSelf->oPortCmds;
  return link.Send ? link.Send(&link, pcv, lLen, iExtra) : 0;
}

// Sends the one byte of a control sequence; false when there is none or the link did not take it.
inline bool PortSendByte(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI) {
  const int first = PortFirstByte(poSelf, oPPCI);
  const unsigned char b = static_cast<unsigned char>(first);
  return first >= 0 && PortSend(poSelf, &b, 1, ePCInone) == 1;
}

// The count received. A link that claims more than the buffer was offered cannot be believed: 0.
inline tLen PortRecv(PortSEtx_tag* poSelf, void* pv, tLen lLen, int iEnd, unsigned* puFlags) {
  PortCmds_tag& link = poSelf->oPortCmds;
  const tLen count = link.Recv ? link.Recv(&link, pv, lLen, iEnd, 0, puFlags) : 0;
  return pv && count > lLen ? 0 : count;
}

// True when a flags word, cleared before the call, came back from PortRecv with the sequence found.
constexpr bool Found(unsigned uFlags) { return (uFlags & 3) != 0; }

// Exactly lLen bytes, up to no sequence.
inline bool PortRecvAll(PortSEtx_tag* poSelf, void* pv, tLen lLen) {
  return lLen == 0 || PortRecv(poSelf, pv, lLen, ePCInone, nullptr) == lLen;
}

// The SecureDat slot over pbCmd.
inline bool PortSecure(PortSEtx_tag* poSelf, tLen* plLen, tLen lMax, bool fSet, tLen lOfs) {
  return poSelf->SecureDat && poSelf->SecureDat(poSelf, poSelf->pbCmd, plLen, lMax, fSet, lOfs);
}

inline tTicks PortPeriod(PortSEtx_tag* poSelf, tTicks* poSet) {
  PortWork_tag& link = poSelf->oPortWork;
  return link.TimePeriod ? link.TimePeriod(&link, poSet) : 0;
}

inline void PortTimeStart(PortSEtx_tag* poSelf, tTicks* poStart) {
  PortWork_tag& link = poSelf->oPortWork;
  if (link.TimeStart) link.TimeStart(&link, poStart);
}

inline bool PortTimeEnd(PortSEtx_tag* poSelf, tTicks oPeriod, tTicks* poStart) {
  PortWork_tag& link = poSelf->oPortWork;
  return !link.TimeEnd || link.TimeEnd(&link, oPeriod, poStart);
}

inline void PortClearIn(PortSEtx_tag* poSelf) {
  PortWork_tag& link = poSelf->oPortWork;
  if (link.ClearIn) link.ClearIn(&link);
}

} // namespace zat
