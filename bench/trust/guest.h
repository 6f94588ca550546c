// The parts of the area of the good guest.
#pragma once
#include "check.h"

namespace trust {

Finding MeasureSymbols();
Finding MeasureBrokenPipes();
Finding MeasureForks(const Extent& extent);

} // namespace trust
