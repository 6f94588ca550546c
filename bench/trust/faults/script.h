// The exchange that the measurements run: what the till asks, and what the module answers.
#pragma once
#include <cstddef>
#include <string_view>

namespace faults {

constexpr size_t kHeader = 14;
constexpr std::string_view kGreeting = "module of the measurements";
constexpr std::string_view kSale = "10"
                                   "0000000123"
                                   "27"
                                   "0000001250004000001234567899=2512101123";
static_assert(kSale.size() == kHeader + 0x27);

// The blocks of an approved sale, in this order. The response code stands at its place in the third.
constexpr std::string_view kAnswers[] = {
    "53"
    "0000000123"
    "04"
    "WAIT",
    "32"
    "0000000123"
    "0A"
    "1A RECEIPT",
    "60"
    "0000000123"
    "3B"
    "1"
    "000000125000"
    "810"
    "20261121150000"
    "000000000000001"
    "000000000001"
    "00",
    "#0"
    "0000000123"
    "00",
};
constexpr size_t kResponse = 2; // the block that approves
constexpr size_t kCodeAt = kHeader + 1 + 12 + 3 + 14 + 15 + 12;
static_assert(kAnswers[kResponse].size() == kHeader + 0x3B && kAnswers[kResponse].substr(kCodeAt) == "00");

// What the module writes in all: each block with a start byte, two bytes of length and an end byte.
constexpr size_t kFrame = 4;
constexpr size_t kStream = [] {
  size_t all = kFrame + kGreeting.size();
  for (std::string_view answer : kAnswers) all += kFrame + answer.size();
  return all;
}();

} // namespace faults
