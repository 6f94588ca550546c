// The store: its bytes, its growth, and what it does differently from what one would expect.
#include "odd_alloc.h"
#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace {

// What stands at a path: its type and its bytes. A store that cannot answer that is damaged.
template<class S> std::string Get(S& store, const char* path) {
  EXPECT_TRUE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags))
      << zat::SqueezeDump(store.pbBuffer, store.nBuffer);
  std::string value = "<unset>";
  const tDataType type = store.GetData(store.Find(path), &value);
  return std::to_string(type) + ":" + value;
}

TEST(Squeeze, TheBufferIsTheOneDrawn) {
  std::ifstream header(ZAT_SOURCE_DIR "/samples/eftp/sources/squeezenode.h");
  std::string drawn; // lines of an offset and bytes
  static const std::regex kLine("//   [0-9A-F]{3}  ((?:[0-9A-F]{2} {1,2})+).*"), kByte("[0-9A-F]{2}");
  std::smatch found;
  for (std::string line; std::getline(header, line);) {
    const std::string part = std::regex_match(line, found, kLine) ? found[1].str() : "";
    for (std::sregex_iterator it(part.begin(), part.end(), kByte), end; it != end; ++it)
      drawn += static_cast<char>(std::stoi(it->str(), nullptr, 16));
  }
  OddStore store = Drawn();
  EXPECT_EQ(std::string(store.pbBuffer, store.nBuffer), drawn);
}

TEST(Squeeze, PathsAndTheirDepth) {
  SqueezeT store;
  const std::pair<const char*, uint64_t> depths[] = {{"", 0},   {"A", 1}, {"A.B", 2}, {"A..B", 0},
                                                     {".A", 0}, {".", 0}, {"A.", 2},  {"A.B.C", 3}};
  for (auto [path, deep] : depths) EXPECT_EQ(store.PathDeep(path), deep) << path;
  // end: whether it is the last component; -1: nothing is touched
  typedef std::tuple<const char*, uint64_t, bool, const char*, int> Row;
  for (const auto& [path, level, one, cut, end] :
       {Row{"A.BC.D", 1, true, "A", 0}, Row{"A.BC.D", 2, true, "BC", 0}, Row{"A.BC.D", 3, true, "D", 1},
        Row{"A.BC.D", 2, false, "BC.D", 0}, Row{"A.BC.D", 4, true, "old", -1}, Row{"A.", 2, true, "", 1},
        Row{"A", 0, true, "old", -1}}) {
    std::string out = "old";
    bool last = end == 0; // the opposite of what is to come
    size_t length = store.PathParser(path, level, one, last, out);
    EXPECT_EQ(length, end < 0 ? 0 : out.size());
    EXPECT_EQ(out, cut) << path << " level " << level;
    EXPECT_EQ(last, end == 1) << path << " level " << level;
  }
}

TEST(Squeeze, TypesThatAreStoredAndAnswered) {
  SqueezeT store;
  store.PutLong("A.L", -5);
  store.PutData("A.D", "xy", 2);
  store.PutData("A.E", "", 0);
  store.PutDataEx("A.S", "12", 2, eDTshort);
  store.PutDataEx("A.T", "1234567", 7, eDTlong);
  typedef std::tuple<const char*, tDataType, tDataType> Row;
  for (auto [path, data, asLong] :
       {Row{"A", eDTnode, eDTnode}, Row{"A.L", eDTlong, eDTlong}, Row{"A.D", eDTpdata, eDTpdata},
        Row{"A.E", eDTpempel, eDTpempel}, Row{"A.S", eDTshort, eDTwrong}, Row{"A.T", eDTlong, eDTwrong},
        Row{"A.X", eDTnull, eDTnull}}) {
    long number = 77;
    EXPECT_EQ(store.GetData(store.Find(path)), data) << path;
    EXPECT_EQ(store.GetLong(store.Find(path), number), asLong) << path;
    EXPECT_EQ(number, asLong == eDTlong ? -5 : 77) << path;
  }
  EXPECT_EQ(store.PutDataEx("A.Q", "1", 1, eDTwrong), nullptr);
  EXPECT_EQ(store.PutDataEx("A.Q", nullptr, 1, eDTpdata), nullptr);
  EXPECT_EQ(store.PutDataEx("A.Q.", "1", 1, eDTpdata), nullptr) << "an empty component at the end";
  EXPECT_EQ(store.GetData(store.Find("A.Q")), eDTnode) << "what stands before it is made";
}

TEST(Squeeze, IdentifiersBelongToOneStore) {
  SSqueeze first, outlives;
  SqueezeT store;
  first = store.PutData("A", "1", 1);
  SqueezeT copy(store);
  EXPECT_EQ(copy.GetData(first), eDTnull);
  copy.PutLong("B", 1);
  EXPECT_EQ(store.GetData(first), eDTpdata) << "a copy counts for itself";
  store = copy;
  EXPECT_EQ(store.GetData(first), eDTnull);
  outlives = SqueezeT().PutLong("A", 1);
  EXPECT_EQ(outlives.ss_get(), nullptr);
}

TEST(Squeeze, UnlinkAnswersBackwardsWhenItHadToSearch) {
  SqueezeT store;
  for (const char* path : {"P.a", "P.b", "P.c", "Q"}) store.PutData(path, path, 1); // P: a c b
  auto node = [&](const char* path) { return store.FindEx(path, nullptr, false); };
  EXPECT_EQ(store.Unlink(node("Q"), node("Q")), nullptr) << "not the first top-level node";
  EXPECT_EQ(store.Unlink(node("P"), node("P.a")), nullptr) << "no child to search in";
  EXPECT_EQ(store.Unlink(node("Q"), node("P.c")), nullptr);
  auto* lone = store.node_putdata("\0\1x", 3, true);
  EXPECT_EQ(store.Unlink(lone, node("P")), lone) << "not there at all";
  auto* b = node("P.b");
  EXPECT_EQ(store.Unlink(b, node("P")), nullptr) << "taken out, and denied";
  EXPECT_EQ(store.prop_GetRight(b), 0u);
  EXPECT_FALSE(node("P.b") || store.LinkNode(b, b, false));
  EXPECT_EQ(store.Unlink(node("P.c"), node("P.a")), store.node_get(4)) << "the true predecessor";
}

TEST(Squeeze, ASearchEndsAtAMatchThatLeadsNowhere) {
  SqueezeT store;
  auto* first = store.LinkData(nullptr, "A", nullptr, 0, eDTnode, true);
  store.LinkData(first, "X", "1", 1, eDTpdata, true);
  auto* second = store.LinkData(store.node_get(1), "A", nullptr, 0, eDTnode, false);
  store.LinkData(second, "B", "1", 1, eDTpdata, true);
  EXPECT_EQ(store.FindEx("A.B", nullptr, false), nullptr);
  EXPECT_EQ(store.Searcher(store.node_get(1), "A.B", false), nullptr);
  EXPECT_EQ(store.Searcher(store.node_get(3), "A.B", false), store.node_get(4));
}

TEST(Squeeze, ReplacingFollowsRecordsThatMove) {
  SqueezeT empties(1024, 0), low(1024, 0);
  for (const char* path : {"A", "B"}) empties.PutData(path, path, 1);
  for (int i = 0; i < 2; ++i) empties.node_delete(empties.node_putdata("\0\1x", 3, false), true);
  empties.node_delete(empties.node_findempty(), true); // it is counted already
  ASSERT_EQ(empties.prop_GetEmpty(), 1u); // the number of A, which is first: record 0's first word
  empties.PutData("A", "3", 1);
  EXPECT_EQ(Get(empties, "A") + Get(empties, "B"), "1:31:B");

  auto* below = low.node_putdata("\0\1x", 3, false);
  for (const char* path : {"P", "Q"}) low.PutData(path, path, 1);
  low.node_delete(below, true);
  for (const char* value : {"1", "2"}) low.PutData("P.a", value, 1); // in record 1, below its parent's
  EXPECT_EQ(Get(low, "P.a") + Get(low, "Q"), "1:21:Q");
}

TEST(Squeeze, TagsBeyond255BytesAreStoredButNotFound) {
  SqueezeT store;
  std::string tag(300, 'T'), value;
  SSqueeze id = store.PutData(tag, "v", 1);
  EXPECT_EQ(store.GetData(id, &value, &tag), eDTpdata);
  EXPECT_EQ(tag + "|" + value, std::string(300 % 256, 'T') + "|" + std::string(256, 'T') + "v");
  EXPECT_EQ(Get(store, std::string(300, 'T').c_str()), "-3:<unset>");
}

TEST(Squeeze, DeepPathsAreRefusedAndDeepTreesFreed) {
  SqueezeT store;
  std::string path = "a";
  for (int i = 1; i < 256; ++i) path += ".a";
  EXPECT_NE(store.PutDataEx(path, "1", 1, eDTpdata), nullptr);
  EXPECT_EQ(store.PutDataEx(path + ".a", "1", 1, eDTpdata), nullptr);
  EXPECT_EQ(Get(store, path.c_str()), "1:1");
  zat::SqueezeGuard::fEnabled = false; // many nodes, checked twice for each
  auto* node = store.PutDataEx("a", nullptr, 0, eDTnode);
  for (int i = 0; i < 1500; ++i) node = store.LinkData(node, "b", nullptr, 0, eDTnode, true);
  store.PutData("a", "1", 1);
  zat::SqueezeGuard::fEnabled = true;
  EXPECT_EQ(store.prop_GetNodsNum(), 2u);
  EXPECT_EQ(Get(store, "a"), "1:1");
}

TEST(Squeeze, MemoryRefusedKeepsWhatIsThereOrGivesAnEmptyStore) {
  {
    OddStore store(64, 8);
    store.PutData("A", "1", 1);
    const std::string value(100, 'b');
    store.PutData("B", value.data(), 100);
    EXPECT_EQ(store.nBuffer, 278u)
        << "72, and two steps of the longest blob: the first leaves no room beside";

    OddMemory::nLimit = store.nBuffer;
    EXPECT_EQ(store.PutData("C", std::string(900, 'c').data(), 900).ss_get(), nullptr);
    EXPECT_EQ(store.nStep, 903u) << "raised all the same";
    EXPECT_EQ(store.prop_GetEmpty(), 1u);
    OddMemory::nLimit = 16; // not even the shorter block
    store.mem_squeeze();
    EXPECT_EQ(store.mem_freesize() + store.prop_GetEmpty(), 0u);
    OddStore unusable(64, 64), copy(store);
    EXPECT_EQ(unusable.PutLong("A", 1).ss_get(), nullptr);
    EXPECT_EQ(copy.GetData(copy.Find("A")) + unusable.GetData(unusable.Find("A")), 2 * eDTnull);
    copy.mem_squeeze();
    OddMemory::nLimit = ~size_t{0};
    copy = store;
    EXPECT_EQ(Get(copy, "A") + Get(copy, "B"), "1:11:" + value);
    OddMemory::nLimit = 16;
    copy = store;
    EXPECT_EQ(Get(copy, "B"), "-3:<unset>") << "empty rather than old";
    OddMemory::nLimit = ~size_t{0};
    store.PutData("C", "3", 1);
    EXPECT_EQ(Get(store, "C"), "1:3");
    store = OddStore();
    EXPECT_EQ(store.PutData("A", "x", ~size_t{0}).ss_get(), nullptr);
  }
  EXPECT_EQ(OddMemory::nLive, 0u);
  EXPECT_FALSE(OddMemory::fBroken);
}

TEST(Squeeze, BlobsOfNoLengthAndOfAnother) {
  SqueezeT store(1024, 0);
  auto* node = store.node_putdata("abc", 3, false);
  auto* none = store.node_putdata("", 0, false);
  char out[5] = "....";
  store.prop_PutData(node, "xy", 2);
  EXPECT_EQ(store.prop_GetData(node, out, 4), 4u);
  EXPECT_STREQ(out, "....") << "copied only at their length";
  EXPECT_EQ(store.prop_GetData(node, out, 2), 2u);
  EXPECT_STREQ(out, "ab..");
  store.node_delete(node, true);
  EXPECT_EQ(store.prop_GetDataOfs(none), 1024u) << "inside the data area still";
}

// A walk without a path visits what visit says, parents before children before siblings.
struct Visitor : SqueezeT {
  std::string sSeen, sStopAt;
  tWalkerCode visit(tNode* po, size_type nLevel, tNode*) override {
    std::string tag;
    GetDataEx(po, nullptr, &tag);
    sSeen += tag + std::to_string(nLevel);
    return tag == sStopAt ? eWCfind : eWCnextwidth;
  }
};

TEST(Squeeze, AWalkWithoutAPathIsLedByVisit) {
  Visitor store;
  for (const char* path : {"A.a", "A.b", "B.c"}) store.PutData(path, path, 1);
  auto* first = store.node_get(store.prop_GetFirst());
  EXPECT_EQ(store.Searcher(first, "", false), nullptr);
  EXPECT_EQ(store.sSeen, "A1a2b2B1c2");
  store.sStopAt = "b";
  EXPECT_EQ(store.Searcher(first, "", false), store.FindEx("A.b", nullptr, false));
  EXPECT_EQ(store.Walker(first, "A.b", 1, 2, first), eWCnextdown);
  EXPECT_EQ(store.Walker(first, "Z.b", 1, 2, first), eWCnextwidth);
}

} // namespace
