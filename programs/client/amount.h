// Amounts as the wire carries them: the digits of a whole number of kopecks.
#pragma once
#include "zat_client.h"
#include "ztypes.h"

namespace zat::client {

// Reads the digits of an amount field of a message (blanks around them allowed, at most 12 digits). False, with the
// amount left as it was, for anything else.
bool ReadWireAmount(std::string_view digits, Amount& amount);

// The digits of an amount field, without leading zeros: 125000.
tString WireAmount(Amount amount);

} // namespace zat::client
