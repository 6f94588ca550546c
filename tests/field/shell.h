// Runs zat_tool as its users do: a line of the shell in which the programs just built are found.
#pragma once
#include <array>
#include <cstdio>
#include <string>

#include <sys/wait.h>

struct Result {
  int iExit = -1;
  std::string oOut; // standard output and error
};

inline Result Shell(const std::string& line) {
  Result run;
  FILE* pipe = popen(
      ("PATH=" ZAT_INSTALLATION "/BIN:$PATH; export LC_ALL=C.UTF-8; { " + line + "; } 2>&1").c_str(), "r");
  if (!pipe) return run;
  std::array<char, 4096> piece;
  for (size_t count; (count = fread(piece.data(), 1, piece.size(), pipe)) > 0;)
    run.oOut.append(piece.data(), count);
  const int status = pclose(pipe);
  if (WIFEXITED(status)) run.iExit = WEXITSTATUS(status);
  return run;
}
