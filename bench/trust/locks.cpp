#include "locks.h"
#include "areas.h"

namespace trust {

Findings MeasureLocks(const Extent& extent) { return {MeasureHolders(extent), MeasureStale()}; }

} // namespace trust
