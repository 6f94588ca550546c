#include "PortSElc.h"
#include "PortCalls.h"
#include <cstring>

namespace {

using namespace zat;

// A control sequence with its length; -1 and an empty sequence both give length 0.
const unsigned char* Sequence(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tLen* plLen) {
  *plLen = 0; // the lookup of -1 reports no length
  const unsigned char* pb = PortGetCmd(poSelf, oPPCI, plLen);
  if (!pb) *plLen = 0;
  return pb;
}

// Waits for the start sequence and puts it at the front of pbCmd, whose lCmdMax exceeds lStart.
bool AwaitStart(PortSEtx_tag* poSelf, tSEtxCmdId oPPCIs, const unsigned char* pbStart, tLen lStart) {
  if (lStart == 0) return true;
  unsigned flags = 0;
  PortRecv(poSelf, nullptr, 0, oPPCIs, &flags);
  if (!Found(flags)) return false;
  memcpy(poSelf->pbCmd, pbStart, lStart);
  return true;
}

// Data up to the end sequence, behind lStart bytes of pbCmd; the length of both, 0 when nothing came.
tLen RecvToEnd(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tLen lStart) {
  tLen count = PortRecv(poSelf, poSelf->pbCmd + lStart, poSelf->lCmdMax - lStart, oPPCI, nullptr);
  return count == 0 ? 0 : count + lStart;
}

// A length field of lField bytes behind lStart bytes of pbCmd, and the data that it announces; the length of
// all three, 0 when something is missing or does not fit.
tLen RecvByLength(PortSEtx_tag* poSelf, tLen lStart, tLen lField, bool fHL) {
  unsigned char* field = poSelf->pbCmd + lStart;
  const tLen head = lStart + lField;
  if (!PortRecvAll(poSelf, field, lField)) return 0;
  const tLen first = field[0], second = lField > 1 ? field[1] : 0;
  const tLen data = lField == 1 ? first : fHL ? first << 8 | second : second << 8 | first;
  if (data > poSelf->lCmdMax - head || !PortRecvAll(poSelf, field + lField, data)) return 0;
  return head + data;
}

// The end sequence behind lLen bytes of a frame with a length field; the length with it, or 0.
tLen RecvEnd(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tLen lLen) {
  const tLen end = poSelf->lCmdEnd;
  if (end == 0 || lLen > poSelf->lCmdMax || end > poSelf->lCmdMax - lLen) return 0;
  unsigned flags = 0;
  tLen count = PortRecv(poSelf, poSelf->pbCmd + lLen, end, oPPCI, &flags);
  return count == end && Found(flags) ? lLen + end : 0;
}

} // namespace

tBool PortSElcSomeEotStub(PortSEtx_tag*, char) { return true; }

tBool PortSElcRecvSign(PortSEtx_tag* poSelf, tLen* plDatLen) {
  const tLen sign = poSelf->lCmdSign, max = poSelf->lCmdMax;
  if (sign == 0) return true;
  bool good = sign <= max && *plDatLen <= max - sign && PortRecvAll(poSelf, poSelf->pbCmd + *plDatLen, sign);
  if (good) {
    *plDatLen += sign;
    tLen checked = *plDatLen; // a check takes the field off the length that it is given; the frame keeps it
    good = PortSecure(poSelf, &checked, max, false, poSelf->lCmdBeg) && *plDatLen != 0;
  }
  if (!good) *plDatLen = 0;
  return good;
}

tLen PortSElcRecvDatEasyDo(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tSEtxCmdId oPPCIs) {
  tLen start = 0;
  const unsigned char* pb = Sequence(poSelf, oPPCIs, &start);
  if (start >= poSelf->lCmdMax || !AwaitStart(poSelf, oPPCIs, pb, start)) return 0;
  tLen len = RecvToEnd(poSelf, oPPCI, start);
  return len != 0 && PortSElcRecvSign(poSelf, &len) ? len : 0;
}

tLen PortSElcRecvDatEasy(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI) {
  return PortSElcRecvDatEasyDo(poSelf, oPPCI, static_cast<tSEtxCmdId>(ePCInone));
}

tLen PortSElcRecvDatDoP(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tSEtxCmdId oPPCIs, tLen lDatLen, char fHL) {
  tLen start = 0;
  const unsigned char* pb = Sequence(poSelf, oPPCIs, &start);
  poSelf->lCmdBeg = start + lDatLen;
  if (!pb || lDatLen >= poSelf->lCmdMax || start >= poSelf->lCmdMax - lDatLen) return 0;
  Sequence(poSelf, oPPCI, &poSelf->lCmdEnd);
  if (!AwaitStart(poSelf, oPPCIs, pb, start)) return 0;
  tLen len = lDatLen != 0 ? RecvByLength(poSelf, start, lDatLen, fHL) : RecvToEnd(poSelf, oPPCI, start);
  if (len == 0 || !PortSElcRecvSign(poSelf, &len)) return 0;
  return lDatLen != 0 ? RecvEnd(poSelf, oPPCI, len) : len;
}

tLen PortSElcRecvDatDo(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tSEtxCmdId oPPCIs, tLen lDatLen) {
  return PortSElcRecvDatDoP(poSelf, oPPCI, oPPCIs, lDatLen, true);
}
