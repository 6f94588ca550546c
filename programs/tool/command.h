// The commands of zat_tool. Each adds its sub-command with its arguments; when the user has chosen it, CLI11
// calls it back, and it leaves what it found in *piExit.
#pragma once
#include <CLI/CLI.hpp>

namespace zat::tool {

enum tExit : int {
  eExitGood = 0,
  eExitFault = 1, // the message is malformed, or cannot be made
  eExitUsage = 2, // wrong arguments, a file that cannot be read
};

void AddDecode(CLI::App& oApp, int* piExit);
void AddEncode(CLI::App& oApp, int* piExit);
void AddTags(CLI::App& oApp, int* piExit);
void AddMessages(CLI::App& oApp, int* piExit);
void AddDoctor(CLI::App& oApp, int* piExit);
void AddLog(CLI::App& oApp, int* piExit);
void AddRedact(CLI::App& oApp, int* piExit);

} // namespace zat::tool
