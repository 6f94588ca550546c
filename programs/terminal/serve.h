// The ways a terminal is reached: by the pipes of the till that started it.
#pragma once
#include "faults.h"
#include "ztypes.h"

namespace zat {

enum tExit : int {
  eXdone = 0,  // the exchange came to its end block
  eXlost = 1,  // it did not: no request, the till went away, or a fault ended it
  eXusage = 2, // wrong arguments, or a start by hand without pipes
};

// What every way needs to know.
struct tPlace {
  tString oRoot;   // installation root, ending with '/'
  tString oConfig; // configuration path that the till gave, "-" for none
};

// Silences the module's lines in the shared log unless simulator.cfg wants them: the message pieces write one for
// every parameter, and beside the till's own that is more than anybody reads.
void SetLog(const tFaults& oFaults);

// One exchange over the till's pipes. The result is the process's exit code.
int ServePipes(const tPlace& oPlace, const char* pccExport, const char* pccTId);

} // namespace zat
