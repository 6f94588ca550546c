#include "amount.h"

#include <algorithm>
#include <charconv>

namespace zat {
namespace {

constexpr size_t kDecimals = 2;
constexpr size_t kWireDigits = 12;

bool OnlyDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view WithoutLeft(std::string_view text, char c) {
  return text.substr(std::min(text.find_first_not_of(c), text.size()));
}

// At most 12 digits, so the number is always an amount.
Amount OfDigits(std::string_view digits) {
  int64_t kopecks = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), kopecks);
  return Amount::ofKopecks(kopecks);
}

AmountFault Read(std::string_view text, std::optional<Amount>& amount) {
  if (text.starts_with('-')) return AmountFault::Negative;
  size_t point = text.find_first_of(".,");
  std::string_view whole = text.substr(0, point);
  std::string_view part = point == text.npos ? "0" : text.substr(point + 1);
  if (whole.empty() || part.empty() || !OnlyDigits(whole) || !OnlyDigits(part))
    return AmountFault::NotANumber;
  if (part.size() > kDecimals) return AmountFault::Decimals;
  whole = WithoutLeft(whole, '0');
  if (whole.size() > kWireDigits - kDecimals) return AmountFault::TooLarge;
  tString digits(whole);
  digits.append(part).append(kDecimals - part.size(), '0');
  amount = OfDigits(digits);
  return AmountFault::None;
}

} // namespace

std::optional<Amount> Amount::parse(std::string_view text, AmountFault* fault) {
  std::optional<Amount> amount;
  AmountFault found = Read(text, amount);
  if (fault) *fault = found;
  return amount;
}

std::string Amount::text() const {
  tString part = std::to_string(kopecks());
  return std::to_string(roubles()) + "." + tString(kDecimals - part.size(), '0') + part;
}

namespace client {

bool ReadWireAmount(std::string_view digits, Amount& amount) {
  digits = WithoutLeft(digits, ' ');
  digits = digits.substr(0, digits.find_last_not_of(' ') + 1);
  if (digits.empty() || digits.size() > kWireDigits || !OnlyDigits(digits)) return false;
  amount = OfDigits(digits);
  return true;
}

tString WireAmount(Amount amount) { return std::to_string(amount.inKopecks()); }

} // namespace client
} // namespace zat
