// The shared object as a guest in somebody's process.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>


#include "till.h"

namespace {

TEST(Object, IsUnloadedByDlclose) {
  Installation site(ZAT_SCRIPTED_MODULE);
  LoadedObject lib(site.Library());
  ASSERT_NE(lib.handle, nullptr);
  lib.destroy(lib.create(nullptr));
  lib.Unload();
  EXPECT_EQ(dlopen(site.Library().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

// A till in plain C registers its cleaning up before it loads anything, so that runs after the object's destructors.
TEST(Object, AnExitHandlerMayEndTheSession) {
  static TestTill* till;
  till = nullptr;
  Scratch dir;
  pid_t host = fork();
  if (host == 0) {
    atexit([] {
      int result = till->Call();
      till->lib->destroy(till->session);
      till->session = nullptr;
      bool good = result == 9 && till->Answer().empty() && !till->Has("cid123.lck");
      delete till;
      _exit(good ? 0 : 1);
    });
    EXPECT_EQ(chdir((dir / "").c_str()), 0); // for the exception log
    till = new TestTill(kGreet + Block(Message("52")) + kEndOk);
    till->Call(Message("10", "000000000100"));
    exit(2);
  }
  int status = -1;
  waitpid(host, &status, 0);
  EXPECT_EQ(status, 0);
}

} // namespace
