#include "slip.h"
#include "cp1251.h"
#include "operations.h"
#include "util.h"

namespace zat {

namespace {

constexpr size_t kWidth = 32;

// A text and a value at the two ends of a line; a value that does not fit goes one blank after the text.
tString Line(const tString& oLeft, const tString& oRight = "") {
  if (oRight.empty()) return oLeft;
  const size_t lUsed = oLeft.size() + oRight.size();
  return oLeft + tString(lUsed < kWidth ? kWidth - lUsed : 1, ' ') + oRight;
}

tString Centred(const tString& oText) {
  return tString(oText.size() < kWidth ? (kWidth - oText.size()) / 2 : 0, ' ') + oText;
}

// YYYYMMDDhhmmss as 21.11.26 14:05.
tString When(const tString& o) {
  return o.substr(6, 2) + "." + o.substr(4, 2) + "." + o.substr(2, 2) + " " + o.substr(8, 2) + ":" +
         o.substr(10, 2);
}

tLines Head(const char* pccTitle, const tString& oTId, long lShift) {
  return {Centred("ТЕСТОВЫЙ ТЕРМИНАЛ"_1251),
          Line(tString("ТЕРМИНАЛ "_1251) + oTId, "СМЕНА "_1251 + std::to_string(lShift)), Centred(pccTitle)};
}

const char* HolderLine(tHolder oHolder) {
  static const char* const mpcc[] = {"ПОДПИСЬ НЕ ТРЕБУЕТСЯ"_1251, "ВВЕДЁН ПИН-КОД"_1251,
                                     "ПОДПИСЬ ________________________"_1251};
  return mpcc[oHolder];
}

void AppendSum(tLines& oLines, const char* pccName, const tSum& oSum) {
  oLines.push_back(Line(pccName + (" " + std::to_string(oSum.lCount)), Money(oSum.ulSum)));
}

void AppendTotals(tLines& oLines, const tTotals& oTotals) {
  AppendSum(oLines, "ОПЛАТЫ"_1251, oTotals.oPaid);
  AppendSum(oLines, "ВОЗВРАТЫ"_1251, oTotals.oRefunded);
  AppendSum(oLines, "ОТМЕНЫ"_1251, oTotals.oCancelled);
  const bool fMinus = oTotals.oRefunded.ulSum > oTotals.oPaid.ulSum;
  const uint64_t ulNet =
      fMinus ? oTotals.oRefunded.ulSum - oTotals.oPaid.ulSum : oTotals.oPaid.ulSum - oTotals.oRefunded.ulSum;
  oLines.push_back(Line("ИТОГО РУБ"_1251, (fMinus ? "-" : "") + Money(ulNet)));
}

} // namespace

tString Money(uint64_t ulAmount) {
  tString o = std::to_string(ulAmount / 100) + ".";
  AppendStrPad(o, std::to_string(ulAmount % 100).c_str(), 2, '0', false);
  return o;
}

tLines MakeSlip(const tSlip& oSlip) {
  const tDayRow& oRow = oSlip.oRow;
  tLines oLines = Head(oSlip.pccOperation, oSlip.oTId, oSlip.lShift);
  oLines.push_back(When(oRow.oWhen));
  if (!oRow.oCard.empty()) oLines.push_back(Line(oRow.oCardType, oRow.oCard.substr(0, oRow.oCard.find('='))));
  oLines.push_back(Line("СУММА РУБ"_1251, Money(oSlip.ulAmount)));
  oLines.push_back(Line(oSlip.pccText, "КОД "_1251 + tString(oSlip.pccCode)));
  if (oSlip.fGood) {
    oLines.push_back(Line("КОД АВТОРИЗАЦИИ"_1251, oRow.oAuth));
    oLines.push_back(Line("ССЫЛКА"_1251, oRow.oRef));
    oLines.push_back(HolderLine(oSlip.oHolder));
    oLines.push_back(Centred("СПАСИБО!"_1251));
  }
  return oLines;
}

tLines Fitted(tLines oLines, size_t lLines) {
  while (oLines.size() < lLines) oLines.push_back("СТРОКА "_1251 + std::to_string(oLines.size() + 1));
  oLines.resize(lLines);
  return oLines;
}

tLines MakeTotals(const char* pccTitle, const tString& oTId, const tDay& oDay) {
  tLines oLines = Head(pccTitle, oTId, oDay.lShift);
  AppendTotals(oLines, TotalsOf(oDay));
  return oLines;
}

tLines MakeReport(const char* pccTitle, const tString& oTId, const tDay& oDay) {
  tLines oLines = Head(pccTitle, oTId, oDay.lShift);
  for (const tDayRow& oRow : oDay.oRows) {
    const tOperation* po = FindOperation(oRow.oWId);
    oLines.push_back(Line(oRow.oRef, When(oRow.oWhen)));
    oLines.push_back(Line(po ? po->pccName : "", Money(oRow.Net())));
  }
  AppendTotals(oLines, TotalsOf(oDay));
  return oLines;
}

} // namespace zat
