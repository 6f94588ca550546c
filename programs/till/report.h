// What a run of the cash desk has to tell: for people, as JSON, and as an exit code.
#pragma once
#include <vector>

#include "session.h"

namespace zat::till {

struct Report {
  tString oCommand, oWorkId, oTid;
  uint64_t ulKopecks = 0; // asked for; 0: the command has no amount
  struct Line {
    tString oText;
    bool fLast; // of its slip
  };
  std::vector<Line> oLines;
  struct Other {
    tString oWorkId, oData;
  };
  std::vector<Other> oOthers; // blocks that are neither receipt nor status nor verdict
  std::vector<Status> oStatuses;
  bool fBreak = false; // the user asked for a break
  int64_t llMs = 0;    // how long it took
  Result oResult;
  tString oMessage; // said in place of the result's own ground, when not empty
};

// The exit code of an outcome.
int ExitCode(Outcome outcome);

// The table of exit codes, one line each, for the help.
tString ExitCodesHelp();

// The ground of a result in words: code and text of the bank, the terminal or the library with it.
tString Explain(const Result& result);

// What is printed after the receipt, lines ending in '\n'.
tString ForPeople(const Report& report);

// The whole report as one JSON object without a line end.
tString ForMachines(const Report& report);

// The words of a status.
tString Describe(Status status, const tString& text);

} // namespace zat::till
