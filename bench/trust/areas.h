// The areas that are measured. Each works in a scratch place of its own, leaves nothing behind and returns its findings;
// an area that cannot be measured here says so in a finding that is not good.
#pragma once
#include "check.h"

namespace trust {

} // namespace trust
