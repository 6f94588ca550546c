// Amounts as a person writes them and as the wire carries them, without floating point: a sum is a whole
// number of kopecks from the first character to the last digit.
#pragma once
#include <cstdint>
#include <string_view>

#include "ztypes.h"

namespace zat::till {

// What is wrong with a written amount.
enum class AmountFault { None, NotANumber, Negative, Decimals, TooLong, Zero };

// Reads "1250", "1250.5", "1250.50" or "1250,50" into kopecks. Digits and one point or comma with one or two
// digits behind it; nothing else, no blanks, no signs, no groups. An amount is above zero and fits the 12
// digits of the wire (up to 9999999999.99). On a fault kopecks is left as it was.
AmountFault ReadAmount(std::string_view text, uint64_t& kopecks);

// Reads the digits of an amount field of a message (blanks around them allowed). False for anything else.
bool ReadWireAmount(std::string_view digits, uint64_t& kopecks);

// The digits of an amount field, without leading zeros: 125000.
tString WireAmount(uint64_t kopecks);

// For people: 1250.00.
tString ShowAmount(uint64_t kopecks);

} // namespace zat::till
