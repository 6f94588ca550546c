#include "EFTPWork.h"
#include "EFTPTable.h"
#include "MiscFunc.h"
#include "PortCalls.h"
#include "PortSElc.h"
#include "SLogger.h"
#include "gabids.h"
#include "logmask.h"
#include "ssqueeze.h"
#include "util.h"
#include <cstdio>
#include <cstring>
#include <new>

using namespace zat;

namespace {

constexpr char kEsc = 0x1B;          // closes a variable field; alone it stands for an absent one
constexpr int32_t kTextLenMax = 254; // longest data whose length is written as text
constexpr tTicks kBudget = 15000;    // ticks for a reply, over all attempts

// Running out of memory is a failure like another: the work's "nothing", not an exception in somebody's
// process.
template<class Work> auto OrNothing(Work oWork) noexcept -> decltype(oWork()) {
  try {
    return oWork();
  } catch (const std::bad_alloc&) { return {}; }
}

} // namespace

// ---- header -----------------------------------------------------------------------------------------------

namespace {

void AddHeader(tString& oMsg, tEFTPWorkId oWId, const tString* poId, const tString* poData) {
  oMsg += static_cast<char>(oWId >> 8);
  oMsg += static_cast<char>(oWId);
  if (poId && !poId->empty())
    AppendStrPad(oMsg, poId->c_str(), kTidSize, '0', false);
  else
    oMsg.append(kTidSize, '?');

  int32_t len = poData ? static_cast<int32_t>(poData->length()) : 0;
  tString field;
  if (len <= kTextLenMax) {
    SSqueeze::fmtLongToString(len, field, 2, SSqueeze::eFhexajr, '0');
  } else {
    const char low = static_cast<char>(len);
    len >>= 8; // for 255 bytes nothing is left, and below they are not appended
    field = {static_cast<char>(len), low};
  }
  oMsg += field;
  if (len != 0) oMsg += *poData;
}

} // namespace

uint64_t EFTPMakeHeader(tString& oMsg, tEFTPWorkId oWId, const tString* poId, const tString* poData) {
  const size_t before = oMsg.length();
  try {
    AddHeader(oMsg, oWId, poId, poData);
  } catch (const std::bad_alloc&) { oMsg.resize(before); }
  return oMsg.length();
}

uint64_t EFTPParsDLen(const unsigned char* pbCmd, size_t lD, char* poFind) {
  if (pbCmd[0] >= '0') return GetNumbers(pbCmd, lD, &IsTo, 16, poFind, nullptr);
  if (poFind) *poFind = 1;
  return pbCmd[1] + pbCmd[0] * 256u;
}

// ---- building ---------------------------------------------------------------------------------------------

namespace {

// A text on its way into a message. It may be a track, so nothing of it stays in memory; the room is taken at
// once, because a text that grows leaves copies behind.
struct tWiped : tString {
  explicit tWiped(size_t lRoom) { reserve(lRoom); }
  ~tWiped() { WipeText(*this); }
};
constexpr size_t kValueRoom = 128; // the longest value of a usual message

// Reads a value as text. A number that is read as one is written in digits from then on (*piMode).
int ReadValue(SqueezeT* poST, const char* pccTag, int* piMode, tString& oValue) {
  oValue.clear();
  const SSqueeze id = poST->Find(pccTag);
  if (!(*piMode & eEFTPppMlng)) return poST->GetData(id, &oValue);
  long number = 0;
  const int found = poST->GetLong(id, number);
  if (found != eDTlong) return found;
  *piMode |= eEFTPppMdig;
  return SSqueeze::fmtLongToString(number, oValue, 0, SSqueeze::eFdecajl, ' ') != 0 ? found : eDTwrong;
}

bool WriteValue(tString& oStr, const tString& oValue, size_t lWidth, int iMode) {
  const bool digits = iMode & eEFTPppMdig;
  if (lWidth == 0 || (iMode & eEFTPppMvar))
    oStr += oValue;
  else if (AppendStrPad(oStr, oValue.c_str(), lWidth, digits ? '0' : ' ', !digits) == 0)
    return false;
  if (iMode & eEFTPppMvar) oStr += kEsc;
  return true;
}

// One parameter; oValue is scratch, so that a whole message needs no string of its own for each field.
bool AddP(tPadsData* poPD, tString& oStr, const char* pccTag, size_t lWidth, int iMode, tString& oValue) {
  GSLog(100, "[MicroM] try EFTPAddP: %s", pccTag);
  switch (ReadValue(poPD->poSTin, pccTag, &iMode, oValue)) {
  case eDTpdata:
  case eDTlong: return WriteValue(oStr, oValue, lWidth, iMode);
  case eDTnull:
  case eDTpempel:
    if (iMode & eEFTPppMopta) return true;
    if (iMode & eEFTPppMopt) oStr += kEsc;
    return iMode & eEFTPppMopt;
  default: return false;
  }
}

// A payment's parameters must be texts: a number in their place is not written as one, it refuses the message
// or counts as absent.
bool AddText(tPadsData* poPD, tString& oStr, const tEFTPField& oField, tString& oValue) {
  oValue.clear();
  const SSqueeze id = poPD->poSTin->Find(*oField.ppccTag);
  if (poPD->poSTin->GetData(id, &oValue) != eDTpdata) return oField.oMode & eEFTPppMopta;
  if (oField.lMakeMax != 0 && (oValue.empty() || oValue.length() > oField.lMakeMax)) return false;
  if (oField.lWidth == 0)
    oStr += oValue;
  else
    AppendStrPad(oStr, oValue.c_str(), oField.lWidth, '0', false);
  return true;
}

bool AddField(tPadsData* poPD, tString& oStr, const tEFTPField& oField, tString& oValue) {
  switch (oField.oMake) {
  case eMakeText: return AddText(poPD, oStr, oField, oValue);
  case eMakeBehind:
    if (oStr.empty()) return true;
    break;
  case eMakeAdd: break;
  }
  return AddP(poPD, oStr, *oField.ppccTag, oField.lWidth, oField.oMode, oValue);
}

// Appends a control sequence as the zero-terminated text that it is stored as.
void AddSequence(PortSEtx_tag* poSelf, tString& oMsg, tSEtxCmdId oPPCI) {
  const unsigned char* pb = PortGetCmd(poSelf, oPPCI, nullptr);
  if (pb) oMsg += reinterpret_cast<const char*>(pb);
}

bool MakeData(tPadsData* poPD, tString& oData) {
  const tEFTPRow* row = EFTPRowOf(poPD->oPWI);
  if (!row || !poPD->poSTin) return false;
  tWiped value(kValueRoom);
  for (const tEFTPField& field : row->oFields)
    if (!AddField(poPD, oData, field, value)) return false;
  return true;
}

tLen MakeCmd(PortSEtx_tag* poSelf, tPadsData* pads) {
  tWiped msg(kCmdMax + kCmdSlack), data(kCmdMax);
  tString tid;
  if (poSelf->lCmdBeg != 0) AddSequence(poSelf, msg, ePCISEstx);
  if (pads->poSTin->GetData(pads->poSTin->Find(abisTMtid), &tid) != eDTpdata || tid.empty()) {
    GSLog(100, "[EFTPMakeCmd] abisTMtid is absent");
    return 0;
  }
  const tEFTPWorkId id = MakeData(pads, data) ? pads->oPWI : eEFTPwidNone;
  // The room check leaves the header out, as it always has: pbCmd is larger than kCmdMax by that much.
  static_assert(kCmdSlack >= kHeadSize);
  const tLen framing = poSelf->lCmdBeg + poSelf->lCmdEnd + poSelf->lCmdSign;
  if (id != eEFTPwidNone && framing <= kCmdMax && data.length() <= kCmdMax - framing) {
    EFTPMakeHeader(msg, id, &tid, &data);
    if (poSelf->lCmdEnd != 0) AddSequence(poSelf, msg, ePCISEetx);
    if (msg.length() <= CmdRoom(poSelf)) { // a terminal id of any length fits the store, but not the buffer
      memcpy(poSelf->pbCmd, msg.data(), msg.length());
      return msg.length();
    }
  }
  GSLog(100, "[EFTPMakeCmd] oWId: %X, oData.length( ): %d", static_cast<unsigned>(id),
        static_cast<int>(data.length()));
  return 0;
}

} // namespace

bool EFTPAddP(tPadsData* poPD, tString* poStr, const char* oAbis, size_t oAbisL, tEFTPppMode oMode) {
  return OrNothing([&] {
    tWiped value(kValueRoom);
    return AddP(poPD, *poStr, oAbis, oAbisL, oMode, value);
  });
}

bool EFTPMakeData(tPadsData* poPD, tString& oData) {
  oData.clear();
  return OrNothing([&] { return MakeData(poPD, oData); });
}

tLen EFTPMakeCmd(PortSEtx_tag* poSelf, void* poPPWCD) {
  tPadsData* pads = static_cast<tPadsData*>(poPPWCD);
  return pads && pads->poSTin ? OrNothing([&] { return MakeCmd(poSelf, pads); }) : 0;
}

// ---- the frame --------------------------------------------------------------------------------------------

namespace {

void WriteLinkLog(PortSEtx_tag* poSelf, const char* pccLine, size_t lLen) {
  PortWork_tag& link = poSelf->oPortWork;
  if (link.WriteLog) link.WriteLog(&link, pccLine, lLen);
}

// "[LRC]{set}3A|00", "[LRC]{cmp}3A|3B", or "{error}" where nothing could be computed.
void LogLrc(PortSEtx_tag* poSelf, bool fSet, bool fComputed, unsigned char bLrc, unsigned char bReceived) {
  const char* what = fSet ? "[LRC]{set}" : "[LRC]{cmp}";
  char line[32];
  const int len = fComputed ? snprintf(line, sizeof line, "%s%02X|%02X", what, bLrc, bReceived)
                            : snprintf(line, sizeof line, "%s{error}", what);
  WriteLinkLog(poSelf, line, static_cast<size_t>(len));
}

bool SetLrc(PortSEtx_tag* poSelf, unsigned char* pbCmd, tLen* plLen, tLen lOfs) {
  const tLen len = *plLen, sign = poSelf->lCmdSign, end = poSelf->lCmdEnd;
  const bool fits = len > lOfs && len >= end && sign <= poSelf->lCmdMax && len <= poSelf->lCmdMax - sign;
  if (fits) {
    pbCmd[len] = XorSum(pbCmd, lOfs, len - end);
    *plLen += sign;
  }
  LogLrc(poSelf, true, fits, fits ? pbCmd[len] : 0, 0);
  return fits;
}

bool CheckLrc(PortSEtx_tag* poSelf, const unsigned char* pbCmd, tLen lLen, tLen lMax, tLen lOfs) {
  const tLen sign = poSelf->lCmdSign, tail = poSelf->lCmdEnd + sign;
  const tLen have = lMax < poSelf->lCmdMax ? lMax : poSelf->lCmdMax;
  const bool there = lLen > sign && lLen - sign > lOfs && lLen <= have && tail <= have - lLen;
  const unsigned char lrc = there ? XorSum(pbCmd, lOfs, lLen) : 0;
  const unsigned char received = there ? pbCmd[lLen + poSelf->lCmdEnd] : 0;
  LogLrc(poSelf, false, there, lrc, received);
  return there && lrc == received;
}

// The start sequence at the front of pbCmd, whatever came before it dropped.
bool RecvStart(PortSEtx_tag* poSelf) {
  const tLen beg = poSelf->lCmdBeg;
  if (beg == 0) return true;
  unsigned flags = 0;
  const tLen count = PortRecv(poSelf, poSelf->pbCmd, poSelf->lCmdMax, ePCISEstx, &flags);
  if (count < beg || !Found(flags)) return false;
  if (count > beg) {
    memmove(poSelf->pbCmd, poSelf->pbCmd + (count - beg), beg);
    GSLog(150, "[EFTPRecvDat] recd %d bytes before packet", static_cast<int>(count - beg));
  }
  return true;
}

} // namespace

tBool EFTPSecureDat(PortSEtx_tag* poSelf, unsigned char* pbCmd, tLen* plLen, tLen lMax, char fSet,
                    tLen lOfs) {
  if (poSelf->lCmdSign == 0) {
    WriteLinkLog(poSelf, "[LRC]{skip}", 9); // "[LRC]{ski": readers of link logs know the line in this form
    return true;
  }
  return fSet ? SetLrc(poSelf, pbCmd, plLen, lOfs) : CheckLrc(poSelf, pbCmd, *plLen, lMax, lOfs);
}

tLen EFTPRecvDat(PortSEtx_tag* poSelf, tSEtxCmdId) {
  const tLen head = poSelf->lCmdBeg + kHeadSize, tail = poSelf->lCmdEnd + poSelf->lCmdSign;
  const tLen max = poSelf->lCmdMax;
  unsigned char* const cmd = poSelf->pbCmd;
  if (head + tail > max || !RecvStart(poSelf) || !PortRecvAll(poSelf, cmd + poSelf->lCmdBeg, kHeadSize))
    return 0;

  char found = 0;
  const tLen data = EFTPParsDLen(cmd + poSelf->lCmdBeg + kHeadLen, 2, &found);
  if (!found) return 0;
  if (data > max - head - tail) {
    GSLog(150, "[EFTPRecvDat] len value is too long: %d", static_cast<int>(data));
    return 0;
  }
  tLen len = head + data;
  if (!PortRecvAll(poSelf, cmd + head, data) || !PortRecvAll(poSelf, cmd + len, tail)) return 0;
  // The frame ends here, and the check must not look further.
  if (tail != 0 && !PortSecure(poSelf, &len, head + data + tail, false, poSelf->lCmdBeg)) return 0;
  return head + data + tail;
}

tBool EFTPmEot(PortSEtx_tag* poSelf, char fSend) {
  if (fSend) {
    PortSendByte(poSelf, ePCISEeot);
    return true;
  }
  unsigned char b = 0;
  if (!PortRecvAll(poSelf, &b, 1)) return false;
  if (b == PortFirstByte(poSelf, ePCISEeot)) return true;
  poSelf->oPortWork.iPreReaded = b;
  return false;
}

// ---- parsing ----------------------------------------------------------------------------------------------

namespace {

// The fields of a row into the store. *pcFlag: the first data byte, where a group without a parser of its own
// carries its flag.
bool ParsFields(SqueezeT* poST, const tEFTPRow& oRow, unsigned char** ppbPos, size_t* plLeft, char* pcFlag) {
  if (*plLeft != 0) *pcFlag = static_cast<char>(**ppbPos);
  return EFTPCutFields(oRow, plLeft, [&](const tEFTPField& field, size_t len) {
    return EFTPParsP(poST, ppbPos, plLeft, *field.ppccTag, len, field.oMode);
  });
}

bool ParsBody(SqueezeT* poST, const tEFTPRow& oRow, unsigned char* pbPos, size_t lLeft, char* pcFlag) {
  switch (oRow.oBody) {
  case eBodyResp: return EFTPParsPResp(poST, &pbPos, &lLeft, pcFlag);
  case eBodyPrLine: return EFTPParsPPrLine(poST, &pbPos, &lLeft, pcFlag);
  case eBodyRubad: return EFTPParsPRubad(poST, &pbPos, &lLeft);
  case eBodyInfo: {
    const tEFTPWorkId id = EFTPParsPInfo(poST, &pbPos, &lLeft);
    *pcFlag = id == eEFTPwidRespInfo ? oRow.cVariant : 0;
    return id != eEFTPwidNone;
  }
  case eBodyFields: break;
  }
  return ParsFields(poST, oRow, &pbPos, &lLeft, pcFlag);
}

} // namespace

bool EFTPParsData(SqueezeT* poST, tEFTPWorkId& oPWI, const unsigned char* pbData, size_t lLen) {
  const tEFTPRow* row = EFTPRowOf(oPWI);
  char flag = 0;
  // The parsers take a position in a writable buffer and never write through it.
  if (!row || !poST || !ParsBody(poST, *row, const_cast<unsigned char*>(pbData), lLen, &flag)) return false;
  if (row->cVariant != 0 && flag == row->cVariant) oPWI = EFTPVariantOf(*row, oPWI);
  return true;
}

tBool EFTPParsCmd(PortSEtx_tag* poSelf, void* poPPWCD, tLen lLen, tSEtxCmdId* poPPCI) {
  if (poPPCI) *poPPCI = ePCISEetx;
  tPadsData* pads = static_cast<tPadsData*>(poPPWCD);
  const tLen beg = poSelf->lCmdBeg, framing = beg + poSelf->lCmdEnd + poSelf->lCmdSign;
  if (!pads || !pads->poSTout || lLen < framing + kHeadSize || lLen > CmdRoom(poSelf)) return false;

  const unsigned char* msg = poSelf->pbCmd + beg;
  const size_t data = lLen - framing - kHeadSize;
  pads->oPWI =
      static_cast<tEFTPWorkId>(EFTPWId(static_cast<char>(msg[kHeadId]), static_cast<char>(msg[kHeadId + 1])));
  if (!pads->poSTout->PutData(abisTMtid, msg + kHeadTid, kTidSize).ss_get()) return false;
  return EFTPParsDLen(msg + kHeadLen, 2, nullptr) == data &&
         EFTPParsData(pads->poSTout, pads->oPWI, msg + kHeadSize, data);
}

// ---- set-up -----------------------------------------------------------------------------------------------

tBool EFTPWorkInit(PortSEtx_tag* poSelf, void* poHandle, tPortCmd* poPC, procSELS_t procSELS, char fLow) {
  if (!PortSEtxInit(poSelf, poHandle, poPC ? poPC : moEFTPCmdDefs, procSELS)) return false;
  poSelf->lCmdSign = fLow ? 1 : 0;
  poSelf->lCmdBeg = poSelf->lCmdEnd = fLow ? 2 : 0;
  poSelf->fUseAK = poSelf->fDirtyAK = fLow ? 1 : 0;
  poSelf->oMaxRecv = poSelf->oMaxSend = fLow ? 3 : 1;
  poSelf->SomeEot = fLow ? &EFTPmEot : &PortSElcSomeEotStub;
  poSelf->MakeCmd = &EFTPMakeCmd;
  poSelf->ParsCmd = &EFTPParsCmd;
  poSelf->SecureDat = &EFTPSecureDat;
  poSelf->RecvDat = &EFTPRecvDat;
  tTicks period = kBudget / poSelf->oMaxRecv;
  PortPeriod(poSelf, &period);
  if (poSelf->lCmdMax < kCmdMax) {
    GSLog(300, "[EFTPWorkInit] %d < %d", static_cast<int>(poSelf->lCmdMax), static_cast<int>(kCmdMax));
    return false;
  }
  return true;
}
