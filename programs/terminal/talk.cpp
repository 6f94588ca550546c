#include "talk.h"
#include "deadline.h"
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

namespace zat {

namespace {

constexpr char mcUnknownId[] = "??????????";

// Bytes that no frame begins with on either wire.
tString Noise(long lBytes) {
  tString o;
  for (long l = 0; l < lBytes; ++l) o += static_cast<char>('a' + l % 26);
  return o;
}

// The same message with this amount of data, cut or filled with blanks.
tString Resized(const tString& oMsg, size_t lData) {
  tString oData = oMsg.size() > kHeadSize ? oMsg.substr(kHeadSize) : "";
  const tString oTId = oMsg.substr(kHeadTid, kTidSize);
  oData.resize(lData, ' ');
  tString oOut;
  EFTPMakeHeader(oOut, static_cast<tEFTPWorkId>(EFTPWId(oMsg[0], oMsg[1])), &oTId, &oData);
  return oOut;
}

} // namespace

void tTalk::Greet(const tString& oText) {
  if (oWire.Greets() && !oFaults[eFInoGreeting].On()) Put(oText, true);
}

bool tTalk::Listen(tRequest& oOut, int iMs) {
  const tDeadline oEnd(iMs);
  tString oMsg;
  while (!fOver && !oEnd.Over()) {
    const tGot oGot = oWire.Recv(oMsg, oEnd.Left(iMs));
    fOver = oGot == eGgone;
    if (oGot != eGmessage || !ReadRequest(oMsg, oOut)) continue;
    oTId = oFaults[eFIunknownId].On() ? mcUnknownId : oOut.oTId;
    return true;
  }
  return false;
}

bool tTalk::Say(tEFTPWorkId oWId, tFields& oFields) {
  if (oWId != eEFTPwidBrkRes) AnswerLateBreak();
  if (!fOver) Put(MakeMessage(oWId, oTId, oFields), false);
  return !fOver;
}

bool tTalk::Say(tEFTPWorkId oWId, const char* pccTag, const tString& oValue) {
  tFields oFields(pccTag, oValue);
  return Say(oWId, oFields);
}

bool tTalk::Say(tEFTPWorkId oWId) {
  tFields oNone;
  return Say(oWId, oNone);
}

void tTalk::End(bool fGood) {
  fEnded = Say(fGood ? eEFTPwidEndOk : eEFTPwidEndBad);
  fOver = true;
}

// A till that asks for a break waits without limit for the next block, whatever it is; "1" tells it that the
// operation can no longer be broken off and goes on.
void tTalk::AnswerLateBreak() {
  if (!fOver && !fBreakAsked) Wait(0, false);
  if (fOver || !fBreakAsked) return;
  fBreakAsked = false;
  Say(eEFTPwidBrkRes, abisEFsbr, "1");
}

tWaited tTalk::Wait(int iMs, bool fCanBreak) {
  const tDeadline oEnd(iMs);
  tString oMsg;
  do {
    if (fOver) return eWgone;
    const tGot oGot = oWire.Recv(oMsg, oEnd.Left(iMs));
    fOver = oGot == eGgone;
    if (oGot == eGmessage && oMsg.compare(0, 2, "33") == 0) {
      if (fCanBreak) return eWbreak;
      fBreakAsked = true;
    }
  } while (!oEnd.Over());
  return fOver ? eWgone : eWtime;
}

void tTalk::Die(int iSignal) {
  if (iSignal == 0) _exit(oFaults[eFIexitCode].On() ? static_cast<int>(oFaults[eFIexitCode].lAt) : 0);
  const rlimit oNoCore{0, 0}; // a death that was asked for must not litter the installation
  setrlimit(RLIMIT_CORE, &oNoCore);
  signal(iSignal, SIG_DFL);
  raise(iSignal);
  fOver = true; // the signal was one that does not kill
}

void tTalk::FallSilent(int iMs) {
  Wait(iMs, false);
  fOver = true;
}

// The faults due at this block that come before it or instead of it; true: instead.
bool tTalk::Disturbed(const tString& oMsg) {
  if (const tFault* po = oFaults.Due(eFIpause, lBlock)) Wait(static_cast<int>(po->lHow), false);
  if (const tFault* po = oFaults.Due(eFIdie, lBlock)) Die(static_cast<int>(po->lHow));
  if (const tFault* po = oFaults.Due(eFIsilent, lBlock)) FallSilent(static_cast<int>(po->lHow));
  if (fOver) return true;
  if (const tFault* po = oFaults.Due(eFInoise, lBlock)) fOver = !oWire.SendRaw(Noise(po->lHow));
  if (const tFault* po = oFaults.Due(eFIcut, lBlock)) {
    const tString oFrame = oWire.Frame(oMsg);
    oWire.SendRaw(oFrame.substr(0, po->lHow > 0 ? static_cast<size_t>(po->lHow) : oFrame.size() / 2));
    fOver = true;
  }
  return fOver;
}

void tTalk::Put(const tString& oMsg, bool fGreeting) {
  if (!fGreeting) ++lBlock;
  const tFault* poSize = fGreeting ? nullptr : oFaults.Due(eFIsize, lBlock);
  const tString& oOut = poSize ? Resized(oMsg, static_cast<size_t>(poSize->lHow)) : oMsg;
  if (Disturbed(oOut)) return;
  fOver = !oWire.Send(oOut) || (oFaults.Due(eFIduplicate, lBlock) && !oWire.Send(oOut));
}

} // namespace zat
