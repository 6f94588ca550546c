#include "totals.h"
#include "operations.h"

namespace zat {

void tSum::Add(uint64_t ulAmount) {
  if (ulAmount == 0) return;
  ++lCount;
  ulSum += ulAmount;
}

tTotals TotalsOf(const tDay& oDay) {
  tTotals o;
  for (const tDayRow& oRow : oDay.oRows) {
    const tOperation* po = FindOperation(oRow.oWId);
    const tKind oKind = po ? po->oKind : eKnone;
    const bool fPaid = oKind == eKsale || oKind == eKcash || (oKind == eKpreauth && oRow.fClosed);
    if (fPaid) o.oPaid.Add(oRow.Net());
    if (oKind == eKcredit) o.oRefunded.Add(oRow.Net());
    if (fPaid || oKind == eKcredit) o.oCancelled.Add(oRow.ulAmount - oRow.Net());
  }
  return o;
}

} // namespace zat
