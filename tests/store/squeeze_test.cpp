// The store: its bytes, its growth, and what it does differently from what one would expect.
#include "EFTPMisc.h"
#include "odd_alloc.h"
#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace {

typedef basic_squeezet<char, OddAlloc<char>> OddStore;

template<class S> std::string Order(S& store, uint64_t first) {
  std::string tags, tag;
  for (; first != 0; first = store.prop_GetRight(store.node_get(first))) {
    store.GetDataEx(store.node_get(first), nullptr, &tag);
    tags += tag;
  }
  return tags;
}

template<class S> void ExpectSound(S& store) {
  zat::tSqueezeFault fault;
  EXPECT_TRUE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags, &fault))
      << fault.pccWhat << " at " << fault.nOffset << "\n"
      << zat::SqueezeDump(store.pbBuffer, store.nBuffer);
}

template<class S> std::string Get(S& store, const char* path) {
  std::string value = "<unset>";
  tDataType type = store.GetData(store.Find(path), &value);
  return std::to_string(type) + ":" + value;
}

// The drawing in squeezenode.h, read from there: lines of an offset and bytes.
std::string Drawn() {
  std::ifstream header(ZAT_SOURCE_DIR "/samples/eftp/sources/squeezenode.h");
  std::string bytes;
  static const std::regex kLine("//   [0-9A-F]{3}  ((?:[0-9A-F]{2} {1,2})+).*"), kByte("[0-9A-F]{2}");
  std::smatch found;
  for (std::string line; std::getline(header, line);)
    if (std::regex_match(line, found, kLine)) {
      std::string part = found[1];
      for (std::sregex_iterator it(part.begin(), part.end(), kByte), end; it != end; ++it)
        bytes += static_cast<char>(std::stoi(it->str(), nullptr, 16));
    }
  return bytes;
}

TEST(Squeeze, TheBufferIsTheOneDrawn) {
  SqueezeT store(160, 0);
  store.PutData("A.B", "1", 1);
  store.PutLong("C", 5);
  EXPECT_EQ(std::string(store.pbBuffer, store.nBuffer), Drawn());
}

TEST(Squeeze, PathsAndTheirDepth) {
  SqueezeT store;
  struct {
    const char* path;
    uint64_t deep;
  } const depths[] = {{"", 0},   {"A", 1}, {"A.B", 2}, {"A..B", 0},
                      {".A", 0}, {".", 0}, {"A.", 2},  {"A.B.C", 3}};
  for (auto [path, deep] : depths) EXPECT_EQ(store.PathDeep(path), deep) << path;

  struct {
    const char* path;
    uint64_t level;
    bool one;
    const char* out;
    int last; // -1: not touched
  } const cuts[] = {{"A.BC.D", 1, true, "A", 0},    {"A.BC.D", 2, true, "BC", 0},
                    {"A.BC.D", 3, true, "D", 1},    {"A.BC.D", 2, false, "BC.D", 0},
                    {"A.BC.D", 4, true, "old", -1}, {"A.", 2, true, "", 1},
                    {"A", 0, true, "old", -1}};
  for (auto& cut : cuts) {
    std::string out = "old";
    bool last = cut.last == 0; // the opposite of what is to come
    size_t length = store.PathParser(cut.path, cut.level, cut.one, last, out);
    EXPECT_EQ(length, cut.last < 0 ? 0 : out.size());
    EXPECT_EQ(out, cut.out) << cut.path << " level " << cut.level;
    EXPECT_EQ(last, cut.last == 1) << cut.path << " level " << cut.level;
  }
}

TEST(Squeeze, TypesThatAreStoredAndAnswered) {
  SqueezeT store;
  long number = 77;
  EXPECT_EQ(store.GetLong(store.Find("A"), number), eDTnull);
  store.PutLong("A.L", -5);
  store.PutData("A.D", "xy", 2);
  store.PutData("A.E", "", 0);
  store.PutDataEx("A.N", nullptr, 0, eDTnode);
  store.PutDataEx("A.S", "12", 2, eDTshort);
  store.PutDataEx("A.T", "1234567", 7, eDTlong);
  struct {
    const char* path;
    tDataType data, asLong;
  } const rows[] = {{"A", eDTnode, eDTnode},       {"A.L", eDTlong, eDTlong}, {"A.D", eDTpdata, eDTpdata},
                    {"A.E", eDTpempel, eDTpempel}, {"A.N", eDTnode, eDTnode}, {"A.S", eDTshort, eDTwrong},
                    {"A.T", eDTlong, eDTwrong},    {"A.X", eDTnull, eDTnull}};
  for (auto [path, data, asLong] : rows) {
    number = 77;
    EXPECT_EQ(store.GetData(store.Find(path)), data) << path;
    EXPECT_EQ(store.GetLong(store.Find(path), number), asLong) << path;
    EXPECT_EQ(number, asLong == eDTlong ? -5 : 77) << path;
  }
  EXPECT_EQ(store.PutDataEx("A.Q", "1", 1, eDTwrong), nullptr);
  EXPECT_EQ(store.PutDataEx("A.Q", nullptr, 1, eDTpdata), nullptr);
  EXPECT_EQ(store.PutDataEx("A.Q.", "1", 1, eDTpdata), nullptr) << "an empty component at the end";
  EXPECT_EQ(store.GetData(store.Find("A.Q")), eDTnode) << "what stands before it is made";
}

TEST(Squeeze, IdentifiersGoStaleAndBelongToOneStore) {
  SqueezeT store;
  SSqueeze first = store.PutData("A", "1", 1);
  EXPECT_EQ(store.GetData(first), eDTpdata);
  SqueezeT copy(store);
  EXPECT_EQ(copy.GetData(first), eDTnull);
  EXPECT_EQ(Get(copy, "A"), "1:1");
  copy.PutLong("B", 1);
  EXPECT_EQ(store.GetData(first), eDTpdata) << "a copy counts for itself";
  store.PutLong("B", 2);
  EXPECT_EQ(store.GetData(first), eDTnull);
  first = store.Find("A");
  store = copy;
  EXPECT_EQ(store.GetData(first), eDTnull);
  SSqueeze outlives;
  {
    SqueezeT gone;
    outlives = gone.PutLong("A", 1);
  }
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
  EXPECT_FALSE(store.LinkNode(b, b, false));
  EXPECT_EQ(Order(store, store.prop_GetDown(node("P"))), "ac");
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

TEST(Squeeze, EmptyRecordsDoNotMisleadTheUnlinkAtTheTop) {
  SqueezeT store(1024, 0);
  store.PutData("A", "1", 1);
  store.PutData("B", "2", 1);
  for (int i = 0; i < 2; ++i) store.node_delete(store.node_putdata("\0\1x", 3, false), true);
  store.node_delete(store.node_findempty(), true); // it is counted already
  ASSERT_EQ(store.prop_GetEmpty(), 1u);            // the number of A, which is first: record 0's first word
  store.PutData("A", "3", 1);
  EXPECT_EQ(Get(store, "A") + Get(store, "B"), "1:31:2");
  ExpectSound(store);
}

TEST(Squeeze, AParentIsFollowedWhenRecordsBelowItLeave) {
  SqueezeT store(1024, 0);
  auto* low = store.node_putdata("\0\1x", 3, false);
  for (const char* path : {"P", "Q"}) store.PutData(path, path, 1);
  store.node_delete(low, true);
  store.PutData("P.a", "1", 1); // in record 1, below its parent's
  store.PutData("P.a", "2", 1);
  EXPECT_EQ(Get(store, "P.a") + Get(store, "Q"), "1:21:Q");
  ExpectSound(store);
}

TEST(Squeeze, TagsBeyond255BytesAreStoredButNotFound) {
  SqueezeT store;
  std::string tag(300, 'T'), value;
  SSqueeze id = store.PutData(tag, "v", 1);
  EXPECT_EQ(store.GetData(id, &value, &tag), eDTpdata);
  EXPECT_EQ(tag, std::string(300 % 256, 'T'));
  EXPECT_EQ(value, std::string(256, 'T') + "v");
  EXPECT_EQ(store.GetData(store.Find(std::string(300, 'T'))), eDTnull);
  ExpectSound(store);
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
  ExpectSound(store);
}

TEST(Squeeze, GrowthRaisesTheStepAndKeepsEverythingWhenRefused) {
  {
    OddStore store(64, 8);
    EXPECT_EQ(Get(store, "A"), "-3:<unset>");
    store.PutData("A", "1", 1);
    EXPECT_EQ(store.nBuffer, 72u);
    store.PutData("B", std::string(100, 'b').data(), 100);
    EXPECT_EQ(store.nStep, 103u) << "the longest blob";
    EXPECT_EQ(store.nBuffer, 175u + 103u) << "the first step leaves no room beside the record";
    ExpectSound(store);

    OddMemory::nLimit = store.nBuffer;
    std::string before(store.pbBuffer, store.nBuffer);
    EXPECT_EQ(store.PutData("C", std::string(900, 'c').data(), 900).ss_get(), nullptr);
    EXPECT_EQ(store.nStep, 903u);
    EXPECT_EQ(Get(store, "A") + Get(store, "B"), "1:11:" + std::string(100, 'b'));
    EXPECT_EQ(store.prop_GetEmpty(), 1u);
    EXPECT_EQ(before.size(), store.nBuffer);

    OddMemory::nLimit = 16; // not even the shorter block
    store.mem_squeeze();
    EXPECT_EQ(store.mem_freesize(), 0u);
    EXPECT_EQ(store.prop_GetEmpty(), 0u);
    OddStore unusable(64, 64), copy(store);
    EXPECT_EQ(unusable.PutLong("A", 1).ss_get(), nullptr);
    EXPECT_EQ(Get(copy, "A") + Get(unusable, "A"), "-3:<unset>-3:<unset>");
    copy.mem_squeeze();
    OddMemory::nLimit = ~size_t{0};
    copy = store;
    EXPECT_EQ(Get(copy, "B"), Get(store, "B"));
    OddMemory::nLimit = 16;
    copy = store;
    EXPECT_EQ(Get(copy, "B"), "-3:<unset>") << "empty rather than old";
    ExpectSound(copy);
    OddMemory::nLimit = ~size_t{0};
    store.PutData("C", "3", 1);
    ExpectSound(store);
    store = OddStore();
    EXPECT_EQ(store.PutData("A", "x", ~size_t{0}).ss_get(), nullptr);
  }
  EXPECT_EQ(OddMemory::nLive, 0u);
  EXPECT_FALSE(OddMemory::fBroken);
}

TEST(Squeeze, BlobsWithoutBytesStayInTheDataArea) {
  SqueezeT store(1024, 0);
  auto* one = store.node_putdata("abc", 3, false);
  auto* none = store.node_putdata("", 0, false);
  store.node_delete(one, true);
  EXPECT_EQ(store.prop_GetDataOfs(none), 1024u);
  EXPECT_TRUE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCroom));
}

TEST(Squeeze, BlobsAreCopiedOnlyAtTheirLength) {
  SqueezeT store;
  auto* node = store.node_putdata("abc", 3, true);
  char out[5] = "....";
  store.prop_PutData(node, "xy", 2);
  EXPECT_EQ(store.prop_GetData(node, out, 4), 4u);
  EXPECT_STREQ(out, "....");
  EXPECT_EQ(store.prop_GetData(node, out, 2), 2u);
  EXPECT_STREQ(out, "ab..");
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
  EXPECT_EQ(store.Walker(nullptr, "A", 1, 1, nullptr), eWCnull);
  EXPECT_EQ(store.Walker(first, "A.b", 1, 2, first), eWCnextdown);
  EXPECT_EQ(store.Walker(first, "A", 1, 1, first), eWCfind);
  EXPECT_EQ(store.Walker(first, "Z", 1, 1, first), eWCnextright);
  EXPECT_EQ(store.Walker(first, "Z.b", 1, 2, first), eWCnextwidth);
}

} // namespace
