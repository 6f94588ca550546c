#include "amount.h"

#include <algorithm>
#include <charconv>

namespace zat::till {
namespace {

constexpr uint64_t kKopecks = 100;
constexpr size_t kDecimals = 2;
constexpr size_t kWireDigits = 12;

bool OnlyDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view WithoutLeft(std::string_view text, char c) {
  return text.substr(std::min(text.find_first_not_of(c), text.size()));
}

// At most 12 digits, so the number always fits.
uint64_t Number(std::string_view digits) {
  uint64_t number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

} // namespace

AmountFault ReadAmount(std::string_view text, uint64_t& kopecks) {
  if (text.starts_with('-')) return AmountFault::Negative;
  size_t point = text.find_first_of(".,");
  std::string_view whole = text.substr(0, point);
  std::string_view part = point == text.npos ? "0" : text.substr(point + 1);
  if (whole.empty() || part.empty() || !OnlyDigits(whole) || !OnlyDigits(part))
    return AmountFault::NotANumber;
  if (part.size() > kDecimals) return AmountFault::Decimals;
  whole = WithoutLeft(whole, '0');
  if (whole.size() > kWireDigits - kDecimals) return AmountFault::TooLong;

  tString digits(whole);
  digits.append(part).append(kDecimals - part.size(), '0');
  uint64_t sum = Number(digits);
  if (sum == 0) return AmountFault::Zero;
  kopecks = sum;
  return AmountFault::None;
}

bool ReadWireAmount(std::string_view digits, uint64_t& kopecks) {
  digits = WithoutLeft(digits, ' ');
  digits = digits.substr(0, digits.find_last_not_of(' ') + 1);
  if (digits.empty() || digits.size() > kWireDigits || !OnlyDigits(digits)) return false;
  kopecks = Number(digits);
  return true;
}

tString WireAmount(uint64_t kopecks) { return std::to_string(kopecks); }

tString ShowAmount(uint64_t kopecks) {
  tString part = std::to_string(kopecks % kKopecks);
  return std::to_string(kopecks / kKopecks) + "." + tString(kDecimals - part.size(), '0') + part;
}

} // namespace zat::till
