// Payments: the sale and everything that is taken from or given to a card in the same way.
#include "deadline.h"
#include "deal.h"
#include "testcard.h"
#include "util.h"

namespace zat {

namespace {

constexpr uint64_t kPinFrom = 100000; // 1000.00: smaller payments go without the PIN
constexpr int kCardWait = 60000;      // how long a card is waited for, ms
constexpr int kCardSign = 10000;      // how often "55" tells the till that it is still waited for, ms
constexpr size_t kPan = 19;           // digits of the longest card number
constexpr int kShown = 4;             // of which this many stay readable

const char* CardType(const tString& oPan) {
  switch (oPan[0]) {
  case '2': return "MIR";
  case '4': return "VISA";
  case '5': return "MASTERCARD";
  default: return "CARD";
  }
}

// The track that the till has read, or the test card's. False: that is not a card.
bool ReadTrack(tCase& oCase, tDeal& oDeal) {
  tString oTrack = oCase.oReq.Text(abisTRtr2), oPan, oExpiry, oService, oSecret;
  if (oTrack.empty()) oTrack = mcTestCard;
  if (PortionTrack2opt(oTrack, oPan, oExpiry, oService, oSecret) != 0 || oPan.size() > kPan) return false;
  oDeal.oCard = oPan + "=" + oExpiry;
  oDeal.oRow.oCardType = CardType(oPan);
  MaskPAN(oPan, kShown, '*');
  oDeal.oRow.oCard = oPan + "=" + oExpiry;
  return true;
}

// The time until the card is presented. A till must hear something meanwhile, or it counts the link as lost.
tWaited WaitForCard(tTalk& oTalk, int iMs) {
  const tDeadline oEnd(iMs);
  tWaited oWaited = oTalk.Wait(oEnd.Left(kCardSign), true);
  while (oWaited == eWtime && !oEnd.Over()) {
    oTalk.Say(eEFTPwidRhldrq);
    oWaited = oTalk.Wait(oEnd.Left(kCardSign), true);
  }
  return oWaited;
}

// False: the till has broken the payment off, or has gone. Only here a break is in time; with a card that the till
// itself has read there is nothing to wait for.
bool CardPresented(tCase& oCase, const tOutcome& oOutcome) {
  const tFault& oPause = oCase.oTalk.Faults()[eFIcard];
  const bool fNever = oOutcome.oEnding == eEnoCard;
  if (!fNever && !oCase.oReq.Text(abisTRtr2).empty()) return true;
  const int iSlow = oPause.On() ? static_cast<int>(oPause.lAt) : 0;
  const tWaited oWaited = WaitForCard(oCase.oTalk, fNever ? kCardWait : iSlow);
  if (oWaited == eWbreak) AnswerBreak(oCase);
  return oWaited == eWtime;
}

// Gives the payment its reference and stores it when it moves money. False: the day could not be stored.
bool Store(tCase& oCase, tDeal& oDeal) {
  tDay oDay(oCase.oRoot, oCase.oReq.oTId);
  tDayRow& oRow = oDeal.oRow;
  oRow.oRef = oDay.NextRef();
  oRow.oAuth = oCase.oReq.Text(abisTRacd); // an operation without the host brings the code along
  if (oRow.oAuth.empty()) oRow.oAuth = oRow.oRef.substr(oRow.oRef.size() - 6);
  oDeal.lShift = oDay.lShift;
  if (IsApproved(oDeal.oOutcome) && oCase.oOp.oKind != eKinfo) oDay.oRows.push_back(oRow);
  return oDay.Save();
}

tString Now() {
  tDateTame oNow;
  oNow.Fill(true);
  tString o;
  oNow.Get(o, eDTTasis);
  return o;
}

tHolder AskHolder(tCase& oCase, const tDeal& oDeal) {
  if (oDeal.oOutcome.oEnding == eEsignature) return eHsignature;
  if (!(oCase.oOp.uFlags & eOpin) || oDeal.ulMoved < kPinFrom) return eHnothing;
  oCase.oTalk.Say(eEFTPwidRpinrq);
  return eHpin;
}

} // namespace

void AnswerPayment(tCase& oCase) {
  const uint64_t ulAmount = oCase.oReq.Amount(abisTRamt);
  const tOutcome& o = OutcomeOf(ulAmount);
  tDeal oDeal(o);
  oDeal.oRow.oWId = oCase.oReq.oWId;
  oDeal.oRow.ulAmount = oDeal.ulMoved = ulAmount;
  oDeal.oRow.oWhen = Now();
  if (o.oEnding == eEfailed && !o.fOnline) return Finish(oCase, oDeal); // fails before a card is asked for
  if (!ReadTrack(oCase, oDeal)) return Refuse(oCase, oBadCard);
  if (!CardPresented(oCase, o)) return;
  oDeal.oHolder = AskHolder(oCase, oDeal);
  AskHost(oCase, oDeal);
  if (oCase.oTalk.Over()) return; // nobody is left to pay
  if (o.oEnding != eEfailed && o.oEnding != eEnoCard && !Store(oCase, oDeal))
    return Refuse(oCase, oNotStored);
  Finish(oCase, oDeal);
}

} // namespace zat
