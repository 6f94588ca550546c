// How a simulated payment ends. The last two digits of its amount choose, so that a developer of a till can call
// up every ending from the keyboard: 12.05 is declined, 12.94 meets a network error, 12.00 is approved.
#pragma once
#include "ztypes.h"

namespace zat {

enum tEnding : int {
  eEapproved,  // slip, "60", "#0"
  eEsignature, // the same, with a place for the holder's signature on the slip and "55" before it
  eEdeclined,  // the host answered no: short slip, "60" with its code, "#1"
  eEfailed,    // there is no answer to show: "5X" with a coded text, "#1"
  eEnoCard,    // nobody presents a card: "55" now and then until a break, in the end "5X", "#1"
  eEkilled,    // approved and stored, then the module dies: the till cannot know
  eEsilent,    // approved and stored, then not another byte: the till cannot know
};

struct tOutcome {
  int iLast;           // the amount's last two digits; -1 in the row for all others
  tEnding oEnding;     //
  bool fOnline;        // the host was asked ("53") before this happened
  const char* pccCode; // response code of a "60", error code of a "5X"; two characters
  const char* pccText; // text for the cash desk, Windows-1251
  int iDelayMs;        // how long the host thinks
  const char* pccWhat; // what happens, in English
};

// The outcome of a payment of this amount (minor units).
const tOutcome& OutcomeOf(uint64_t ulAmount);

// The outcome of an operation that the amount cannot spoil.
const tOutcome& OutcomeApproved();

// The whole table for a person, in English, one line a row.
tString OutcomesText();

} // namespace zat
