#include "cardtext.h"

#include <algorithm>
#include <array>

namespace zat {

namespace {

constexpr size_t kSeen = 4; // digits of a number that stay

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

size_t RunEnd(std::string_view text, size_t from) {
  while (from < text.size() && IsDigit(text[from])) ++from;
  return from;
}

// ---- one number -------------------------------------------------------------------------------------------

// First digits that cards have, and with how many digits. The check digit alone lets one number in ten through:
// clocks in milliseconds begin with 1, dates with 20, filled fields with 0.
struct tIssuer {
  std::string_view oFrom, oTo; // inclusive, compared over their own length
  size_t lFrom, lTo;           // digits of the number
};
constexpr tIssuer kIssuers[] = {
    {"1", "1", 15, 15}, {"22", "27", 16, 19}, {"3", "3", 14, 19}, {"4", "6", 13, 19}, {"7", "9", 16, 19},
};

bool HasIssuer(std::string_view number, size_t digits) {
  return std::any_of(std::begin(kIssuers), std::end(kIssuers), [&](const tIssuer& row) {
    const std::string_view first = number.substr(0, row.oFrom.size());
    return first >= row.oFrom && first <= row.oTo && digits >= row.lFrom && digits <= row.lTo;
  });
}

// The check digit of ISO/IEC 7812: every second digit from the right counts twice. What is no digit is passed over.
bool HasCheckDigit(std::string_view number) {
  int sum = 0;
  bool twice = false;
  for (auto at = number.rbegin(); at != number.rend(); ++at) {
    if (!IsDigit(*at)) continue;
    const int value = (*at - '0') * (twice ? 2 : 1);
    sum += value > 9 ? value - 9 : value;
    twice = !twice;
  }
  return sum % 10 == 0;
}

bool IsCard(std::string_view number, size_t digits) {
  return HasIssuer(number, digits) && HasCheckDigit(number);
}

// ---- what stands behind it --------------------------------------------------------------------------------

bool IsMonth(std::string_view text, size_t at) {
  const int month = (text[at] - '0') * 10 + (text[at + 1] - '0');
  return month >= 1 && month <= 12;
}

// The end of what follows a number on a track 2: separator, expiry date YYMM, service code and more. 0 for anything
// else. 'D' is the separator of tracks in hexadecimal, where it could also be a digit: there the service code is
// wanted too.
size_t TrackEnd(std::string_view text, size_t at) {
  if (at >= text.size() || (text[at] != '=' && text[at] != 'D')) return 0;
  const size_t end = RunEnd(text, at + 1), least = text[at] == '=' ? 4 : 7;
  return end - at - 1 >= least && IsMonth(text, at + 3) ? end : 0;
}

// The end of an expiry date as people write it, MM/YY, when it is the next thing with digits and near: "EXP 12/25". A
// date of a day goes on with another '/'.
size_t ExpiryEnd(std::string_view text, size_t at) {
  constexpr size_t kNear = 16, kDate = 5;
  size_t from = at;
  while (from < text.size() && from - at <= kNear && !IsDigit(text[from])) ++from;
  const size_t slash = RunEnd(text, from), end = RunEnd(text, std::min(slash + 1, text.size()));
  const bool date = slash - from == 2 && end - from == kDate && text[slash] == '/' && IsMonth(text, from);
  return date && (end == text.size() || text[end] != '/') ? end : at;
}

// ---- groups -----------------------------------------------------------------------------------------------

constexpr std::array<size_t, 4> kGroups[] = {{4, 4, 4, 4}, {4, 6, 5, 0}, {4, 6, 4, 0}};

// A number in groups that begins at `from`: its end, or 0.
size_t GroupedEnd(std::string_view text, size_t from) {
  for (const auto& groups : kGroups) {
    size_t at = from, digits = 0;
    char separator = 0;
    bool fits = true;
    for (size_t i = 0; fits && i < groups.size() && groups[i] != 0; ++i) {
      if (i > 0) {
        const char c = at < text.size() ? text[at] : '\0';
        fits = (c == ' ' || c == '-') && (separator == 0 || c == separator);
        separator = c;
        ++at;
      }
      fits = fits && at <= text.size() && RunEnd(text, at) == at + groups[i];
      at += groups[i];
      digits += groups[i];
    }
    if (fits && IsCard(text.substr(from, at - from), digits)) return at;
  }
  return 0;
}

// The card that begins with the run of digits from `at` to `end`, if one does.
bool CardAt(std::string_view text, size_t at, size_t end, tCardPlace& place) {
  const size_t size = end - at, track = size >= kShortestCard ? TrackEnd(text, end) : 0;
  if (track) {
    place = {end - std::min(size, kLongestCard), end, track}; // of a longer run as much as a number can be
    return true;
  }
  const bool address = at >= 2 && text[at - 1] == 'x' && text[at - 2] == '0';
  const bool plain = !address && IsCard(text.substr(at, size), size);
  const size_t last = plain ? end : GroupedEnd(text, at);
  if (last) place = {at, last, ExpiryEnd(text, last)};
  return last != 0;
}

} // namespace

bool FindCard(std::string_view oText, size_t lFrom, tCardPlace& oPlace) {
  for (size_t at = lFrom; at < oText.size();) {
    const size_t end = RunEnd(oText, at);
    if (end > at && CardAt(oText, at, end, oPlace)) return true;
    at = std::max(end, at + 1);
  }
  return false;
}

void HideCard(tString& oText, const tCardPlace& oPlace) {
  size_t keep = oPlace.lEnd;
  for (size_t seen = 0; seen < kSeen; seen += oText[keep] != ' ' && oText[keep] != '-') --keep;
  for (size_t i = oPlace.lBegin; i < oPlace.lStop; ++i)
    if (IsDigit(oText[i]) && (i < keep || i >= oPlace.lEnd)) oText[i] = '*';
}

void HideCards(tString& oText, size_t lFrom) {
  // What stood beside a card may look like one once that is hidden. Each look leaves fewer digits.
  for (bool again = true; again;) {
    again = false;
    tCardPlace place;
    for (size_t at = lFrom; FindCard(oText, at, place); at = place.lStop) {
      HideCard(oText, place);
      again = true;
    }
  }
}

} // namespace zat
