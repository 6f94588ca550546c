// What a shop sends to those who help it: one archive, without a card number in it.
#pragma once
#include "doctor.h"

namespace zat::tool {

// Writes oFile, a gzipped tar archive: the report (oText for people, oJson for programs), the directory listing, the
// configuration, the version lists, the logs. Every file is searched for card numbers, which are masked. A log is cut to
// its last 16 MiB; programs, updates and the days of the simulated terminal are left out. Readable by its owner alone.
// Empty when it is made; else what went wrong, and no file is left.
tString WriteBundle(const Findings& oFound, const tString& oText, const tString& oJson, const tString& oFile);

} // namespace zat::tool
