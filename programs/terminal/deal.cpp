#include "deal.h"
#include <csignal>

namespace zat {

namespace {

constexpr int kSilence = 40000; // longer than a till waits for a block, ms
constexpr char mcRubles[] = "643", mcMerchant[] = "900000000000001";

// What the holder has left: a simulated card never runs dry.
constexpr char mcBalance[] = "000000150000";

void FinishLost(tCase& oCase, tEnding oEnding) {
  if (oEnding == eEkilled) return oCase.oTalk.Die(SIGKILL);
  oCase.oTalk.FallSilent(kSilence);
}

} // namespace

bool IsApproved(const tOutcome& oOutcome) {
  return oOutcome.oEnding != eEdeclined && oOutcome.oEnding != eEfailed && oOutcome.oEnding != eEnoCard;
}

void AskHost(tCase& oCase, const tDeal& oDeal) {
  if (!(oCase.oOp.uFlags & eOonline) || !oDeal.oOutcome.fOnline) return;
  oCase.oTalk.Say(eEFTPwidRonlrq);
  if (oDeal.oOutcome.iDelayMs > 0) oCase.oTalk.Wait(oDeal.oOutcome.iDelayMs, false);
}

void SayLines(tTalk& oTalk, const tLines& oLines) {
  const tFault& oCount = oTalk.Faults()[eFIprintLines];
  const tLines oAll = oCount.On() ? Fitted(oLines, static_cast<size_t>(oCount.lAt)) : oLines;
  for (const tString& oLine : oAll) {
    tFields oFields(abisEFsln, &oLine == &oAll.back() ? "1" : "0");
    if (!oTalk.Say(eEFTPwidPrLine, oFields.Put(abisEFpln, oLine))) return;
  }
}

void SayResponse(tCase& oCase, const tDeal& oDeal) {
  const tDayRow& oRow = oDeal.oRow;
  const char cOperation = static_cast<char>(oCase.oReq.oWId); // the code's second character names it
  tFields oFields(abisEFcod, tString(1, cOperation));
  oFields.Put(abisTRamt, std::to_string(oDeal.ulMoved)).Put(abisTRccd, mcRubles).Put(abisTRdtt, oRow.oWhen);
  oFields.Put(abisTMmid, mcMerchant).Put(abisTRrfn, oRow.oRef).Put(abisEFrcd, oDeal.oOutcome.pccCode);
  oFields.Put(abisTRacd, IsApproved(oDeal.oOutcome) ? oRow.oAuth : "").Put(abisTRpex, oDeal.oCard);
  oFields.Put(abisEFctp, oRow.oCardType).Put(abisEFmsg, oDeal.oOutcome.pccText);
  if (oCase.oReq.oWId == eEFTPwidBalanceI && IsApproved(oDeal.oOutcome)) oFields.Put(abisEFrad, mcBalance);
  oCase.oTalk.Say(eEFTPwidRespons, oFields);
}

void Finish(tCase& oCase, const tDeal& oDeal) {
  const tOutcome& o = oDeal.oOutcome;
  if (o.oEnding == eEkilled || o.oEnding == eEsilent) return FinishLost(oCase, o.oEnding);
  if (o.oEnding == eEfailed || o.oEnding == eEnoCard) return Refuse(oCase, {o.pccCode, o.pccText});
  const bool fGood = IsApproved(o);
  if (o.oEnding == eEsignature) oCase.oTalk.Say(eEFTPwidRhldrq);
  SayLines(oCase.oTalk, MakeSlip({oCase.oReq.oTId, oDeal.lShift, oCase.oOp.pccName, oDeal.oRow, oDeal.ulMoved,
                                  o.pccCode, o.pccText, oDeal.oHolder, fGood}));
  SayResponse(oCase, oDeal);
  oCase.oTalk.End(fGood);
}

} // namespace zat
