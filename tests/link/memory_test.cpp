// The codec and the store in a host that runs out of memory.
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "EFTPWork.h"
#include "gabids.h"
#include "scripted.h"

namespace {

int countdown = 0; // the allocation that fails, counted down; 0: none

bool Fails() { return countdown > 0 && --countdown == 0; }

} // namespace

void* operator new(size_t size) {
  void* memory = Fails() ? nullptr : malloc(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Fails() ? nullptr : malloc(size); }
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t) noexcept { free(memory); }

namespace {

TEST(Memory, TheCodecAndTheStoreAnswerNothingRatherThanEndTheHost) {
  const std::string data = "1000000125000643"
                           "20261121120000"
                           "000000000000042"
                           "REF000000001"
                           "00"
                           "A1\x1B"
                           "4000001234567899=2512\x1BVISA\x1BOK\x1Bmore",
                    path = "a path that is too long for a string without memory of its own.b";
  ScriptedLink link;
  PortSEtx_tag port{};
  ASSERT_TRUE(EFTPWorkInit(&port, &link, nullptr, &ScriptedLink::SetUp, true));
  bool failed = true;
  int n = 1;
  for (; failed && !HasFailure(); ++n) {
    SqueezeT store(32, 32);
    tString text, message;
    bool last = false;
    countdown = n;
    store.PutData(abisTMtid, "0000000123", 10);
    tEFTPWorkId id = eEFTPwidRespons;
    const bool parsed =
        EFTPParsData(&store, id, reinterpret_cast<const unsigned char*>(data.data()), data.size());
    tPadsData pads{&store, &store, id, nullptr};
    const tLen made = EFTPMakeCmd(&port, &pads);
    const uint64_t headed = EFTPMakeHeader(message, id, nullptr, &data);
    store.PutLong(path, 5);
    store.GetData(store.Find(path), &text, nullptr);
    store.GetData(store.Find(abisTRpex), &text, nullptr);
    store.Searcher(store.node_get(1), path, false);
    store.PathParser(path, 1, true, last, text);
    SqueezeT copy(store);
    copy = store;
    failed = countdown == 0;
    countdown = 0;
    EXPECT_TRUE(headed == 14 + data.size() || headed == 0) << "allocation " << n;
    EXPECT_TRUE(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags)) << "allocation " << n;
    EXPECT_TRUE(zat::SqueezeCheck(copy.pbBuffer, copy.nBuffer, zat::eSCtags)) << "allocation " << n;
    EXPECT_TRUE(failed || (parsed && made != 0));
  }
  EXPECT_GT(n, 20);
}

} // namespace
