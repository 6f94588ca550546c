// What a terminal's words about its last payment say about payments whose outcome nobody knows. Only rules, no files and
// no terminals.
//
// A terminal keeps the approved payments of its day and shows the last of them. That one belongs to an entry of the
// journal by its reference number, or else by its amount and time. Then:
//
//   the entry that it belongs to            was carried out
//   an entry after that one                 was not: it would be the last one now
//   an entry before that one                stays unknown: a payment after it hides it
//
// So ask before the next payment. A payment that belongs to no entry (made without a till, or before there was a
// journal) says that an entry was not carried out only when it is older by more than any two clocks may differ.
#pragma once
#include "journal.h"

namespace zat::client {

// The answer to a question for transaction data.
struct Told {
  enum Kind {
    eNothing, // there was no answer, or none that can be understood
    eNone,    // the terminal has no such payment
    ePayment, // it has one
  };
  Kind oKind = eNothing;
  uint64_t ulKopecks = 0;
  tString oRef, oCode; // oCode: the bank's, "00" approves
  time_t oWhen = 0;    // by the terminal's clock
};

enum class Ground {
  Reference,    // the terminal has the payment under its reference number
  Last,         // the terminal's last payment is this one
  NothingSince, // the terminal's last payment is one from before
  EmptyDay,     // the terminal has made no payment today
  Gone,         // the terminal does not have the reference number that it once told
  // from here on it stays unknown
  Hidden,    // another payment has been made since
  OtherTill, // the terminal's last payment is not in the journal, and may be younger
  TwoAlike,  // two entries could be it
  DayClosed, // the terminal has closed its day since, or may have
  TooEarly,  // the terminal may still be at work on it
  NoAnswer,  // the terminal did not answer
  NotShown,  // terminals do not show whether an earlier payment was taken back or closed
  Lost,      // what it was is lost in a damaged file
};

struct Ruling {
  Ground oGround;
  Ending oEnding; // Fate::Unknown: it stays that
};

struct Question {
  const Entries* poEntries; // of this terminal alone, by number
  time_t oNow;
  bool fExclusive; // while the answer was given no other request can have been at work in the terminal
};

// A terminal can tell about it.
bool CanBeAsked(const Entry& entry);

// The reference number to ask about for an entry; empty: the last payment of the day.
tString ReferenceOf(const Entry& entry);

// The ruling on one of the entries: by the answer about its reference number when it has one, else about the last one.
Ruling Judge(const Question& question, const Entry& entry, const Told& told);

} // namespace zat::client
