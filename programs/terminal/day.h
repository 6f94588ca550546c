// The day's approved transactions of one terminal, kept between runs in the installation root, so that a reversal
// finds its sale and the end of day adds up: simulator-<terminal id>.day, an INI file that a person can read.
//
// Card numbers are stored masked. The file is replaced by renaming a finished copy over it: a module that is killed
// while writing leaves the old day whole.
#pragma once
#include "EFTPIds.h"
#include "ztypes.h"
#include <vector>

namespace zat {

struct tDayRow {
  tString oRef;            // reference, 12 digits
  tEFTPWorkId oWId;        // the request's operation
  uint64_t ulAmount = 0;   // minor units
  uint64_t ulReversed = 0; // what reversals have taken back, at most ulAmount
  bool fVoid = false;      // cancelled as a whole
  bool fClosed = false;    // closed by reference: a pre-authorisation counts from then on
  bool fConfirmed = false; // the till has confirmed it
  tString oAuth;           // authorisation code, 6 characters
  tString oWhen;           // YYYYMMDDhhmmss, local time
  tString oCard;           // masked card number, "=", expiry date YYMM
  tString oCardType;       // what the slip calls the card

  // What is left of the amount.
  uint64_t Net() const { return fVoid ? 0 : ulAmount - ulReversed; }
};

class tDay {
public:
  // Waits for the terminal's day and holds it for this process until the object ends. oRoot ends with '/'.
  tDay(const tString& oRoot, const tString& oTId);
  ~tDay();
  tDay(const tDay&) = delete;
  tDay& operator=(const tDay&) = delete;

  // Writes the day back; false when it could not be stored (the file is then as it was).
  bool Save() const;

  // A reference that this terminal has not used: last digit of the year, day of the year, hour, running number.
  tString NextRef();

  // A transaction by its reference, blanks and leading zeros apart; the last one for zeros alone, which is how a till
  // asks after a transaction whose answer it never got. Null when there is none.
  tDayRow* Find(const tString& oRef);

  // Forgets the day's transactions and starts the next shift.
  void Clear();

  std::vector<tDayRow> oRows; // oldest first
  long lShift = 1;            // shifts (days) counted by this terminal
  long lNext = 1;             // running number of the next reference

private:
  void Load();
  tString oFile, oLock;
};

} // namespace zat
