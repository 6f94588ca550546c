// What is done to an earlier payment by its reference: reversed, voided, closed, shown again, confirmed.
#include "deal.h"

namespace zat {

namespace {

// Changes a row of the day by the request; *pulMoved receives the amount concerned. Null, or why it cannot be done.
typedef const tRefusal* (*procChange)(tCase&, tDayRow&, uint64_t* pulMoved);

tKind KindOf(const tDayRow& oRow) {
  const tOperation* po = FindOperation(oRow.oWId);
  return po ? po->oKind : eKnone;
}

const tRefusal* Reverse(tCase& oCase, tDayRow& oRow, uint64_t* pulMoved) {
  const uint64_t ulPart = oCase.oReq.Text(abisTRram).empty() ? oRow.Net() : oCase.oReq.Amount(abisTRram);
  if (oCase.oReq.Amount(abisTRamt) != oRow.ulAmount || ulPart > oRow.Net()) return &oWrongAmount;
  if (ulPart == 0) return &oNotAllowed; // nothing is left to take back
  oRow.ulReversed += ulPart;
  *pulMoved = ulPart;
  return nullptr;
}

const tRefusal* Void(tCase&, tDayRow& oRow, uint64_t* pulMoved) {
  if (oRow.fVoid || oRow.ulReversed > 0) return &oNotAllowed;
  oRow.fVoid = true;
  *pulMoved = oRow.ulAmount;
  return nullptr;
}

// A payment is closed with its amount or, as with the hotel bill of a pre-authorisation, with less; a reversal is
// closed as it was made.
const tRefusal* Close(tCase& oCase, tDayRow& oRow, uint64_t* pulMoved) {
  const uint64_t ulAmount = oCase.oReq.Amount(abisTRamt);
  const bool fReversal = oCase.oReq.oWId == eEFTPwidClRefRevs;
  if (oRow.fClosed || fReversal != (oRow.Net() < oRow.ulAmount)) return &oNotAllowed;
  if (ulAmount > oRow.ulAmount) return &oWrongAmount;
  if (!fReversal) oRow.ulAmount = ulAmount;
  oRow.fClosed = true;
  *pulMoved = ulAmount;
  return nullptr;
}

const tRefusal* Confirm(tCase&, tDayRow& oRow, uint64_t* pulMoved) {
  oRow.fConfirmed = true;
  *pulMoved = oRow.ulAmount;
  return nullptr;
}

const tRefusal* Show(tCase&, tDayRow& oRow, uint64_t* pulMoved) {
  *pulMoved = oRow.ulAmount;
  return nullptr;
}

// Finds the payment and changes it; the deal receives the row as it is then. A declined change leaves it alone.
const tRefusal* Apply(tCase& oCase, procChange Change, tDeal& oDeal) {
  tDay oDay(oCase.oRoot, oCase.oReq.oTId);
  tDayRow* poRow = oDay.Find(oCase.oReq.Text(abisTRrfn));
  if (!poRow) return &oNotFound;
  const tKind oKind = oCase.oOp.oKind;
  if (oKind != eKnone && oKind != KindOf(*poRow)) return &oNotAllowed;
  tDayRow oBefore = *poRow;
  if (const tRefusal* po = Change(oCase, *poRow, &oDeal.ulMoved)) return po;
  if (!IsApproved(oDeal.oOutcome)) *poRow = oBefore;
  oDeal.oRow = *poRow;
  oDeal.oCard = poRow->oCard;
  oDeal.lShift = oDay.lShift;
  return oDay.Save() ? nullptr : &oNotStored;
}

// "54" tells the till first that its reference was the trouble.
bool Applied(tCase& oCase, procChange Change, tDeal& oDeal) {
  const tRefusal* poWhy = Apply(oCase, Change, oDeal);
  if (poWhy == &oNotFound) oCase.oTalk.Say(eEFTPwidRfnoRef);
  if (poWhy) Refuse(oCase, *poWhy);
  return !poWhy;
}

void AnswerChange(tCase& oCase, procChange Change, const tOutcome& oOutcome) {
  tDeal oDeal(oOutcome);
  if (!Applied(oCase, Change, oDeal)) return;
  AskHost(oCase, oDeal);
  Finish(oCase, oDeal);
}

} // namespace

// Only the part to take back chooses the outcome: the amount repeats that of the payment, and a payment that was
// lost by its amount could never be reversed otherwise.
void AnswerReversal(tCase& oCase) {
  const bool fPart = !oCase.oReq.Text(abisTRram).empty();
  AnswerChange(oCase, Reverse, fPart ? OutcomeOf(oCase.oReq.Amount(abisTRram)) : OutcomeApproved());
}

void AnswerVoid(tCase& oCase) { AnswerChange(oCase, Void, OutcomeApproved()); }

void AnswerClosing(tCase& oCase) { AnswerChange(oCase, Close, OutcomeApproved()); }

void AnswerRepeat(tCase& oCase) { AnswerChange(oCase, Show, OutcomeApproved()); }

void AnswerConfirmation(tCase& oCase) {
  tDeal oDeal(OutcomeApproved());
  if (!Applied(oCase, Confirm, oDeal)) return;
  oCase.oTalk.Say(eEFTPwidRfok);
  oCase.oTalk.End(true);
}

} // namespace zat
