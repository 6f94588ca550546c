// What zat_tool doctor finds in an installation. Every check only reads: no lock is taken, nothing is started but a
// child process that loads a copy of the object.
#pragma once
#include <vector>

#include "ztypes.h"

namespace zat::tool {

enum tSeverity : uint8_t { eSevOk, eSevWarning, eSevProblem };

struct tFinding {
  tSeverity oSeverity;
  tString oAbout;  // "module", "locks", ...
  tString oText;   // what is the case
  tString oAdvice; // what to do; empty when nothing has to be done
};

class Findings {
public:
  explicit Findings(const tString& oRoot_) : oRoot(oRoot_) {}

  void Ok(const char* about, const tString& text) { oAll.push_back({eSevOk, about, text, ""}); }
  void Warn(const char* about, const tString& text, const tString& advice) {
    oAll.push_back({eSevWarning, about, text, advice});
  }
  void Problem(const char* about, const tString& text, const tString& advice) {
    oAll.push_back({eSevProblem, about, text, advice});
  }

  const tString oRoot; // ends with '/'
  std::vector<tFinding> oAll;
};

// Each looks at one side of the installation, and says so also when all is well.
void CheckPlace(Findings& oFound);         // paths, file system, modes and owners
void CheckPrograms(Findings& oFound);      // object, module, updater
void CheckConfiguration(Findings& oFound); // keys and values
void CheckLocks(Findings& oFound);         // who holds them, which are left over
void CheckUpdates(Findings& oFound);       // version lists, pending and half-written updates
void CheckLog(Findings& oFound);           // writable, size, card numbers
void CheckJournal(Findings& oFound);       // writable, whole, payments whose outcome nobody knows
void CheckClock(Findings& oFound);

// The names in a directory that match a shell pattern, sorted.
std::vector<tString> NamesIn(const tString& oDir, const char* pccPattern);

// "3 min", "2 h", "5 days".
tString AgeText(long lSeconds);

} // namespace zat::tool
