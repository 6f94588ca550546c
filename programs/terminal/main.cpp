// zat_mm, the simulated terminal module: what a developer of a till works against. A till starts it through the
// cash-desk object with its pipes on the command line; a person asks it what it can do.
#include "faults.h"
#include "mmisc.h"
#include "outcomes.h"
#include "serve.h"
#include "uni_iodir.h"
#include "version.h"
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

using namespace zat;

const char* const pccAbout =
    "Simulated card payment terminal.\n\n"
    "A till starts it by itself, through libzat_ms.so:  zat_mm PIPES CONFIGURATION TERMINAL_ID\n"
    "The amount's last two digits choose how a payment ends (--outcomes); simulator.cfg in the\n"
    "installation's root makes it misbehave (--faults). It keeps the day's transactions there, in\n"
    "simulator-<terminal id>.day.";

// The installation root: the parent of the directory that the program was started from, so that a link to it makes
// an installation of its own. A name found through PATH says nothing about that; then the file itself does.
tString Root(const char* pccArgV0) {
  tString oPath = pccArgV0 ? pccArgV0 : "", oDir;
  char mc[4096];
  const ssize_t lLen = readlink("/proc/self/exe", mc, sizeof mc);
  if (oPath.find('/') == tString::npos && lLen > 0) oPath.assign(mc, static_cast<size_t>(lLen));
  DetectLocDir(oPath.c_str(), oDir);
  ConvertLocToHome(oDir);
  return oDir;
}

// A till's first argument is the text of its pipes, or "-" when it could not make any; a person's is an option.
bool FromTill(int argc, char** argv) { return argc > 1 && (argv[1][0] != '-' || argv[1][1] == 0); }

int ShowFaults(const tPlace& oPlace) {
  const tString oFile = FaultsFile(oPlace.oRoot, oPlace.oConfig);
  tString oComplaints;
  ReadFaults(oFile, "", &oComplaints);
  printf("%s", FaultsText().c_str());
  if (!oComplaints.empty()) printf("\nNot understood in %s:\n%s", oFile.c_str(), oComplaints.c_str());
  return oComplaints.empty() ? eXdone : eXusage;
}

int ForPerson(int argc, char** argv, tPlace& oPlace) {
  CLI::App oApp{pccAbout, "zat_mm"};
  bool fOutcomes = false, fFaults = false;
  tString oTcp, oSerial;
  oApp.set_version_flag("--version", pccModule, "Print name and version and exit");
  oApp.add_flag("--outcomes", fOutcomes, "Print which amount ends how");
  oApp.add_flag("--faults", fFaults, "Print the keys of simulator.cfg and check the file");
  auto* poTcp =
      oApp.add_option("--listen", oTcp, "Answer on a framed link over TCP; port 0 takes a free one");
  auto* poSerial = oApp.add_option("--serial", oSerial, "Answer on a framed link over a serial device");
  oApp.add_option("--config", oPlace.oConfig, "Look here for simulator.cfg first")->type_name("DIRECTORY");
  poTcp->type_name("HOST:PORT")->excludes(poSerial->type_name("DEVICE[,SPEED[,8N1[,none]]]"));
  try {
    oApp.parse(argc, argv);
  } catch (const CLI::ParseError& o) { return oApp.exit(o) == 0 ? eXdone : eXusage; }
  if (fOutcomes) return printf("%s", OutcomesText().c_str()) < 0;
  if (fFaults) return ShowFaults(oPlace);
  if (!oTcp.empty()) return ServeTcp(oPlace, oTcp);
  if (!oSerial.empty()) return ServeSerial(oPlace, oSerial);
  fprintf(stderr, "%s is started by a till, not by hand: it needs the till's pipes. See zat_mm --help.\n",
          pccModule);
  return eXusage;
}

} // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN); // a till that has gone shows in the result of the write
  removebe(argc, argv);
  tPlace oPlace{Root(argv[0]), argc > 2 ? argv[2] : "-"};
  if (FromTill(argc, argv)) return ServePipes(oPlace, argv[1], argc > 3 ? argv[3] : "");
  return ForPerson(argc, argv, oPlace);
}
