// Masks, digits and words of texts that somebody else has chosen.
#include <algorithm>
#include <cstring>
#include <memory>

#include "MiscFunc.h"
#include "fuzz.h"
#include "mmisc.h"
#include "updtlist.h"
#include "util.h"

namespace {

std::string CText(fuzz::Bytes& in) { return in.Short().c_str(); }

// Whether a mask of the file-name kind covers a text: the text is gone through once, the first match counts.
bool Covers(const char* text, const char* mask) {
  if (!*mask) return !*text;
  if (!*text) return mask[strspn(mask, "*")] == 0;
  if (*mask != '*') return (*mask == '?' || *mask == *text) && Covers(text + 1, mask + 1);
  const char next = mask[1];
  while (*text && !(next == '?' || next == '*' || (next && next == *text))) ++text;
  return Covers(text, mask + 1);
}

} // namespace

FUZZ_TARGET(masks) {
  const std::string mask = CText(in), fill = in.Text(1), text = CText(in);
  std::string bytes = in.Rest();
  size_t used = 0;
  const size_t matched = strlenmask(text.c_str(), mask.c_str(), &used);
  FUZZ_HOLDS(matched <= text.size() && used <= mask.size());
  FUZZ_HOLDS(strmask(text.c_str(), mask.c_str()) == Covers(text.c_str(), mask.c_str()));

  // A buffer just as long as the text and its end mark.
  for (const bool keep : {false, true}) {
    auto buffer = std::make_unique<char[]>(text.size() + 1);
    memcpy(buffer.get(), text.c_str(), text.size() + 1);
    size_t length = text.size();
    const bool match =
        cMaskTestString(mask.c_str(), buffer.get(), &length, fill.empty() ? nullptr : fill.data(), keep);
    FUZZ_HOLDS(length <= text.size() && (length == text.size() || buffer[length] == 0));
    if (match && keep && length == text.size()) { // what fits, fits again and stays
      const std::string first(buffer.get(), length);
      FUZZ_HOLDS(
          cMaskTestString(mask.c_str(), buffer.get(), &length, fill.empty() ? nullptr : fill.data(), true));
      FUZZ_HOLDS(length == first.size() && first == std::string(buffer.get(), length));
    }
  }
  // Nothing counts as an empty text.
  FUZZ_HOLDS(strlenmask(text.c_str(), nullptr, nullptr) == 0 &&
             strlenmask(nullptr, mask.c_str(), nullptr) == 0);
  FUZZ_HOLDS(strmask(text.c_str(), nullptr) == text.empty() && strmask(nullptr, nullptr));
  FUZZ_HOLDS(oMaskParser(nullptr, 0, nullptr) == eMCNone &&
             !cMaskTestString(nullptr, &bytes[0], nullptr, nullptr, true));
  FUZZ_HOLDS(!cMaskTestString(mask.c_str(), nullptr, nullptr, nullptr, true));
  std::string whole = text; // up to its end mark, without a length
  cMaskTestString(mask.c_str(), whole.data(), nullptr, fill.empty() ? nullptr : fill.data(), false);
  char two[2] = {};
  FUZZ_HOLDS(carememcpy(two, 2, text.data(), text.size()) == std::min<size_t>(2, text.size()));
  FUZZ_HOLDS(carememcpy(nullptr, 2, text.data(), 2) == 0 && carememcpy(two, 2, nullptr, 2) == 0);
  FUZZ_HOLDS((UL_SCmp(text.c_str(), mask.c_str()) < 0) == (UL_SCmp(mask.c_str(), text.c_str()) > 0));
}

FUZZ_TARGET(digits) {
  const int base = static_cast<int>(in.Below(40));
  const std::string bytes = in.Rest();
  char found = 2, before = 0;
  const uint64_t number = GetNumbers(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                                     &IsTo, base, &found, &before);
  uint64_t expected = 0;
  size_t at = 0, digits = 0;
  int digit = 0;
  while (at < bytes.size() && !IsTo(bytes[at], base, nullptr)) ++at;
  for (; at + digits < bytes.size() && IsTo(bytes[at + digits], base, &digit); ++digits)
    expected = expected * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
  FUZZ_HOLDS(found == (digits > 0) && number == expected);
  FUZZ_HOLDS(before == (digits && at ? bytes[at - 1] : 0));
  const char* text = bytes.data();
  size_t length = bytes.size();
  const bool item = FindItem(
      &text, &length, [](char c) { return IsTo(c, 16, nullptr); }, base);
  FUZZ_HOLDS(!item || (length > 0 && text >= bytes.data() && text + length <= bytes.data() + bytes.size()));

  tIntStrMap words;
  ISMfromStr(words, bytes);
  for (const auto& [key, word] : words) FUZZ_HOLDS(!word.empty() && word.find(' ') == word.npos && key > 0);
  tDateTame date;
  for (int type = 0; type <= 9; ++type) {
    tString text14 = bytes;
    FUZZ_HOLDS(date.Convert(text14, static_cast<tDTType>(type)) == (bytes.size() == 14));
  }
  FUZZ_HOLDS(AmountCmp(bytes, "0" + bytes) == 0);
  const char check = CalcStrCCh(bytes.data(), bytes.size());
  FUZZ_HOLDS(check >= '0' && check <= '?');
}
