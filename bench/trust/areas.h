// The areas that are measured. Each works in its working directory, which is empty at first and removed afterwards with
// everything in it, and returns its findings; an area that cannot be measured here says so in a finding that is not
// good. An area runs in a process of its own: what it changes in that process meets no other area.
#pragma once
#include "check.h"

namespace trust {

#define AREA(Measure, name) Findings Measure(const Extent& extent);
#include "areas.inc"
#undef AREA

struct Area {
  const char* pccName;
  Findings (*procMeasure)(const Extent&);
};

inline constexpr Area kAreas[] = {
#define AREA(Measure, name) {#name, Measure},
#include "areas.inc"
#undef AREA
};

} // namespace trust
