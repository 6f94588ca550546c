// The dictionary of tags.
#include "gabids.h"
#include <gtest/gtest.h>
#include <set>
#include <string>

TEST(Gabids, EveryTagIsFoundByItsTextAndOnlyThere) {
  size_t count = 0;
  const zat::tTag* table = zat::Tags(&count);
  std::set<std::string> texts;
  for (size_t i = 0; i < count; ++i) {
    EXPECT_TRUE(texts.insert(table[i].pccTag).second) << table[i].pccTag;
    EXPECT_EQ(zat::TagFromText(table[i].pccTag), table[i].pccTag);
    EXPECT_NE(zat::TagGroupText(table[i].pccTag), nullptr) << table[i].pccTag;
  }
  EXPECT_EQ(texts.size(), 75u);
  for (const char* text : {"", "tr.amt", "TR.AM", "TR.AMT.", "TR."})
    EXPECT_EQ(zat::TagFromText(text), nullptr) << text;
  EXPECT_EQ(zat::TagFromText(std::string("TR.AMT")), abisTRamt);
  const char* spelt = "TR.AMT";
  EXPECT_NE(static_cast<const void*>(spelt), static_cast<const void*>(abisTRamt)) << "spelt out it is no tag";
}
