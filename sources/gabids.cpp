#include "gabids.h"

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

} // namespace zat
