// A payment, or a change to one, on its way through the terminal: what every such answer has in common.
#pragma once
#include "operations.h"
#include "outcomes.h"
#include "slip.h"

namespace zat {

struct tDeal {
  explicit tDeal(const tOutcome& o) : oOutcome(o) {}

  const tOutcome& oOutcome;
  tDayRow oRow;
  uint64_t ulMoved = 0; // the amount of this operation: for a reversal the part taken back
  tString oCard;        // card number, "=", expiry date, as the "60" carries them
  tHolder oHolder = eHnothing;
  long lShift = 1;
};

// Whether this ending moves money, whatever the till gets to know of it.
bool IsApproved(const tOutcome& oOutcome);

// Tells the till that the host is being asked, and waits as long as the host thinks.
void AskHost(tCase& oCase, const tDeal& oDeal);

// All that follows the host's answer, by the outcome: slip, "60" and end block, a coded refusal, or nothing more.
void Finish(tCase& oCase, const tDeal& oDeal);

// The "60" of a transaction, without an end block.
void SayResponse(tCase& oCase, const tDeal& oDeal);

// Print lines, the last one marked; PrintLines of simulator.cfg decides how many when it is given.
void SayLines(tTalk& oTalk, const tLines& oLines);

} // namespace zat
