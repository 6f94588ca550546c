#include "PortSEtx.h"
#include "PortCalls.h"
#include "PortSElc.h"
#include <algorithm>
#include <cstring>
#include <type_traits>

namespace {

constexpr tTicks kPeriod = 1000; // ticks

// The sequences, each with the zero byte behind it.
constexpr unsigned char kStx[] = {0x02, 0}, kEtx[] = {0x03, 0}, kEot[] = {0x04, 0}, kEnq[] = {0x05, 0};
constexpr unsigned char kAck[] = {0x06, 0}, kSo[] = {0x0E, 0}, kSi[] = {0x0F, 0}, kNak[] = {0x15, 0};
constexpr unsigned char kDleStx[] = {0x10, 0x02, 0}, kDleEtx[] = {0x10, 0x03, 0};

constexpr tPortCmd kNone = {0, nullptr};

} // namespace

// clang-format off
tPortCmd moSEtxCmdDefs[ePCISEnum] = {
    kNone, kNone, {1, kAck}, kNone,     {1, kNak}, {1, kStx},    {1, kEtx},    {1, kEot}, {1, kSi}, {1, kSo}};
tPortCmd moEFTPCmdDefs[ePCISEnum] = {
    kNone, kNone, {1, kAck}, {1, kEnq}, {1, kNak}, {2, kDleStx}, {2, kDleEtx}, {1, kEot}, {1, kSi}, {1, kSo}};
// clang-format on

namespace {

using namespace zat;

enum tAnswer { eAnAck, eAnNak, eAnOther };

tAnswer ReadAnswer(PortSEtx_tag* poSelf) {
  unsigned char b = 0;
  if (!PortRecvAll(poSelf, &b, 1)) return eAnOther;
  if (b == PortFirstByte(poSelf, ePCISEack)) return eAnAck;
  return b == PortFirstByte(poSelf, ePCISEnack) ? eAnNak : eAnOther;
}

// One attempt to send: the answer that came, or what stands for it.
tAnswer SendOnce(PortSEtx_tag* poSelf, tLen lLen) {
  tTicks period = 0, start = 0;
  if (poSelf->fDirtyAK) {
    period = PortPeriod(poSelf, nullptr);
    PortTimeStart(poSelf, &start);
  }
  if (!poSelf->SendDat || !poSelf->SendDat(poSelf, lLen)) return eAnNak;
  if (!poSelf->fUseAK) return eAnAck;
  tAnswer answer = ReadAnswer(poSelf);
  while (poSelf->fDirtyAK && answer == eAnOther && !PortTimeEnd(poSelf, period, &start))
    answer = ReadAnswer(poSelf);
  return answer;
}

tBool GiveUp(PortSEtx_tag* poSelf) {
  if (poSelf->SomeEot) poSelf->SomeEot(poSelf, true);
  return false;
}

void PutGenericSlots(PortSEtx_tag* poSelf) {
  poSelf->SecureDat = &SecureDat;
  poSelf->GetCmd = &GetCmd;
  poSelf->WorkCmd = &WorkCmd;
  poSelf->MakeCmd = nullptr;
  poSelf->SendCmd = &SendCmd;
  poSelf->SendDat = &SendDat;
  poSelf->WorkAck = &WorkAck;
  poSelf->RecvCmd = &RecvCmd;
  poSelf->RecvDat = &RecvDat;
  poSelf->ParsCmd = nullptr;
  poSelf->ParsCmdOnly = &ParsCmdOnly;
  poSelf->SomeEot = &SomeEot;
  poSelf->Done = &Done;
  poSelf->pvExtra = nullptr;
}

} // namespace

tBool PortSEtxInit(PortSEtx_tag* poSelf, void* poHandle, tPortCmd* poPC, procSELS_t procSELS) {
  if (!poSelf) return false;
  tTicks period = kPeriod;
  if (!poPC) poPC = moSEtxCmdDefs;
  poSelf->lCmdSign = poSelf->lCmdBeg = poSelf->lCmdEnd = 1;
  poSelf->oMaxRecv = poSelf->oMaxSend = 3;
  poSelf->fUseAK = true;
  poSelf->fDirtyAK = poSelf->fEnqSended = false;
  poSelf->pbCmd = poSelf->mbCmd;
  poSelf->pbCmdSave = poSelf->mbCmdSave;
  poSelf->lCmdMax = kCmdMax;
  poSelf->oType = 0;
  poSelf->oPCISEAdd = ePCInone;
  poSelf->oPortCmds.poPC = poPC;
  poSelf->oPortCmds.poPortWork = &poSelf->oPortWork;
  PutGenericSlots(poSelf);
  if (!procSELS || !procSELS(poSelf, poHandle, poPC)) return false;
  if (poSelf->lCmdMax > CmdRoom(poSelf)) return false; // frames would be written past mbCmd
  PortPeriod(poSelf, &period);
  return true;
}

const unsigned char* GetCmd(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tLen* plLen) {
  if (oPPCI < 0 || oPPCI >= ePCISEnum || !poSelf->oPortCmds.poPC) return nullptr;
  const tPortCmd& cmd = poSelf->oPortCmds.poPC[oPPCI];
  if (plLen) *plLen = cmd.oLen;
  return cmd.poByte;
}

tBool SecureDat(PortSEtx_tag* poSelf, unsigned char* pbCmd, tLen* plLen, tLen, tBool fSet, tLen lOfs) {
  const tLen sign = poSelf->lCmdSign;
  if (sign == 0) return true;
  if (fSet) {
    if (*plLen <= lOfs || sign > poSelf->lCmdMax || *plLen > poSelf->lCmdMax - sign) return false;
    pbCmd[*plLen] = XorSum(pbCmd, lOfs, *plLen);
    *plLen += sign;
    return true;
  }
  if (*plLen <= sign || *plLen - sign <= lOfs) return false;
  *plLen -= sign;
  return pbCmd[*plLen] == XorSum(pbCmd, lOfs, *plLen);
}

tBool WorkCmd(PortSEtx_tag* poSelf, void* poSEWCD) {
  tLen len = poSelf->MakeCmd ? poSelf->MakeCmd(poSelf, poSEWCD) : 0;
  tBool sent = poSelf->SendCmd && poSelf->SendCmd(poSelf, len);
  ClearCmd(poSelf, sent);
  return sent && poSelf->WorkAck && poSelf->WorkAck(poSelf, poSEWCD);
}

tBool SendCmd(PortSEtx_tag* poSelf, tLen lLen) {
  for (tSEtxInt tried = 0;;) {
    if (SendOnce(poSelf, lLen) == eAnAck) return true;
    if (++tried >= poSelf->oMaxSend) return GiveUp(poSelf);
  }
}

tBool SendDat(PortSEtx_tag* poSelf, tLen lLen) {
  return PortSecure(poSelf, &lLen, poSelf->lCmdMax, true, poSelf->lCmdBeg) &&
         PortSend(poSelf, poSelf->pbCmd, lLen, poSelf->oPCISEAdd) != 0;
}

tBool WorkAck(PortSEtx_tag* poSelf, void* poSEWCD) {
  tSEtxCmdId end = ePCISEetx;
  tBool done = poSelf->ParsCmd && poSelf->ParsCmd(poSelf, poSEWCD, 0, &end);
  if (!done) done = poSelf->RecvCmd && poSelf->RecvCmd(poSelf, end, poSelf->ParsCmdOnly, poSEWCD) != 0;
  ClearCmd(poSelf, false);
  return done;
}

tLen RecvCmd(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, procPCO_t procPCO, void* poSEWCD) {
  for (tSEtxInt tried = 0;;) {
    tLen len = poSelf->RecvDat ? poSelf->RecvDat(poSelf, oPPCI) : 0;
    const bool good = len != 0 && (!procPCO || procPCO(poSelf, poSEWCD, len));
    if (poSelf->fUseAK && !PortSendByte(poSelf, good ? ePCISEack : ePCISEnack)) break;
    if (good) return len;
    if (++tried >= poSelf->oMaxRecv) break;
  }
  return GiveUp(poSelf);
}

tLen RecvDat(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI) {
  constexpr tSEtxCmdId none = static_cast<tSEtxCmdId>(ePCInone);
  return PortSElcRecvDatEasyDo(poSelf, oPPCI,
                               oPPCI == ePCISEetx  ? ePCISEstx
                               : oPPCI == ePCISEso ? ePCISEsi
                                                   : none);
}

tBool ParsCmdOnly(PortSEtx_tag* poSelf, void* poSEWCD, tLen lLen) {
  return poSelf->ParsCmd && poSelf->ParsCmd(poSelf, poSEWCD, lLen, nullptr);
}

tBool SomeEot(PortSEtx_tag* poSelf, tBool fSend) {
  if (!fSend) {
    unsigned char b = 0;
    return PortRecvAll(poSelf, &b, 1) && b == PortFirstByte(poSelf, ePCISEeot);
  }
  PortSendByte(poSelf, ePCISEeot);
  PortClearIn(poSelf);
  return true;
}

void Done(PortSEtx_tag* poSelf) {
  static_assert(std::is_trivially_copyable_v<PortSEtx_tag>, "the port is zeroed as plain bytes");
  memset(poSelf, 0, sizeof *poSelf);
}

void ClearCmd(PortSEtx_tag* poSelf, tBool fSave) {
  const tLen room = CmdRoom(poSelf);
  if (fSave)
    memcpy(poSelf->pbCmdSave, poSelf->pbCmd, room);
  else
    memset(poSelf->pbCmdSave, 0, room);
  memset(poSelf->pbCmd, 0, room);
}

void ParsCmdCpy(tParsCmdCpy* poDes, const void* pvcSrc, tLen lSLen) {
  poDes->lOffered = lSLen;
  poDes->lCopied = std::min(lSLen, poDes->lCap);
  if (poDes->pvDst && pvcSrc && poDes->lCopied != 0) memcpy(poDes->pvDst, pvcSrc, poDes->lCopied);
}
