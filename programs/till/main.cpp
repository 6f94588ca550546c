// zat_till: a cash desk on the command line. See --help.
#include "SLogger.h"

#include "desk.h"
#include "texts.h"

using namespace zat;
using namespace zat::till;

int main(int argc, char** argv) {
  // The message pieces that are built into this program bring the library's log with them. Two writers for
  // one exchange would only confuse its reader: the log is the library's alone.
  if (SLogger::ItIsMe(poGSLog)) poGSLog->close();

  Manner manner = UserManner();
  SpeakRussian(manner.fRussian);
  Screen screen(manner.oCharset);
  Parsed parsed = ParseCommandLine(argc, argv, manner.oCharset);
  if (parsed.oOrder && parsed.oOrder->procWork) return parsed.oOrder->procWork(*parsed.oOrder, screen);
  if (parsed.oOrder) return Desk(*parsed.oOrder, screen).Work();

  Report report;
  report.oOutcome.verdict = parsed.oVerdict;
  report.oMessage = parsed.oText;
  if (parsed.oVerdict == Verdict::Done)
    screen.Print(parsed.oText);
  else if (parsed.fJson)
    screen.Print(ForMachines(report) + "\n");
  else
    screen.Remark(parsed.oText);
  return ExitCode(parsed.oVerdict);
}
