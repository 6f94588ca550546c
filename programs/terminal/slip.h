// What the terminal's printer would print, as lines of 32 bytes (more only where names and amounts need
// it), Windows-1251.
#pragma once
#include "totals.h"
#include <vector>

namespace zat {

typedef std::vector<tString> tLines;

enum tHolder : int { eHnothing, eHpin, eHsignature }; // how the holder has shown that the card is his

// One operation's slip.
struct tSlip {
  const tString& oTId;
  long lShift;
  const char* pccOperation; // its name
  const tDayRow& oRow;      //
  uint64_t ulAmount;        // what this operation moved: for a reversal the part taken back
  const char* pccCode;      // response code
  const char* pccText;      // what the host said
  tHolder oHolder;
  bool fGood;
};

tLines MakeSlip(const tSlip& oSlip);

// The same slip cut or filled to a number of lines.
tLines Fitted(tLines oLines, size_t lLines);

// The day's totals under this title.
tLines MakeTotals(const char* pccTitle, const tString& oTId, const tDay& oDay);

// The day's transactions one by one, then the totals.
tLines MakeReport(const char* pccTitle, const tString& oTId, const tDay& oDay);

// An amount in minor units as people write it: 1250.00.
tString Money(uint64_t ulAmount);

} // namespace zat
