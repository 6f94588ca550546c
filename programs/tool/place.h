// Where things are in an installation.
#pragma once
#include "ztypes.h"

namespace zat::tool {

// The root of the installation that this program lies in, ending with '/'.
tString OwnRoot();

// The log that the tills of an installation write: LOGFILE of its micromgl.cfg, else BIN/zat_comm.log. oRoot ends
// with '/'. "stdout" when there is none on the disk.
tString LogOfRoot(const tString& oRoot);

// The log that a user means: an installation's directory (or its BIN), a log file, "-", or nothing for OwnRoot.
tString LogOfPlace(const tString& oPlace);

} // namespace zat::tool
