// By what the cards of the measurement are known again, wherever they turn up: digits that every one of their numbers,
// every expiry date and every track has, and nothing else in the process or in the files.
#pragma once
#include <string_view>

namespace trust {

inline constexpr std::string_view kCore = "7731907";  // within every card number, before its last four digits
inline constexpr std::string_view kRest = "88420619"; // in the discretionary data of every track
inline constexpr std::string_view kExpiry = "4907";   // YYMM
inline constexpr std::string_view kPrinted = "07/49"; // the same as people write it

// Each as it may stand in a text; the core besides in hexadecimal, as in a dump.
inline constexpr std::string_view kMarks[] = {
    kCore, "773 1907", "773-1907", "37373331393037", "37 37 33 31 39 30 37",
    kRest, "=4907",    "D4907",    kPrinted};

} // namespace trust
