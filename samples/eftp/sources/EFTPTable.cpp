#include "EFTPTable.h"
#include "gabids.h"

namespace zat {
namespace {

constexpr auto kDigOpta = static_cast<tEFTPppMode>(eEFTPppMdig | eEFTPppMopta);

// ---- the kinds of field, both directions at once ----

// Text, blank-filled on the right.
constexpr tEFTPField Text(const char* const* tag, uint16_t width) {
  return {tag, width, eEFTPppMdef, eTakeFixed, width, eMakeAdd, 0};
}
// Digits, zero-filled on the left.
constexpr tEFTPField Digits(const char* const* tag, uint16_t width) {
  return {tag, width, eEFTPppMdig, eTakeFixed, width, eMakeAdd, 0};
}
// Closed by ESC; a lone ESC when absent. Only a parser limits its length.
constexpr tEFTPField Var(const char* const* tag, uint16_t limit) {
  return {tag, 0, eEFTPppMoptv, eTakeVar, limit, eMakeAdd, 0};
}
// The last field, without width or end mark.
constexpr tEFTPField Rest(const char* const* tag, tEFTPppMode mode, uint16_t limit = 0) {
  return {tag, 0, mode, eTakeRest, limit, eMakeAdd, 0};
}
// The reversed amount, at the end when there is one.
constexpr tEFTPField Reversed(const char* const* tag, tFieldTake take) {
  return {tag, 12, kDigOpta, take, 12, eMakeAdd, 0};
}

// ---- the data parts ----

constexpr tEFTPField kPayment[] = {
    {&abisTRamt, 12, eEFTPppMdig, eTakeFixed, 12, eMakeText, 0},
    {&abisTRtr2, 0, eEFTPppMopta, eTakeRest, 0, eMakeText, 37}, // track 2 has 37 characters at most
};
constexpr tEFTPField kByRef[] = {Text(&abisTRrfn, 12)};
constexpr tEFTPField kReport[] = {Text(&abisTMrtp, 1)};
constexpr tEFTPField kReversal[] = {Text(&abisTRrfn, 12), Digits(&abisTRamt, 12),
                                    Reversed(&abisTRram, eTakeMore)};
constexpr tEFTPField kOffline[] = {Digits(&abisTRamt, 12), Text(&abisTRacd, 6),
                                   Rest(&abisTRtr2, eEFTPppMopta)};
constexpr tEFTPField kTotals[] = {Text(&abisTRrfn, 12), Digits(&abisTRamt, 12)};
constexpr tEFTPField kResponse[] = {
    Text(&abisEFcod, 1),    Digits(&abisTRamt, 12), Text(&abisTRccd, 3), Text(&abisTRdtt, 14),
    Digits(&abisTMmid, 15), Text(&abisTRrfn, 12),   Text(&abisEFrcd, 2), Var(&abisTRacd, 6),
    Var(&abisTRpex, 25),    Var(&abisEFctp, 16),    Var(&abisEFmsg, 60), Rest(&abisEFrad, eEFTPppMopta, 60),
};
constexpr tEFTPField kClosing[] = {Digits(&abisTRamt, 12), Text(&abisTRacd, 6), Text(&abisTRrfn, 12),
                                   Rest(&abisEFctp, eEFTPppMdef, 16)};
constexpr tEFTPField kClosingRev[] = {Text(&abisTRrfn, 12), Digits(&abisTRamt, 12), Text(&abisTRacd, 6),
                                      Var(&abisEFctp, 16), Reversed(&abisTRram, eTakeExact)};
constexpr tEFTPField kRefusal[] = {Text(&abisEFecd, 2), Rest(&abisEFmsg, eEFTPppMopta)};
constexpr tEFTPField kPrintLine[] = {Text(&abisEFsln, 1), Rest(&abisEFpln, eEFTPppMopta)};
constexpr tEFTPField kBreak[] = {Text(&abisEFsbr, 1)};
constexpr tEFTPField kLogin[] = {
    {&abisEFlet, 0, eEFTPppMopta, eTakeMore, 1, eMakeAdd, 0},
    {&abisEFled, 0, eEFTPppMopta, eTakeRest, 0, eMakeBehind, 0},
};
constexpr tEFTPField kInfo[] = {Text(&abisEFitp, 2), Rest(&abisEFidt, eEFTPppMopta)};
constexpr tEFTPField kDayResult[] = {Rest(&abisEFfin, eEFTPppMopta)};
constexpr tEFTPField kConfirm[] = {Rest(&abisEFmcn, eEFTPppMopta)};
constexpr tEFTPField kFork[] = {Rest(&abisFKuni, eEFTPppMdef)};
constexpr tEFTPField kTransfer[] = {Text(&abisEFdtf, 1), Text(&abisEFdtt, 4), Rest(&abisEFdtd, eEFTPppMopta)};

// ---- which ids have them ----

constexpr tEFTPWorkId kPaymentIds[] = {
    eEFTPwidSale,      eEFTPwidPreA,      eEFTPwidCashA,    eEFTPwidMailO,    eEFTPwidCredit,
    eEFTPwidEComm,     eEFTPwidRecurring, eEFTPwidSale_B,   eEFTPwidCredit_B, eEFTPwidCash_B,
    eEFTPwidVerify,    eEFTPwidCreditOn,  eEFTPwidBalanceI, eEFTPwidInfo_B,   eEFTPwidDebit_B,
    eEFTPwidRevInfo_B, eEFTPwidActiv,     eEFTPwidActivLoad};
constexpr tEFTPWorkId kByRefIds[] = {eEFTPwidVoid, eEFTPwidTransDt, eEFTPwidTransConf};
constexpr tEFTPWorkId kReportIds[] = {eEFTPwidRepDay};
constexpr tEFTPWorkId kReversalIds[] = {eEFTPwidRevSale, eEFTPwidRevCredit, eEFTPwidRevCash,
                                        eEFTPwidRevSale_B, eEFTPwidRevCredit_B};
constexpr tEFTPWorkId kOfflineIds[] = {eEFTPwidOfSl, eEFTPwidOfCs, eEFTPwidOfSl_B};
constexpr tEFTPWorkId kTotalsIds[] = {eEFTPwidFinAmount};
constexpr tEFTPWorkId kResponseIds[] = {eEFTPwidRespons, eEFTPwidRespLast};
constexpr tEFTPWorkId kClosingIds[] = {eEFTPwidClRefSale, eEFTPwidClRefRreA, eEFTPwidClRefCred,
                                       eEFTPwidClRefOffS};
constexpr tEFTPWorkId kClosingRevIds[] = {eEFTPwidClRefRevs};
constexpr tEFTPWorkId kRefusalIds[] = {eEFTPwidRubad};
constexpr tEFTPWorkId kPrintLineIds[] = {eEFTPwidPrLine, eEFTPwidPrLast};
constexpr tEFTPWorkId kBreakIds[] = {eEFTPwidBrkRes, eEFTPwidBrkNow};
constexpr tEFTPWorkId kLoginIds[] = {eEFTPwidLogin, eEFTPwidLogok};
constexpr tEFTPWorkId kInfoIds[] = {eEFTPwidMsgInfo, eEFTPwidRespInfo};
constexpr tEFTPWorkId kDayResultIds[] = {eEFTPwidRespDay};
constexpr tEFTPWorkId kConfirmIds[] = {eEFTPwidRmsgcon};
constexpr tEFTPWorkId kForkIds[] = {eEFTPwidForkUni};
constexpr tEFTPWorkId kTransferIds[] = {eEFTPwidDtaReq, eEFTPwidDtaRes, eEFTPwidDtaReqLst, eEFTPwidDtaResLst};
constexpr tEFTPWorkId kBareIds[] = {eEFTPwidEndOk,  eEFTPwidEndBad,  eEFTPwidFinDay,  eEFTPwidRespAmount,
                                    eEFTPwidBrkReq, eEFTPwidRfok,    eEFTPwidRfnoLog, eEFTPwidRpinrq,
                                    eEFTPwidRonlrq, eEFTPwidRfnoRef, eEFTPwidRhldrq};

constexpr tEFTPRow kRows[] = {
    {"payment", kPaymentIds, kPayment, eBodyFields, 0},
    {"operation on an earlier transaction", kByRefIds, kByRef, eBodyFields, 0},
    {"day report", kReportIds, kReport, eBodyFields, 0},
    {"reversal", kReversalIds, kReversal, eBodyFields, 0},
    {"offline payment", kOfflineIds, kOffline, eBodyFields, 0},
    {"totals", kTotalsIds, kTotals, eBodyFields, 0},
    {"transaction response", kResponseIds, kResponse, eBodyResp, '1'},
    {"closing by reference", kClosingIds, kClosing, eBodyFields, 0},
    {"closing of a reversal by reference", kClosingRevIds, kClosingRev, eBodyFields, 0},
    {"refusal", kRefusalIds, kRefusal, eBodyRubad, 0},
    {"print line", kPrintLineIds, kPrintLine, eBodyPrLine, '1'},
    {"break result", kBreakIds, kBreak, eBodyFields, '0'},
    {"login", kLoginIds, kLogin, eBodyFields, 0},
    {"information", kInfoIds, kInfo, eBodyInfo, '1'},
    {"result of the day", kDayResultIds, kDayResult, eBodyFields, 0},
    {"message to confirm", kConfirmIds, kConfirm, eBodyFields, 0},
    {"fork", kForkIds, kFork, eBodyFields, 0},
    {"data transfer", kTransferIds, kTransfer, eBodyFields, '1'},
    {"no data", kBareIds, {}, eBodyFields, 0},
};

constexpr int kWireBits = 0xFFFF; // what of a work id goes out; the rest tells the internal variants apart

} // namespace

std::span<const tEFTPRow> EFTPRows() { return kRows; }

const tEFTPRow* EFTPRowOf(int iId) {
  for (const tEFTPRow& row : kRows)
    for (tEFTPWorkId id : row.oIds)
      if (id == iId) return &row;
  return nullptr;
}

tEFTPWorkId EFTPVariantOf(const tEFTPRow& oRow, tEFTPWorkId oId) {
  for (tEFTPWorkId id : oRow.oIds)
    if (id != oId && (id & kWireBits) == (oId & kWireBits)) return id;
  return oId;
}

} // namespace zat
