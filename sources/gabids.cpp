#include "gabids.h"
#include "util.h"
#include <algorithm>

namespace {

// Named arrays, because the linker may give equal literals one address: a text that a caller spells out would
// then pass for the tag itself.
#define GABIDS_TEXT(name, text, show) constexpr char mc_##name[] = text;
GABIDS(GABIDS_TEXT)
#undef GABIDS_TEXT

} // namespace

#define GABIDS_DEFINE(name, text, show) constexpr const char* name = mc_##name;
GABIDS(GABIDS_DEFINE)
#undef GABIDS_DEFINE

namespace zat {

namespace {

constexpr tTag kTags[] = {
#define GABIDS_ROW(name, text, show) {name, #name, show},
    GABIDS(GABIDS_ROW)
#undef GABIDS_ROW
};

struct tGroup {
  std::string_view oName;
  const char* pccText;
};

constexpr tGroup kGroups[] = {
    {"TR", "transaction"},
    {"TM", "terminal"},
    {"EF", "EFTP message field"},
    {"A7", "value in A7 coding"},
    {"3D", "3-D Secure"},
    {"UP", "update"},
    {"CH", "cheque"},
    {"ER", "error"},
    {"FK", "process fork"},
};

// Replaces every run of 13 digits or more, as long as the shortest card number, but for its last four.
void MaskRuns(std::string& oText) {
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  for (auto begin = oText.begin(); begin != oText.end();) {
    begin = std::find_if(begin, oText.end(), digit);
    auto end = std::find_if_not(begin, oText.end(), digit);
    if (end - begin >= 13) std::fill(begin, end - 4, '*');
    begin = end;
  }
}

tTagShow ShowOf(std::string_view oPath) {
  if (const tTag* row = TagRow(oPath)) return row->oShow;
  return oPath.starts_with(abisTRsec) ? eTShidden : eTSscan;
}

} // namespace

const tTag* Tags(size_t* plCount) {
  *plCount = sizeof kTags / sizeof kTags[0];
  return kTags;
}

const tTag* TagRow(std::string_view oText) {
  for (const tTag& row : kTags)
    if (oText == row.pccTag) return &row;
  return nullptr;
}

const char* TagFromText(std::string_view oText) {
  const tTag* poRow = TagRow(oText);
  return poRow ? poRow->pccTag : nullptr;
}

const char* TagGroupText(std::string_view oTag) {
  std::string_view group = oTag.substr(0, oTag.find('.'));
  for (const tGroup& row : kGroups)
    if (group == row.oName) return row.pccText;
  return nullptr;
}

void MaskValue(std::string_view oPath, std::string& oValue) {
  switch (ShowOf(oPath)) {
  case eTSplain: break;
  case eTSscan: MaskRuns(oValue); break;
  case eTSlast4: MaskPEX(oValue, 4, '*'); break;
  case eTShidden: oValue.assign(oValue.size(), '*'); break;
  }
}

} // namespace zat
