// The command line of the cash desk and the request that it means.
#pragma once
#include <optional>

#include "report.h"

namespace zat::till {

struct Options {
  tString oLib, oLink, oConfig, oTid = "1", oWait = "60";
  std::optional<tString> oTrack2;
  tString oAmount, oRrn, oWorkId, oData;
  bool fJson = false;
};

// A command in its final form.
struct Order {
  TillOptions oTill;
  tString oCommand, oWorkId;
  Amount oAmount; // zero: the command has no amount
  tString oRrn, oData;
  std::optional<tString> oTrack2;
  tString oLink;                    // a link to the terminal in place of the library; empty: none
  bool fJson = false, fRaw = false; // raw: a request of the user's own making

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

// Reads the command line; texts and data in it have the given code page. A track 2 is overwritten in argv,
// where other users of the machine can see it.
Parsed ParseCommandLine(int argc, char** argv, const tString& charset);

} // namespace zat::till
