// A store whose bytes somebody else has changed: the checker names the place, and no operation leaves the
// buffer.
#include "odd_alloc.h"
#include <gtest/gtest.h>

namespace {

TEST(SqueezeDamage, TheCheckerNamesInvariantAndPlace) {
  typedef std::tuple<size_t, uint64_t, int, uint64_t> Row;
  for (const auto& [offset, word, invariant, place] :
       {Row{0x10, 0, 1, 0x10}, Row{0x10, 0x60, 4, 0x8E}, Row{0x10, 0x81, 1, 0x10}, Row{0x10, 0xA0, 1, 0x10},
        Row{0x18, 0xA1, 1, 0x18}, Row{0x00, 1, 2, 0x00}, Row{0x38, 0x8D, 3, 0x38}, Row{0x30, 4, 3, 0x38},
        Row{0x78, ~0ull, 3, 0x78}, Row{0x18, 0x86, 4, 0x86}, Row{0x38, 0x98, 4, 0x98}, Row{0x08, 4, 5, 0x08},
        Row{0x40, ~0ull, 5, 0x40}, Row{0x28, 3, 6, 0x28}, Row{0x48, 2, 6, 0x48}, Row{0x20, 0, 6, 0x60},
        Row{0x08, 0, 6, 0x20}, Row{0x80, 0, 7, 0x80}}) {
    OddStore store = Drawn();
    zat::PutWord(store.pbBuffer, offset, word);
    zat::tSqueezeFault found;
    EXPECT_FALSE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags, &found));
    EXPECT_EQ(std::pair(found.iInvariant, found.nOffset), std::pair(invariant, place))
        << std::hex << offset << " " << word << ": " << found.pccWhat;
  }
  OddStore store = Drawn();
  store.pbBuffer[0x8F] = 0x55; // a tag length
  EXPECT_FALSE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags));
  EXPECT_TRUE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtree));
  char small[31] = {};
  EXPECT_FALSE(zat::SqueezeCheck(small, sizeof small, zat::eSCroom));
}

// Everything that can be done with a store, without a look at the results.
void UseEverything(const OddStore& from, uint64_t nStep) {
  for (int first = 0; first < 8; ++first) {
    OddStore store(from);
    store.nStep = nStep;
    std::string text;
    long number;
    auto *node = store.node_get(first % 4), *other = store.node_get(1);
    if (first == 1) store.node_deleteall(store.FindEx("A", nullptr, true)); // what the damage meets first
    if (first == 2) store.mem_squeeze();
    if (first == 3) store.PutData("A.B", std::string(40, 'x').data(), 40);
    if (first == 4) store.LinkNode(other, store.node_putdata("\0\1x", 3, true), true);
    if (first == 5) store.node_delete(other, true);
    if (first == 6) store.SearcherUni(other, "", 1, 0, other, false, true);
    if (first == 7) store.Unlink(store.node_get(2), other);
    for (const char* path : {"A.B", "C", "A", "D.E.F"}) {
      store.GetLong(store.Find(path), number);
      store.Searcher(store.node_get(1), path, false);
      store.PutLong(path, 7);
    }
    if (node) store.SearcherUni(node, "", 1, 0, node, false, false);
    for (uint64_t n = 0; n < 64; ++n)
      if (auto* any = store.node_get(n)) store.GetDataEx(any, &text, nullptr);
    if (node) store.prop_PutData(node, text.data(), text.size());
    store.mem_freeempty();
    store.PutData("C", text.data(), text.size());
    store.node_delete(store.node_get(1), false);
    store.mem_squeeze();
    zat::SqueezeDump(store.pbBuffer, store.nBuffer);
  }
}

TEST(SqueezeDamage, NoChangedByteLeadsOutOfTheBuffer) {
  OddStore sound = Drawn();
  for (uint64_t i = 0; i < sound.nBuffer; ++i)
    for (int change : {0x01, 0x02, 0x20, 0x80, 0xFF}) {
      OddStore store(sound);
      store.pbBuffer[i] = static_cast<char>(store.pbBuffer[i] ^ change);
      for (uint64_t step : {0, 64}) UseEverything(store, step);
    }
  EXPECT_FALSE(OddMemory::fBroken);
}

TEST(SqueezeDamage, TheDumpShowsTheTreeAndHidesTheCard) {
  SqueezeT store;
  typedef std::pair<const char*, const char*> Row;
  for (auto [tag, value] :
       {Row{abisTRpan, "4000001234567899"}, Row{abisTRtr2, "4000001234567899=2512"},
        Row{abisTRamt, "000000001000"}, Row{"TR.S.NEW", "secret"}, Row{"X", "no 4000001234567899 \x01"}})
    store.PutData(tag, value, strlen(value));
  store.PutLong(abisEFrcd, -5);
  std::string dump = zat::SqueezeDump(store.pbBuffer, store.nBuffer);
  EXPECT_EQ(dump.substr(dump.find('\n') + 1),
            "TR [1] node\n  S [2] node\n    PAN [3] bytes(16) \"************7899\"\n"
            "    NEW [6] bytes(6) \"******\"\n    TR2 [4] bytes(21) \"*********************\"\n"
            "  AMT [5] bytes(12) \"000000001000\"\nEF [8] node\n  RCD [9] number -5\n"
            "X [7] bytes(21) \"no ************7899 \\x01\"\n");
  store.prop_PutEmpty(3);
  EXPECT_NE(zat::SqueezeDump(store.pbBuffer, store.nBuffer).find("damaged at 0 (invariant 2)"),
            std::string::npos);
}

} // namespace
