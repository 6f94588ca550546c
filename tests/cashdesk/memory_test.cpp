// A host that runs out of memory: the object may fail a call, but never ends the host, and holds nothing afterwards that
// another till would wait for.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "till.h"
#include "utilf.h"

// The INI library does not free its buffers when memory runs out in the middle of a file: nothing that could be mended
// here, and nothing that a leak check should report.
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
using LeaksAllowed = __lsan::ScopedDisabler;
#else
struct LeaksAllowed {
  LeaksAllowed() {}
};
#endif

namespace {

int countdown = 0; // the allocation that fails, counted down; 0: none

bool Fails() { return countdown > 0 && --countdown == 0; }

} // namespace

// The loaded object takes these from the program, as it does in every host that has its own.
void* operator new(size_t size) {
  void* memory = Fails() ? nullptr : malloc(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Fails() ? nullptr : malloc(size); }
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t) noexcept { free(memory); }

namespace {

TEST(Memory, AnyAllocationMayFail) {
  TestTill till(kGreet + Block(Message("32", "1LINE")) + Block(Message("60", "1")) + kEndOk);
  const std::string sale = Message("10", "0000001250004000001234567899=2512101123");
  std::string request;
  char buffer[2048];
  auto pay = [&](void* session) { // not a single allocation of the test's own
    memcpy(request.data(), sale.data(), sale.size());
    memset(buffer, 0, sizeof buffer);
    int result = till.lib->call(session, request.data(), buffer, nullptr, nullptr);
    for (int i = 0; i < 9 && result == 0; ++i) {
      memset(buffer, 0, sizeof buffer);
      result = till.lib->call(session, nullptr, buffer, nullptr, nullptr);
    }
    return result;
  };
  request = sale;
  bool failed = true;
  int n = 1;
  for (; failed && !HasFailure(); ++n) {
    LeaksAllowed allowed;
    countdown = n;
    void* session = till.lib->create(nullptr);
    if (session) pay(session);
    failed = countdown == 0;
    countdown = 0;
    if (session) till.lib->destroy(session);
    for (const char* lock : {"cid123.lck", "mainlock.lck", "updtlock.lck", "BIN/zat_comm.log.lck"})
      EXPECT_TRUE(!till.Has(lock) || (tryflock((till / lock).c_str()) | remflock((till / lock).c_str())) == 0)
          << lock << " is held, allocation " << n;
    till.Put("eftpos.cfg", "[COMMON]\nDefaultOkTimeout=0\nDefaultNOkTimeout=0\n");
    EXPECT_EQ(pay(till.session), 9) << "allocation " << n;
    EXPECT_EQ(buffer[0], 0) << "allocation " << n;
  }
  EXPECT_GT(n, 50); // the whole road was walked
}

} // namespace
