#include "day.h"
#include "simplecfg.h"
#include "util.h"
#include "utilf.h"
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zat {

namespace {

constexpr long kRunning = 1000000; // the running number has six digits in a reference
constexpr char kDay[] = "DAY";

// The members of a row and their keys: texts, amounts and marks.
const struct {
  const char* pccKey;
  tString tDayRow::*poText;
} moTexts[] = {
    {"Auth", &tDayRow::oAuth},
    {"When", &tDayRow::oWhen},
    {"Card", &tDayRow::oCard},
    {"CardType", &tDayRow::oCardType},
};
const struct {
  const char* pccKey;
  uint64_t tDayRow::*pulAmount;
} moAmounts[] = {
    {"Amount", &tDayRow::ulAmount},
    {"Reversed", &tDayRow::ulReversed},
};
const struct {
  const char* pccKey;
  bool tDayRow::*pfMark;
} moMarks[] = {
    {"Void", &tDayRow::fVoid},
    {"Closed", &tDayRow::fClosed},
    {"Confirmed", &tDayRow::fConfirmed},
};

// A terminal id as part of a file name: without leading zeros, and nothing that a path could trip over.
tString FileId(const tString& oTId) {
  tString o = oTId;
  EraseLeftChars(o, '0', "0");
  for (char& c : o)
    if (!(c >= '0' && c <= '9') && !(c >= 'A' && c <= 'Z') && !(c >= 'a' && c <= 'z') && c != '-') c = '_';
  return o;
}

uint64_t ReadAmount(const SimpleCfg& oCfg, const char* pccSection, const char* pccKey) {
  return strtoull(oCfg.GetValue(pccSection, pccKey, "0"), nullptr, 10);
}

// A row whose section somebody has edited into nonsense is left out rather than believed.
bool ReadRow(const SimpleCfg& oCfg, const char* pccRef, tDayRow& oRow) {
  const tString oWork = oCfg.GetValue(pccRef, "Operation", "");
  oRow.oRef = pccRef;
  if (oWork.size() != 2 || oRow.oRef.size() != 12) return false;
  oRow.oWId = static_cast<tEFTPWorkId>(EFTPWId(oWork[0], oWork[1]));
  for (const auto& o : moTexts) oRow.*o.poText = oCfg.GetValue(pccRef, o.pccKey, "");
  for (const auto& o : moAmounts) oRow.*o.pulAmount = ReadAmount(oCfg, pccRef, o.pccKey);
  for (const auto& o : moMarks) oRow.*o.pfMark = oCfg.GetBoolValue(pccRef, o.pccKey, false);
  return oRow.ulReversed <= oRow.ulAmount && oRow.oWhen.size() == 14;
}

void WriteRow(SimpleCfg& oCfg, const tDayRow& oRow) {
  const char* pccRef = oRow.oRef.c_str();
  const char mcWork[] = {static_cast<char>(oRow.oWId >> 8), static_cast<char>(oRow.oWId), 0};
  oCfg.SetValue(pccRef, "Operation", mcWork);
  for (const auto& o : moTexts) oCfg.SetValue(pccRef, o.pccKey, (oRow.*o.poText).c_str());
  for (const auto& o : moAmounts) oCfg.SetValue(pccRef, o.pccKey, std::to_string(oRow.*o.pulAmount).c_str());
  for (const auto& o : moMarks) oCfg.SetValue(pccRef, o.pccKey, oRow.*o.pfMark ? "1" : "0");
}

} // namespace

tDay::tDay(const tString& oRoot, const tString& oTId)
    : oFile(oRoot + "simulator-" + FileId(oTId) + ".day"), oLock(oFile + ".lck") {
  putflock(oLock.c_str());
  Load();
}

tDay::~tDay() { remflock(oLock.c_str()); }

void tDay::Load() {
  SimpleCfg oCfg;
  oCfg.LoadFile(oFile.c_str());
  lShift = oCfg.GetLongValue(kDay, "Shift", 1);
  lNext = oCfg.GetLongValue(kDay, "Next", 1);
  SimpleCfg::TNamesDepend oSections;
  oCfg.GetAllSections(oSections);
  oSections.sort(SimpleCfg::Entry::LoadOrder());
  for (const auto& oSection : oSections) {
    tDayRow oRow;
    if (strcmp(oSection.pItem, kDay) != 0 && ReadRow(oCfg, oSection.pItem, oRow)) oRows.push_back(oRow);
  }
}

bool tDay::Save() const {
  SimpleCfg oCfg;
  oCfg.SetLongValue(kDay, "Shift", lShift);
  oCfg.SetLongValue(kDay, "Next", lNext);
  for (const tDayRow& oRow : oRows) WriteRow(oCfg, oRow);
  const tString oNew = oFile + ".new";
  return oCfg.SaveFile(oNew.c_str(), false) >= 0 && rename(oNew.c_str(), oFile.c_str()) == 0;
}

tString tDay::NextRef() {
  tDateTame oNow;
  oNow.Fill(true);
  tString oRef;
  oNow.Get(oRef, eDTTref);
  lNext = (lNext < 1 || lNext >= kRunning) ? 1 : lNext;
  AppendStrPad(oRef, std::to_string(lNext++).c_str(), 6, '0', false);
  return oRef;
}

tDayRow* tDay::Find(const tString& oRef) {
  if (oRows.empty()) return nullptr;
  if (oRef.find_first_not_of("0 ") == tString::npos) return &oRows.back();
  for (tDayRow& oRow : oRows)
    if (AmountCmp(oRow.oRef, oRef) == 0) return &oRow;
  return nullptr;
}

void tDay::Clear() {
  oRows.clear();
  ++lShift;
}

} // namespace zat
