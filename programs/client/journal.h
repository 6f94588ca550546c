// The journal of payments: what a till wanted is on the disk before the terminal hears of it, and what became of it
// after. A till that is killed, or a machine that loses its power, leaves an entry without an outcome: that payment
// may have been made, and somebody has to ask the terminal.
//
//   Journal journal("/opt/zat_ms/till.jnl");
//   uint32_t number = journal.Begin(intent);       // 0: it cannot be recorded, so do not send it
//   ... the payment ...
//   journal.Finish(number, ending);
//
// All tills of an installation share one journal: whoever looks for an unknown payment has one place to look at. Each
// append takes a lock (the file's name and ".lck") for some milliseconds, also against other processes.
//
// What is written: the operation, the terminal, the amount, references and times. Never a card number, a track or a
// text of somebody else.
//
// When the file has grown to a limit it becomes the older one (its name and ".old"), which replaces the one before;
// the new one begins with a copy of every entry whose outcome is not known. A damaged file is kept (its name and
// ".bad") and written anew from all that can be read.
#pragma once
#include <cstdint>
#include <ctime>
#include <vector>

#include "recordfile.h"

namespace zat::client {

// What became of a payment.
enum class Fate {
  Unknown,  // nobody knows: the till ended before the answer, or the answer told nothing
  Approved, // the money has moved
  Declined, // the bank or the terminal said no
  Aborted,  // ended without a decision
  NotSent,  // never reached the terminal
  NotMade,  // the terminal has not carried it out, as it said afterwards
  Done,     // carried out: an operation that has no approval of a bank
};

// The name that the journal and JSON have for it.
const char* NameOf(Fate fate);

// What an operation is to the journal, by its two characters. Anything that may move money and is not known is taken for
// a payment.
enum class Sort {
  Payment, // moves money under a reference number of its own
  Change,  // takes back, voids or closes an earlier payment
  DayEnd,  // after it the terminal has forgotten the day's payments
  Other,   // does not concern the journal
};
Sort SortOf(const tString& workId);

struct Intent {
  tString oWorkId;        // operation, two characters
  tString oTid;           // terminal id, up to 10 characters
  uint64_t ulKopecks = 0; // 0: the operation has no amount
  tString oRef;           // reference of the earlier payment that it is about; empty for a payment of its own
  tString oRoad; // how this terminal is reached, see RoadTo...; empty: through the journal's own installation
};

enum class Source { Till, Terminal, Person }; // who said what became of it

struct Ending {
  Fate oFate = Fate::Unknown;
  tString oCode;          // of the bank or the terminal, or the library's reason; up to 8 characters
  uint64_t ulKopecks = 0; // as the terminal has it; 0: not told
  tString oRef;           // the payment's reference number; empty: not told
  Source oSource = Source::Till;
  time_t oAt = 0; // when the payment was made, by the terminal's clock; 0: not told
};

struct Entry {
  uint32_t uNumber = 0;
  Intent oIntent;
  time_t oWhen = 0;      // of the intent
  bool fKnown = true;    // false: its record is lost in a damaged file, only the number is known
  bool fRunning = false; // the process that made it lives and has told nothing yet
  Ending oEnding;
  time_t oTold = 0; // when the last word on the outcome was written; 0: never
  tString oOwner;   // the process that made it

  // Money may have moved, and somebody has to ask the terminal.
  bool IsUnknown() const;
};

typedef std::vector<Entry> Entries;

struct JournalState {
  Entries oEntries;      // by number
  bool fDamaged = false; // a part of the file cannot be read; what is lost has an entry with fKnown false
};

class Journal {
public:
  static constexpr size_t kUsualRecords = 2000; // a few hundred kilobytes, read whole at every payment

  // Nothing is opened or made yet.
  explicit Journal(const tString& name, size_t mostRecords = kUsualRecords);

  const tString& Name() const { return oFile.Name(); }

  // Records an intent. Its number (from 1), or 0 when it could not be brought to the disk: see Fault. A payment that is
  // not in the journal should not be sent.
  uint32_t Begin(const Intent& intent);

  // Records what the terminal has told although the end is still to come: with the reference number an unknown outcome
  // is asked for without a doubt. False: see Fault.
  bool Note(uint32_t number, const Ending& soFar);

  // Records what became of it; the last word counts. False: see Fault. The entry then stays unknown, which is safe.
  bool Finish(uint32_t number, const Ending& ending);

  // The same for an entry whose outcome nobody has told meanwhile; true also when somebody has, and nothing is written.
  bool Settle(uint32_t number, const Ending& ending);

  // Reads all there is, also without the right to write. False when a file exists and cannot be read: see Fault.
  bool Read(JournalState& state);

  // Why the last call failed, in the words of the system.
  const tString& Fault() const { return oFault; }

  // A call has found the file damaged and mended it.
  bool WasMended() const { return fMended; }

private:
  class Guard;
  struct Image;

  bool Load(Image& image);
  bool Prepare(Image& image);
  bool Mend(const Image& image);
  bool Rotate(Image& image);
  bool Tell(uint32_t number, char kind, const Ending& ending, bool onlyUnknown);
  bool Failed();

  RecordFile oFile, oOlder;
  size_t lMost;
  tString oFault;
  bool fMended = false;
};

} // namespace zat::client
