// The day's totals, and what else a till asks a terminal for.
#include "deal.h"
#include "testcard.h"
#include "util.h"
#include "version.h"

namespace zat {

namespace {

// The totals as "22" carries them: a count and a sum each for payments, refunds and cancellations.
constexpr size_t kCount = 4, kSum = 12;

tString TotalsField(const tTotals& oTotals) {
  tString o;
  for (const tSum* po : {&oTotals.oPaid, &oTotals.oRefunded, &oTotals.oCancelled}) {
    AppendStrPad(o, std::to_string(po->lCount).c_str(), kCount, '0', false);
    AppendStrPad(o, std::to_string(po->ulSum).c_str(), kSum, '0', false);
  }
  return o;
}

// The day held no longer than it takes to write it down: printing is slow, and another module may want it.
tLines ReadDay(const tCase& oCase, tLines (*Write)(const char*, const tString&, const tDay&)) {
  const tDay oDay(oCase.oRoot, oCase.oReq.oTId);
  return Write(oCase.oOp.pccName, oCase.oReq.oTId, oDay);
}

} // namespace

// The day is cleared in the same breath as it is added up: what is stored after that belongs to the next day.
void AnswerEndOfDay(tCase& oCase) {
  tLines oLines;
  tString oField;
  bool fStored = false;
  {
    tDay oDay(oCase.oRoot, oCase.oReq.oTId);
    oLines = MakeTotals(oCase.oOp.pccName, oCase.oReq.oTId, oDay);
    oField = TotalsField(TotalsOf(oDay));
    oDay.Clear();
    fStored = oDay.Save();
  }
  if (!fStored) return Refuse(oCase, oNotStored);
  oCase.oTalk.Say(eEFTPwidRonlrq);
  SayLines(oCase.oTalk, oLines);
  oCase.oTalk.Say(eEFTPwidRespDay, abisEFfin, oField);
  oCase.oTalk.End(true);
}

void AnswerTotals(tCase& oCase) {
  SayLines(oCase.oTalk, ReadDay(oCase, MakeTotals));
  oCase.oTalk.Say(eEFTPwidRespAmount);
  oCase.oTalk.End(true);
}

void AnswerReport(tCase& oCase) {
  SayLines(oCase.oTalk, ReadDay(oCase, MakeReport));
  oCase.oTalk.Say(eEFTPwidRfok);
  oCase.oTalk.End(true);
}

// The till learns which module it talks to.
void AnswerLogin(tCase& oCase) {
  tFields oFields(abisEFlet, "0");
  oCase.oTalk.Say(eEFTPwidLogok, oFields.Put(abisEFled, pccModule));
  oCase.oTalk.End(true);
}

// "0": broken off.
void AnswerBreak(tCase& oCase) {
  oCase.oTalk.Say(eEFTPwidBrkRes, abisEFsbr, "0");
  oCase.oTalk.End(false);
}

// The only data that this terminal has to give are those of a card read for the till ("MV01").
void AnswerDataRequest(tCase& oCase) {
  const tString oType = oCase.oReq.Text(abisEFdtt);
  tFields oFields(abisEFdtf, "1");
  oFields.Put(abisEFdtt, oType);
  if (oType == "MV01") oFields.Put(abisEFdtd, mcTestCard);
  oCase.oTalk.Say(eEFTPwidDtaRes, oFields);
  oCase.oTalk.End(true);
}

} // namespace zat
