// A store whose bytes somebody else has changed: the checker names the place, and no operation leaves the
// buffer.
#include "EFTPMisc.h"
#include "odd_alloc.h"
#include <gtest/gtest.h>

namespace {

typedef basic_squeezet<char, OddAlloc<char>> Store;

// "A.B" = "1", "C" = 5, as drawn in squeezenode.h.
Store Drawn() {
  Store store(160, 0);
  store.PutData("A.B", "1", 1);
  store.PutLong("C", 5);
  return store;
}

TEST(SqueezeDamage, TheCheckerNamesInvariantAndPlace) {
  struct {
    size_t offset;
    uint64_t word;
    int invariant;
    uint64_t place;
  } const faults[] = {
      {0x10, 0, 1, 0x10},     {0x10, 0x60, 4, 0x8E}, {0x10, 0x81, 1, 0x10}, {0x10, 0xA0, 1, 0x10},
      {0x18, 0xA1, 1, 0x18},  {0x00, 1, 2, 0x00},    {0x38, 0x8D, 3, 0x38}, {0x30, 4, 3, 0x38},
      {0x78, ~0ull, 3, 0x78}, {0x18, 0x86, 4, 0x86}, {0x38, 0x98, 4, 0x98}, {0x08, 4, 5, 0x08},
      {0x40, ~0ull, 5, 0x40}, {0x28, 3, 6, 0x28},    {0x48, 2, 6, 0x48},    {0x20, 0, 6, 0x60},
      {0x08, 0, 6, 0x20},     {0x80, 0, 7, 0x80},
  };
  for (auto& fault : faults) {
    Store store = Drawn();
    zat::PutWord(store.pbBuffer, fault.offset, fault.word);
    zat::tSqueezeFault found;
    EXPECT_FALSE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags, &found));
    EXPECT_EQ(found.iInvariant, fault.invariant)
        << std::hex << fault.offset << " " << fault.word << ": " << found.pccWhat;
    EXPECT_EQ(found.nOffset, fault.place)
        << std::hex << fault.offset << " " << fault.word << ": " << found.pccWhat;
  }
  for (size_t offset : {0x8E, 0x8F}) { // a type and a tag length
    Store store = Drawn();
    store.pbBuffer[offset] = 0x55;
    EXPECT_FALSE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags));
    EXPECT_TRUE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtree));
  }
  char small[31] = {};
  EXPECT_FALSE(zat::SqueezeCheck(small, sizeof small, zat::eSCroom));
}

// Everything that can be done with a store, without a look at the results.
void UseEverything(const Store& from, uint64_t nStep) {
  for (int first = 0; first < 8; ++first) {
    Store store(from);
    store.nStep = nStep;
    std::string text;
    long number;
    auto* node = store.node_get(first % 4);
    auto* other = store.node_get(1);
    switch (first) { // what the damage meets first
    case 0: break;
    case 1: store.node_deleteall(store.FindEx("A", nullptr, true)); break;
    case 2: store.mem_squeeze(); break;
    case 3: store.PutData("A.B", std::string(40, 'x').data(), 40); break;
    case 4: store.LinkNode(other, store.node_putdata("\0\1x", 3, true), true); break;
    case 5: store.node_delete(other, true); break;
    case 6: store.SearcherUni(other, "", 1, 0, other, false, true); break;
    case 7: store.Unlink(store.node_get(2), other); break;
    }
    for (const char* path : {"A.B", "C", "A", "D.E.F"}) {
      store.GetData(store.Find(path), &text, &text);
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
  Store sound = Drawn();
  for (uint64_t i = 0; i < sound.nBuffer; ++i)
    for (int change : {0x01, 0x02, 0x20, 0x80, 0xFF}) {
      Store store(sound);
      store.pbBuffer[i] = static_cast<char>(store.pbBuffer[i] ^ change);
      UseEverything(store, 0);
      UseEverything(store, 64);
    }
  EXPECT_FALSE(OddMemory::fBroken);
}

TEST(SqueezeDamage, TheDumpShowsTheTreeAndHidesTheCard) {
  SqueezeT store;
  for (auto [tag, value] : {std::pair{abisTRpan, "4000001234567899"},
                            {abisTRtr2, "4000001234567899=25121011"},
                            {abisTRamt, "000000001000"},
                            {abisTRpex, "4000001234567899=2512"},
                            {"TR.S.NEW", "secret"},
                            {"X", "no 4000001234567899 \x01"}})
    store.PutData(tag, value, strlen(value));
  store.PutLong(abisEFrcd, -5);
  std::string dump = zat::SqueezeDump(store.pbBuffer, store.nBuffer);
  EXPECT_EQ(dump.substr(dump.find('\n') + 1), "TR [1] node\n"
                                              "  S [2] node\n"
                                              "    PAN [3] bytes(16) \"************7899\"\n"
                                              "    NEW [7] bytes(6) \"******\"\n"
                                              "    TR2 [4] bytes(25) \"*************************\"\n"
                                              "  PEX [6] bytes(21) \"************7899=****\"\n"
                                              "  AMT [5] bytes(12) \"000000001000\"\n"
                                              "EF [9] node\n"
                                              "  RCD [10] number -5\n"
                                              "X [8] bytes(21) \"no ************7899 \\x01\"\n");
  store.prop_PutEmpty(3);
  EXPECT_NE(zat::SqueezeDump(store.pbBuffer, store.nBuffer).find("damaged at 0 (invariant 2)"),
            std::string::npos);
}

} // namespace
