#include "exchange.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "SLogger.h"
#include "cardtext.h"
#include "logmask.h"
#include "util.h"
#include "utilf.h"

namespace zat {

namespace {

constexpr int kHeader = 2 + 10 + 2;
constexpr tTicks kGreetingMs = 30000;
constexpr tTicks kBlockMs = 30300;
constexpr int kGreetingMax = 29;
constexpr size_t kFinDayLines = 8;
constexpr int kIdleMs = 1; // the idle callback is called about every millisecond
// The module's state is looked at each time it has been silent for so long: eight wake-ups a second.
constexpr int kLookMs = 125;
constexpr char kNoId[] = "??????????";
constexpr char kEarly[] = "I3Timeout violation between inquiries from cash desk";

// The module will not write any more: it was ended by a signal or could not be executed. One that ended in another way
// may have left a helper of its own behind that still holds the pipe, so it is waited for as long as the limit says.
bool ModuleLost(void* handle) { return SysCallLost(handle); }

// After a break request the wait has no limit of its own, so it ends with the module in whatever way it ended.
bool ModuleEnded(void* handle) { return SysCallEnded(handle, nullptr); }

// Milliseconds until a limit is over, at least 1: the tick counter is coarser than that.
int LeftMs(tTicks start, tTicks limit, tTicks now) {
  tTicks passed = (now - start) * 1000 / PCperS();
  return static_cast<int>(std::max(limit, passed + 1) - passed);
}

const char* Bytes(const unsigned char* bytes) { return reinterpret_cast<const char*>(bytes); }

// Without memory for the log's copy the line is lost, and nothing else.
void LogMasked(const char* title, const unsigned char* message, size_t length) try {
  if (!GSWants(150)) return;
  WipedText copy(message, length);
  MaskForLog(copy);
  GSData(150, title, copy.oText.data(), static_cast<int>(length));
} catch (...) {}

void LogGreeting(const unsigned char* greeting, size_t length) try {
  WipedText copy(greeting, length);
  HideCards(copy.oText, 0);
  GSLog(150, "[MicroS] B: %s", copy.oText.c_str());
} catch (...) {}

} // namespace

Exchange::Exchange(MicroSMan& oSelf, char* pchIn, char* pchOut, FUN_IDLE pfIdle, void* pvData)
    : self(oSelf), in(pchIn), out(pchOut), idle(pfIdle), idleData(pvData) {
  if (self.fCanBreak) return;
  idle = nullptr;
  GSLog(100, "[eftp_do] block break func");
}

Exchange::~Exchange() { Leave(); }

void Exchange::Leave() {
  if (inside) --self.iIn;
  inside = false;
}

int Exchange::Run() {
  int state = static_cast<int>(self.oSts) << 16;
  ++self.iIn;
  inside = true;
  if (self.iIn != 1) return Close(state | eEFTEinuse);
  err = Steps();
  if (early) return RefuseEarly();
  eftp_msgmod(out, err, self.lCP);
  return Close(state | (err & 0xFFFF));
}

// The end of every call but a refusal for its time: the pause until the next request begins now.
int Exchange::Close(int result) {
  Leave();
  self.oTOmg.ModLocalTO(err == eEFTEfiner);
  self.oTOmg.SetReqTC();
  GSLog(100, "[eftp_do] out: %d", result);
  return changeRet(&self, out, result);
}

tEFTErr Exchange::Steps() {
  if (self.oSts & eEFTSbad) return eEFTEbadsts;
  // A header of any class is forwarded: what the module makes of it is the module's affair.
  if (in) EFTePars(in, workId, id, &dataLength);
  tEFTErr code = TakeRequest();
  if (early) return eEFTEnone; // Run answers it
  if (code == eEFTEnone && !self.oMSGD.pvExHandle) code = StartModule();
  if (code == eEFTEnone) code = SendRequest();
  if (code == eEFTEnone && out) code = AwaitBlock();
  return code;
}

// Settles whose exchange this is: a new one for a request, the open one for a poll or for the same terminal id.
tEFTErr Exchange::TakeRequest() {
  if (self.oMSGD.pvExHandle) return in && id != self.oId ? eEFTEbusy : eEFTEnone;
  if (!in) return eEFTEwrparams;
  LogBaseClear(&self.oPLlog);
  self.oWIdLst = workId;
  early = self.oTOmg.TooEarly();
  if (early) return eEFTEnone;
  self.oTOmg.GetLocalTO(&self.oCfg, workId);
  GSLog(150, "[MicroS] %s: %d, %d", self.oTOmg.oNameT.c_str(), static_cast<int>(self.oTOmg.lReqTOlimWok),
        static_cast<int>(self.oTOmg.lReqTOlimWbad));
  self.oId = id;
  return eEFTEnone;
}

// The answer to a request that comes before the pause is over. It does not restart the pause: a till that asks again
// and again would otherwise never get through.
int Exchange::RefuseEarly() {
  tString block;
  const tString text = kEarly;
  EFTPMakeHeader(block, eEFTPwidRubad, &id, &text);
  if (out) memcpy(out, block.data(), block.size());
  GSLog(150, "[MicroS] Not excerpt REQTO==%d!", static_cast<int>(self.oTOmg.lReqTOlimW));
  Leave();
  int result = static_cast<int>(self.oSts) << 16 | eEFTEfiner;
  GSLog(100, "[eftp_do] skip: %d", result);
  return changeRet(&self, out, result);
}

tEFTErr Exchange::StartModule() {
  self.fSent = false;
  bool open = self.oUP.Open();
  if (!open) GSErrno("MicroS", "cannot create the pipes of", self.oId.c_str());
  GSLog(100, "[MicroS] Open UP: %d", open ? 1 : 0);
  if (!open) return eEFTEupip;
  tString name = "[MonoS]", pipes = self.oUP.Export(), path = self.oIPath, client = self.oId;
  char* arguments[] = {name.data(), pipes.data(), path.data(), client.data(), nullptr};
  tProcECode code = MonoS(4, arguments, &self.oMSGD);
  // Not started, but the client id is taken: free it, or no later request of this terminal would ever start.
  if (code == ePECnaut) DoAuthE(&self.oMSGD);
  return self.oMSGD.pvExHandle ? AwaitGreeting() : eEFTEmmabs;
}

// The module says who it is before it takes a request. What it says is for the log alone.
tEFTErr Exchange::AwaitGreeting() {
  unsigned char greeting[kGreetingMax + 1] = {};
  int length = Read(greeting, kGreetingMax, kGreetingMs, nullptr);
  if (length == 0) {
    GSLog(150, "[MicroS] No HELLO response with TO=30s!");
    return eEFTElost; // pipes and module stay as they are: the next call goes on with them
  }
  LogGreeting(greeting, static_cast<size_t>(length));
  explicit_bzero(greeting, sizeof greeting);
  return eEFTEnone;
}

tEFTErr Exchange::SendRequest() {
  bool ready = self.oUP.IsReady();
  GSLog(100, "[MicroS] UP is: %d", ready ? 1 : 0);
  if (!ready) return eEFTEupip;
  if (!in) return eEFTEnone;
  int length = dataLength + kHeader;
  // Its result does not matter to this call: a module that did not get the request will not answer either.
  self.fSent |= self.oUP.WriteBlock(in, length, UnnamedPipes::eBTver0) != 0;
  LogMasked("[MicroS] WriteBlock: ", reinterpret_cast<unsigned char*>(in), static_cast<size_t>(length));
  return eEFTEnone;
}

tEFTErr Exchange::AwaitBlock() {
  blockLength = Read(self.mucBUF, sizeof self.mucBUF, kBlockMs, idle);
  if (blockLength == 0) {
    GSLog(150, "[MicroS] No any response with TO=30s!");
    return eEFTElost; // the exchange stays open: the answer may still come
  }
  // A block shorter than a header is read with zeros behind it, not with the rest of the block before it.
  if (blockLength < kHeader) memset(self.mucBUF + blockLength, 0, static_cast<size_t>(kHeader - blockLength));
  tString blockId;
  tEFTErr code = EFTePars(reinterpret_cast<char*>(self.mucBUF), workId, blockId, nullptr);
  try {
    LogBlock();
  } catch (...) { // no memory: what the log loses must not be lost to the till
  }
  if (code != eEFTEnone) return Finish();
  return HandOver();
}

// Waits for one block: its length, or 0 when the limit is over or the module is lost. Calls the idle callback, when
// there is one, between looks at the pipe; its wish for a break turns the wait into one for the answer to that.
int Exchange::Read(unsigned char* pbBuffer, int iLen, tTicks iMsWait, FUN_IDLE procIdle) {
  self.oUP.SetPeerCheck(ModuleLost, self.oMSGD.pvExHandle);
  tTicks start = TicksGet(), now = start; // read once a round: with a callback there is one every millisecond
  int silent = 0;
  bool deserted = false;
  int length = self.oUP.ReadBlock(pbBuffer, iLen, UnnamedPipes::eBTv0cb);
  while (length == 0 && !deserted && !TicksEnd(start, iMsWait, now)) {
    if (procIdle && procIdle(idleData) != 0) {
      length = Break();
      break;
    }
    int slice = std::min(procIdle ? kIdleMs : kLookMs, LeftMs(start, iMsWait, now));
    if (self.oUP.WaitIn(slice)) {
      length = self.oUP.ReadBlock(pbBuffer, iLen, UnnamedPipes::eBTv0cb);
    } else if ((silent += slice) >= kLookMs) {
      silent = 0;
      // In this order: what the module wrote in its last moment is still read.
      deserted = ModuleLost(self.oMSGD.pvExHandle) && !self.oUP.WaitIn(0);
    }
    if (length == 0) now = TicksGet();
  }
  self.oUP.SetPeerCheck(nullptr, nullptr);
  return length;
}

// Sends the break request and waits for the module's next block, whatever it is.
int Exchange::Break() {
  int length = do_eft_break(reinterpret_cast<char*>(self.mucBUF), self.oId);
  if (length == 0) return 0;
  self.oUP.WriteBlock(self.mucBUF, length, UnnamedPipes::eBTver0);
  GSData(150, "[MicroS] WriteBreak: ", Bytes(self.mucBUF), length);
  self.oUP.SetPeerCheck(ModuleEnded, self.oMSGD.pvExHandle);
  return self.oUP.ReadBlock(self.mucBUF, sizeof self.mucBUF, UnnamedPipes::eBTver0);
}

// Print lines are kept for the end of the day and not logged one by one; short status blocks are logged by name.
void Exchange::LogBlock() {
  const unsigned char* block = self.mucBUF;
  if (workId == eEFTPwidPrLine) {
    self.oPLlog.push(tString(Bytes(block), static_cast<size_t>(blockLength)));
    if (blockLength > kHeader && block[kHeader] != '0')
      GSLog(150, "[MicroS] Last Print Line N: %d", static_cast<int>(self.oPLlog.size()));
  } else if (workId >= eEFTPwidRfok && workId <= eEFTPwidRhldrq) {
    GSLog(150, "[MicroS] ReadBlock: %c-%c", block[0], block[1]);
  } else {
    LogMasked("[MicroS] ReadBlock: ", block, static_cast<size_t>(blockLength));
  }
}

// Hands a block that continues the exchange over to the till; no copy of card data stays here. A module that does not
// know the terminal id yet sends question marks: the till gets its own id in their place.
tEFTErr Exchange::HandOver() {
  constexpr int kIdAt = 2, kIdLength = sizeof kNoId - 1;
  memcpy(out, self.mucBUF, static_cast<size_t>(blockLength));
  explicit_bzero(self.mucBUF, static_cast<size_t>(blockLength));
  bool nameless = blockLength >= kIdAt + kIdLength && memcmp(out + kIdAt, kNoId, kIdLength) == 0;
  if (nameless && self.oId.size() == kIdLength) memcpy(out + kIdAt, self.oId.data(), kIdLength);
  return eEFTEnone;
}

// The last lines of an end of day go into the log, newest first: the totals that a shop argues about later.
void Exchange::LogFinDay() {
  size_t count = self.oPLlog.size();
  size_t shown = std::min(kFinDayLines, count);
  for (size_t k = shown; k > 0; --k) {
    char title[64];
    snprintf(title, sizeof title, "[MicroS] : FinDay PL %zu/%zu: ", count - shown + k, count);
    tString& line = self.oPLlog.top();
    LogMasked(title, reinterpret_cast<const unsigned char*>(line.data()), line.size());
    WipeText(line);
    self.oPLlog.pop();
  }
}

// The module has sent its end block: it ends by itself, and is waited for.
tEFTErr Exchange::Finish() {
  if (self.oWIdLst == eEFTPwidFinDay) LogFinDay();
  LogBaseClear(&self.oPLlog);
  // A module whose greeting came too late still waits for the request that was never sent: it must learn that none comes.
  self.oUP.HangUp();
  DoAuthE(&self.oMSGD);
  self.oUP.Close();
  GSLog(100, "[MicroS] Close UP");
  explicit_bzero(self.mucBUF, sizeof self.mucBUF);
  return workId == eEFTPwidEndOk ? eEFTEfinok : eEFTEfiner;
}

} // namespace zat
