// The launcher: who may start a module, what the locks are called, and what a dead till leaves behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cp1251.h"
#include "micros.h"
#include "till.h"
#include "util.h"

namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Launcher, ClientIdComesFromTheFourthArgument) {
  struct {
    const char* argument;
    const char* id;
  } const cases[] = {
      {nullptr, "absent"},    {"000", "0"},
      {"0120", "120"},        {"", "0"},
      {"A/../b", "A_.._b"},   {"$(id)`'\"\\", "_(id)____"},
      {"a\x01\xFFz", "a__z"}, {"0000000123", "123"},
  };
  for (const auto& c : cases) {
    MicroSGlData_tag state;
    std::string path = "/opt/zat/BIN/start", pipes = "-", config = "-", id = c.argument ? c.argument : "";
    char* arguments[] = {path.data(), pipes.data(), config.data(), id.data()};
    state.Init(c.argument ? 4 : 3, arguments);
    EXPECT_EQ(state.oCIdS, c.id);
    EXPECT_EQ(state.oParamS, c.argument ? " - - " + id : " - -");
    EXPECT_EQ(state.oRPath, "/opt/zat/");
    EXPECT_EQ(state.oMainLck, "/opt/zat/mainlock.lck");
    EXPECT_EQ(state.oUpdtEn, "/opt/zat/UPDATE_T/BIN/zat_mu");
    EXPECT_EQ(state.oUpdtM, "/opt/zat/BIN/zat_mm");
    EXPECT_EQ(DoAuthE(&state), 0); // nothing was started: nothing happens
  }
}

TEST(Launcher, OneModulePerClientId) {
  TestTill till(kGreet + "until go\n" + kEndOk);
  std::string sale = Message("10", "000000000100");
  EXPECT_EQ(till.lib->call(till.session, sale.data(), nullptr, nullptr, nullptr), 0);
  EXPECT_TRUE(till.Has("cid123.lck"));
  EXPECT_FALSE(till.Has("updtlock.lck"));

  void* second = till.lib->create(nullptr); // the same id in the same process
  char buffer[2048] = {};
  EXPECT_EQ(till.lib->call(second, sale.data(), buffer, nullptr, nullptr), 9);
  EXPECT_EQ(std::string(buffer, 14 + 2), Message("5X", "X8Невозможно запустить MicroM"_1251).substr(0, 16));
  EXPECT_THAT(till.Log(), HasSubstr("[MicroS] Already lock: " + (till / "cid123.lck")));

  pid_t other = fork(); // and from another process
  if (other == 0) {
    void* third = till.lib->create(nullptr);
    _exit(till.lib->call(third, sale.data(), buffer, nullptr, nullptr) == 9 && buffer[15] == '8' ? 0 : 1);
  }
  int status = -1;
  waitpid(other, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(till.Has("cid123.lck")); // the losers did not take the winner's lock away

  till.Put("go", "");
  EXPECT_EQ(till.Call(), 9);
  till.lib->destroy(second);
  EXPECT_FALSE(till.Has("cid123.lck"));
}

// A till killed in the middle of an exchange: as long as its module lives the client id stays taken, then the next
// till works.
TEST(Launcher, AKilledTillLeavesTheIdToItsModule) {
  TestTill till(kGreet + "until go\n" + kEndOk);
  std::string sale = Message("10", "000000000100");
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t first = fork();
  if (first == 0) {
    till.lib->call(till.session, sale.data(), nullptr, nullptr, nullptr);
    (void)!write(ready[1], "x", 1);
    pause();
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  kill(first, SIGKILL);
  waitpid(first, nullptr, 0);

  EXPECT_EQ(till.Call(sale), 9);
  EXPECT_THAT(till.Answer(), HasSubstr("X8"));
  till.Put("go", "");
  till.Put("module.script", kGreet + kEndOk);
  int result = 9;
  for (int i = 0; i < 500 && (till.Call(sale), result = till.buffer[0]) != 0; ++i)
    usleep(10000); // until the module has ended
  EXPECT_EQ(result, 0) << till.Log();
}

TEST(Launcher, EightTillsAtOnce) {
  constexpr int kTills = 8, kSales = 12;
  TestTill shared(kGreet + Block(Message("52")) + kEndOk);
  for (int t = 0; t < kTills; ++t) {
    if (fork() != 0) continue;
    LoadedObject lib(shared.Library());
    void* session = lib.create(nullptr);
    int failed = 0;
    for (int s = 0; s < kSales; ++s) {
      char buffer[2048] = {};
      std::string sale = Message("10", "000000000100", "000000100" + std::to_string(t));
      int first = lib.call(session, sale.data(), buffer, nullptr, nullptr);
      memset(buffer, 0, sizeof buffer);
      int second = lib.call(session, nullptr, buffer, nullptr, nullptr);
      failed += first != 0 || second != 9 || buffer[0] != 0;
    }
    lib.destroy(session);
    _exit(failed);
  }
  for (int t = 0; t < kTills; ++t) {
    int status = -1;
    wait(&status);
    EXPECT_EQ(status, 0);
  }
  std::string log = shared.Log();
  size_t lines = 0, ends = 0, at = 0;
  for (size_t end; (end = log.find("\r\n", at)) != std::string::npos; at = end + 2, ++lines) {
    std::string line = log.substr(at, end - at);
    EXPECT_THAT(line, testing::MatchesRegex("[0-9-]{10} [0-9.]{8} \\{[0-9A-F]{8}\\} : \\[.*")); // none torn
    ends += line.ends_with("[MicroS] Close UP");
  }
  EXPECT_EQ(ends, static_cast<size_t>(kTills * kSales)); // and none lost
}

// Nothing can take the place of a lock that cannot be one: the budget ends the tries, and the till gets its answer.
TEST(LauncherLimit, AnInstallationThatCannotBeLockedGivesUpInSevenSeconds) {
  TestTill till(kGreet + kEndOk);
  std::filesystem::create_directory(till / "mainlock.lck");
  tTicks start = TicksGet();
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 9);
  EXPECT_TRUE(TicksEnd(start, 6500));
  EXPECT_FALSE(TicksEnd(start, 9000));
  EXPECT_EQ(till.Answer(), Message("5X", "X8Невозможно запустить MicroM"_1251));
  EXPECT_THAT(till.Log(),
              HasSubstr("[MicroS] cannot lock '" + (till / "mainlock.lck") + "': EISDIR, Is a directory"));
}

// The object executed as a file is the launcher: it finds its installation however it was called, and starts the module
// with its own arguments.
TEST(Launcher, RunsAsAProgram) {
  Installation site(ZAT_SCRIPTED_MODULE);
  site.Put("module.script", "args\n");
  for (const char* call :
       {"cd BIN && ./libzat_ms.so", "BIN/.//./libzat_ms.so", "PATH=$PWD/BIN libzat_ms.so",
        "PATH=BIN libzat_ms.so", "cd / && \"$OLDPWD/BIN/libzat_ms.so\"", "$PWD/./BIN//libzat_ms.so"}) {
    site.Put("module.got", "");
    std::string command = "export ZAT_L_LEVEL=H; cd " + (site / "") + " && " + call + " - '\"/etc/x\"' 007";
    EXPECT_EQ(system(command.c_str()), 0) << call;
    for (int i = 0; i < 500 && site.Get("module.got").find("007\n") == std::string::npos; ++i) usleep(10000);
    EXPECT_EQ(site.Get("module.got"), (site / "BIN/zat_mm") + "\n-\n/etc/x\n007\n") << call;
  }
  EXPECT_THAT(site.Log(), HasSubstr("[MicroS] Put lock: " + (site / "cid7.lck")));
}

} // namespace
