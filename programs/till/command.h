// The command line of the cash desk and the request that it means.
#pragma once
#include <optional>

#include "report.h"

namespace zat::till {

struct Options {
  tString oLib, oLink, oConfig, oWait = "60";
  std::optional<tString> oTid, oTrack2;
  tString oAmount, oRrn, oWorkId, oData, oJournal, oNumber, oFate;
  bool fJson = false, fNoJournal = false, fAll = false;
};

// A command in its final form.
class Screen;

struct Order {
  TillOptions oTill;
  tString oCommand, oWorkId;
  Amount oAmount; // zero: the command has no amount
  tString oRrn, oData;
  std::optional<tString> oTrack2;
  tString oLink;                    // a link to the terminal in place of the library; empty: none
  bool fJson = false, fRaw = false; // raw: a request of the user's own making

  // What the commands about the journal take: one terminal only (empty: all), all entries, one entry and whether it was
  // paid.
  tString oTid;
  bool fAll = false, fPaid = false;
  uint32_t uNumber = 0;

  // Does the work of a command about the journal; null: the command asks the terminal for something.
  int (*procWork)(const Order& order, Screen& screen) = nullptr;

  // What the command asks the till for.
  Outcome (*procAsk)(Till& till, const Order& order, const Callbacks& callbacks) = nullptr;
};

// What the command line comes to: an order, or a text to print and an exit code.
struct Parsed {
  std::optional<Order> oOrder;
  Verdict oVerdict = Verdict::Done; // without an order: help was asked for, or the arguments are wrong
  tString oText;
  bool fJson = false;
};

// The command that asks for an operation; its two characters where no command does.
tString CommandOf(const tString& workId);

// Reads the command line; texts and data in it have the given code page. A track 2 is overwritten in argv,
// where other users of the machine can see it.
Parsed ParseCommandLine(int argc, char** argv, const tString& charset);

} // namespace zat::till
