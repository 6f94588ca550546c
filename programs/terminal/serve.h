// The ways a terminal is reached: by the pipes of the till that started it, over TCP, over a serial line.
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

// Exchanges over TCP, one process a connection, until a signal ends it. oAddress is HOST:PORT; port 0 takes a free
// one. The address listened on is printed when it is ready.
int ServeTcp(const tPlace& oPlace, const tString& oAddress);

// Exchanges over a serial device until the other side hangs up. oDevice may carry settings: DEV,SPEED,8N1,none.
int ServeSerial(const tPlace& oPlace, const tString& oDevice);

// One exchange over the till's pipes. The result is the process's exit code.
int ServePipes(const tPlace& oPlace, const char* pccExport, const char* pccTId);

} // namespace zat
