// zat_tool: looks at messages, makes them, lists what they are made of.
#include "SLogger.h"
#include "command.h"

using namespace zat::tool;

int main(int iArgC, char** ppcArgV) {
  // The pieces below write a detail line for each parameter. They belong into the log of a till, not of a
  // tool.
  if (SLogger::ItIsMe(poGSLog)) poGSLog->close();

  CLI::App app("Tool for those who look after tills and terminals.", "zat_tool");
  app.set_version_flag("--version", "zat_tool " ZAT_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);

  int exit = eExitGood;
  AddDecode(app, &exit);
  AddEncode(app, &exit);
  AddTags(app, &exit);
  AddMessages(app, &exit);
  AddLog(app, &exit);
  AddDoctor(app, &exit);
  AddRedact(app, &exit);

  try {
    app.parse(iArgC, ppcArgV);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? eExitGood : eExitUsage; // --help and --version come this way too
  }
  return exit;
}
