// zat_tool doctor: what is wrong with an installation, and what to do about it.
#include "doctor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "bundle.h"
#include "command.h"
#include "output.h"
#include "place.h"
#include "utilf.h"

namespace zat::tool {

namespace {

struct tSeverityRow {
  const char* pccName;
  tColour oColour;
};
constexpr tSeverityRow kSeverities[] = {{"ok", eColGood}, {"warning", eColWarn}, {"problem", eColBad}};

constexpr void (*kChecks[])(Findings&) = {CheckPlace,   CheckPrograms, CheckConfiguration, CheckLocks,
                                          CheckUpdates, CheckLog,      CheckJournal,       CheckClock};

struct tOptions {
  tString oRoot, oBundle;
  bool fJson = false, fQuiet = false;
};

// oPaint gives a word its colour.
template<class Paint> tString ForPeople(const tFinding& finding, Paint oPaint) {
  const tSeverityRow& row = kSeverities[finding.oSeverity];
  tString line = fmt::format("{}{}  {:<13}  {}", oPaint(row.oColour, row.pccName),
                             tString(7 - strlen(row.pccName), ' '), finding.oAbout, finding.oText);
  return line + (finding.oAdvice.empty() ? "" : " -> " + finding.oAdvice) + "\n";
}

tString ForMachines(const Findings& found, tSeverity worst) {
  nlohmann::ordered_json out = {{"root", found.oRoot}, {"result", kSeverities[worst].pccName}};
  out["findings"] = nlohmann::ordered_json::array();
  for (const tFinding& finding : found.oAll)
    out["findings"].push_back({{"severity", kSeverities[finding.oSeverity].pccName},
                               {"about", finding.oAbout},
                               {"text", finding.oText},
                               {"advice", finding.oAdvice}});
  return out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

bool Bundled(const Findings& found, tSeverity worst, const tString& file) {
  tString text;
  for (const tFinding& finding : found.oAll)
    text += ForPeople(finding, [](tColour, const char* name) { return tString(name); });
  const tString fault = WriteBundle(found, text, ForMachines(found, worst), file);
  if (!fault.empty()) Complain(fmt::format("cannot write {}: {}", file, fault));
  return fault.empty();
}

// The full path: lock files and log lines have it, and an advice must work from anywhere.
bool FullRoot(tString& root) {
  if (root.empty()) root = OwnRoot();
  char full[PATH_MAX];
  if (!realpath(root.c_str(), full)) return false;
  root = tString(full) + "/";
  if (fdpresent(root.c_str()) == 0) return true;
  errno = ENOTDIR;
  return false;
}

int Examine(tOptions options) {
  if (!FullRoot(options.oRoot)) {
    Complain(fmt::format("{}: {}", options.oRoot, strerror(errno)));
    return eSevProblem;
  }
  Findings found(options.oRoot);
  for (const auto check : kChecks) check(found);
  tSeverity worst = eSevOk;
  for (const tFinding& finding : found.oAll) worst = std::max(worst, finding.oSeverity);
  Output out;
  if (!options.oBundle.empty() && !Bundled(found, worst, options.oBundle)) return eExitUsage;
  if (options.fJson) out.Text(ForMachines(found, worst));
  for (const tFinding& finding : found.oAll)
    if (!options.fJson && (!options.fQuiet || finding.oSeverity != eSevOk))
      out.Text(ForPeople(finding, [&](tColour colour, const char* name) { return out.In(colour, name); }));
  return out.Flush() ? static_cast<int>(worst) : eExitUsage;
}

} // namespace

void AddDoctor(CLI::App& oApp, int* piExit) {
  CLI::App* cmd = oApp.add_subcommand("doctor", "Look at an installation: what is wrong, and what to do.");
  auto options = std::make_shared<tOptions>();
  cmd->add_option("root", options->oRoot,
                  "The installation's directory, the one above BIN; else the one that this program lies in");
  cmd->add_flag("-q,--quiet", options->fQuiet, "Only what is not well");
  cmd->add_flag("--json", options->fJson, "One JSON object");
  cmd->add_option("--bundle", options->oBundle,
                  "Also make an archive (tar.gz) for support: report, listing, configuration, version lists\n"
                  "and logs, card numbers masked")
      ->type_name("FILE");
  cmd->footer(
      "Looks at the path, the disk, rights, object, module, updater, configuration, locks, updates, log\n"
      "and clock. It only reads: no lock is taken and no till notices it. Run it as the user that the\n"
      "till runs as; as root it cannot tell what that user may write.\n\n"
      "Exit status: 0 all is well, 1 there are warnings, 2 there are problems, or wrong arguments.\n\n"
      "  zat_tool doctor /opt/zat_ms\n"
      "  zat_tool doctor -q || echo look at it\n"
      "  zat_tool doctor --bundle /tmp/shop7.tar.gz");
  cmd->callback([options, piExit] { *piExit = Examine(*options); });
}

} // namespace zat::tool
