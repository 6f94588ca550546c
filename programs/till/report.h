// What a run of the cash desk has to tell: for people, as JSON, and as an exit code.
#pragma once
#include <vector>

#include "entrytext.h"
#include "zat_client.h"
#include "ztypes.h"

namespace zat::till {

struct Report {
  tString oCommand, oWorkId, oTid;
  Amount oAmount; // asked for; zero: the command has no amount
  std::vector<ReceiptLine> oLines;
  struct Other {
    tString oWorkId, oData;
  };
  std::vector<Other> oOthers; // blocks that are neither receipt nor status nor verdict
  std::vector<Status> oStatuses;
  bool fBreak = false; // the user asked for a break
  int64_t llMs = 0;    // how long it took
  Outcome oOutcome;
  bool fRecorded = false;   // in a journal
  client::Entries oUnknown; // earlier payments whose outcome nobody knows
  tString oMessage;         // said in place of the outcome's own ground, when not empty
  tString oWhy;             // the name of that ground for machines, when it is none of the client's
};

// The exit code of a verdict.
int ExitCode(Verdict verdict);

// The table of exit codes, one line each, for the help.
tString ExitCodesHelp();

// The ground of an outcome in words: code and text of the bank, the terminal or the library with it.
tString Explain(const Outcome& outcome);

// What kept a library from being used, in words; "" when nothing did.
tString Explain(LoadFault fault, const tString& library, const tString& detail);

// What is printed after the receipt, lines ending in '\n'.
tString ForPeople(const Report& report);

// The whole report as one JSON object without a line end.
tString ForMachines(const Report& report);

// A receipt in JSON: one list of lines for each slip.
nlohmann::json JsonReceipt(const std::vector<ReceiptLine>& lines);

// The words of a status.
tString Describe(Status status, const tString& text);

} // namespace zat::till
