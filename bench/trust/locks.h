// The parts of the area of lock files.
#pragma once
#include "check.h"

namespace trust {

Finding MeasureStale();
Finding MeasureHolders(const Extent& extent);

} // namespace trust
