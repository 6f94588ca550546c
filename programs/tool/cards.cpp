#include "cards.h"

#include <algorithm>
#include <array>

#include "dissect.h"
#include "gabids.h"
#include "logfile.h"
#include "logmask.h"

namespace zat::tool {

namespace {

constexpr size_t kShortest = 13, kLongest = 19, kSeen = 4;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// ---- one number -------------------------------------------------------------------------------------------

// First digits that cards have, and with how many digits. The check digit alone lets one number in ten through:
// clocks in milliseconds begin with 1, dates with 20, filled fields with 0.
struct tIssuer {
  const char *pccFrom, *pccTo; // inclusive, compared over their own length
  size_t lFrom, lTo;           // digits of the number
};
constexpr tIssuer kIssuers[] = {
    {"1", "1", 15, 15}, {"22", "27", 16, 19}, {"3", "3", 14, 19}, {"4", "6", 13, 19}, {"7", "9", 16, 19},
};

bool HasIssuer(std::string_view digits) {
  return std::any_of(std::begin(kIssuers), std::end(kIssuers), [&](const tIssuer& row) {
    const std::string_view from = row.pccFrom, first = digits.substr(0, from.size());
    return first >= from && first <= row.pccTo && digits.size() >= row.lFrom && digits.size() <= row.lTo;
  });
}

// The check digit of ISO/IEC 7812: every second digit from the right counts twice.
bool HasCheckDigit(std::string_view digits) {
  int sum = 0;
  bool twice = false;
  for (auto at = digits.rbegin(); at != digits.rend(); ++at, twice = !twice) {
    const int value = (*at - '0') * (twice ? 2 : 1);
    sum += value > 9 ? value - 9 : value;
  }
  return sum % 10 == 0;
}

bool IsCard(std::string_view digits) { return HasIssuer(digits) && HasCheckDigit(digits); }

// ---- a text without structure -----------------------------------------------------------------------------

size_t RunEnd(std::string_view text, size_t from) {
  while (from < text.size() && IsDigit(text[from])) ++from;
  return from;
}

// The end of what follows a number on a track 2: separator, expiry date YYMM, service code and more. 0 for anything
// else. 'D' is the separator of tracks in hexadecimal, where it could also be a digit: there the service code is
// wanted too.
size_t TrackEnd(std::string_view text, size_t at) {
  if (at >= text.size() || (text[at] != '=' && text[at] != 'D')) return 0;
  const size_t end = RunEnd(text, at + 1), least = text[at] == '=' ? 4 : 7;
  if (end - at - 1 < least) return 0;
  const int month = (text[at + 3] - '0') * 10 + (text[at + 4] - '0');
  return month >= 1 && month <= 12 ? end : 0;
}

constexpr std::array<size_t, 4> kGroups[] = {{4, 4, 4, 4}, {4, 6, 5, 0}, {4, 6, 4, 0}};

// A number in groups that begins at `from`: its end, or 0.
size_t GroupedEnd(std::string_view text, size_t from) {
  for (const auto& groups : kGroups) {
    tString digits;
    size_t at = from;
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
      if (fits) digits += text.substr(at, groups[i]);
      at += groups[i];
    }
    if (fits && IsCard(digits)) return at;
  }
  return 0;
}

// ---- looking through a text and hiding what is found ------------------------------------------------------

// Reads one text and writes stars over its digits in a copy of the same size.
class Scanner {
public:
  Scanner(std::string_view text_, tString& masked_) : text(text_), masked(masked_) {}
  std::vector<tCard> cards;

  void Record(const tRecord& record) {
    const size_t begin = static_cast<size_t>(record.oText.data() - text.data());
    const size_t size = MessageOf(record.oText).size(), lead = record.oText.size() - size;
    Plain(begin, begin + lead);
    if (size > 0) Message(begin + lead, size);
  }

private:
  // A text without structure.
  void Plain(size_t at, size_t stop) {
    const std::string_view part = text.substr(0, stop);
    while (at < stop) {
      if (!IsDigit(part[at])) {
        ++at;
        continue;
      }
      const size_t end = RunEnd(part, at), size = end - at;
      const bool address = at >= 2 && part[at - 1] == 'x' && part[at - 2] == '0';
      const size_t track = size >= kShortest ? TrackEnd(part, end) : 0;
      const size_t grouped = track ? 0 : GroupedEnd(part, at);
      if (track) {
        Found(end - std::min(size, kLongest), end, track); // of a longer run as much as a number can be
      } else if (grouped) {
        Found(at, grouped, grouped);
      } else if (!address && IsCard(part.substr(at, size))) {
        Found(at, end, end);
      }
      at = std::max({end, track, grouped});
    }
  }

  // A message in a line of the log: its card fields by the log's own rule, so that nothing the log has hidden is
  // found; its free texts as any text; its other fields are what their names say.
  void Message(size_t begin, size_t size) {
    CardFields(begin, size);
    const tDissected parts = Dissect(tString(text.substr(begin, size)));
    size_t done = std::min(size, kHeadSize);
    for (const tFoundField& field : parts.oFields) {
      const tTag* row = TagRow(field.pccTag);
      done = std::min(size, field.lOfs + field.lSize);
      if (!row || row->oShow != eTSplain) Plain(begin + field.lOfs, begin + done);
    }
    Plain(begin + done, begin + size);
  }

  void CardFields(size_t begin, size_t size) {
    WipedText copy(reinterpret_cast<const unsigned char*>(text.data()) + begin, size);
    MaskForLog(copy);
    size_t first = size, last = 0;
    for (size_t i = 0; i < size; ++i) {
      if (!IsDigit(text[begin + i]) || copy.oText[i] == text[begin + i]) continue;
      masked[begin + i] = '*';
      first = std::min(first, i);
      last = i + 1;
    }
    if (last) cards.push_back(counted = {begin + first, last - first});
  }

  // A number from begin to end, and what belongs to it up to stop.
  void Found(size_t begin, size_t end, size_t stop) {
    size_t keep = end;
    for (size_t seen = 0; seen < kSeen; seen += IsDigit(text[keep])) --keep;
    for (size_t i = begin; i < stop; ++i)
      if (IsDigit(text[i]) && (i < keep || i >= end)) masked[i] = '*';
    const bool again = begin < counted.lOfs + counted.lSize && stop > counted.lOfs;
    if (!again) cards.push_back({begin, stop - begin});
  }

  const std::string_view text;
  tString& masked;
  tCard counted = {}; // what CardFields found last, which the look at the fields finds once more
};

std::vector<tCard> Scan(std::string_view text, tString& masked) {
  masked = text;
  Scanner scanner(text, masked);
  ForEachRecord(text, [&](const tRecord& record) { scanner.Record(record); });
  std::sort(scanner.cards.begin(), scanner.cards.end(),
            [](const tCard& a, const tCard& b) { return a.lOfs < b.lOfs; });
  return scanner.cards;
}

} // namespace

std::vector<tCard> FindCards(std::string_view oText) {
  tString masked;
  return Scan(oText, masked);
}

size_t MaskCards(tString& oText) {
  // What stood beside a card may look like one once the card is hidden. Each look leaves fewer digits.
  size_t count = 0, found = 0;
  do {
    tString masked;
    found = Scan(oText, masked).size();
    count += found;
    oText = std::move(masked);
  } while (found > 0);
  return count;
}

} // namespace zat::tool
