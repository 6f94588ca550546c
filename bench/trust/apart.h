// An area in a process and a place of its own.
#pragma once
#include "areas.h"

namespace trust {

struct Outcome {
  Findings oFindings;
  double dSeconds; // what the area took
};

// Runs an area in a forked copy of this process, whose working and temporary directory is a new one: where programs may
// be executed there in memory, which is quicker than a disk. A crash, an exception, an area that is not over after
// dLimit seconds and a process that an area leaves behind are findings too. Nothing is left of the area afterwards.
Outcome RunApart(const Area& area, const Extent& extent, double dLimit);

} // namespace trust
