#include "cards.h"

#include <algorithm>

#include "cardtext.h"
#include "dissect.h"
#include "gabids.h"
#include "logfile.h"
#include "logmask.h"

namespace zat::tool {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

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
    tCardPlace place;
    for (; FindCard(text.substr(0, stop), at, place); at = place.lStop) Found(place);
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

  void Found(const tCardPlace& place) {
    HideCard(masked, place);
    const bool again = place.lBegin < counted.lOfs + counted.lSize && place.lStop > counted.lOfs;
    if (!again) cards.push_back({place.lBegin, place.lStop - place.lBegin});
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
