// The road of a request, through the loaded object as a till uses it, against a module that follows a script.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <vector>

#include "cp1251.h"
#include "till.h"

namespace {

using testing::HasSubstr;
using testing::Not;

double SecondsOf(const std::function<void()>& work) {
  auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(Exchange, ASaleBlockByBlock) {
  const std::string track = "4000001234567899=2512101123";
  const std::string response = "1000000125000643"
                               "20261121120000"
                               "000000000000042"
                               "REF000000001"
                               "00"
                               "A1\x1B"
                               "4000001234567899=2512\x1B\x1B\x1B";
  TestTill till("args\n" + kGreet + Block(Message("53")) + Block(Message("32", "0LINE ONE")) +
                Block(Message("32", "1LINE TWO")) + Block(Message("60", response)) + kEndOk);
  const std::string sale = Message("10", "000000125000" + track);
  EXPECT_EQ(till.Call(sale), 0);
  EXPECT_EQ(till.Answer(), Message("53"));
  for (const std::string& block :
       {Message("32", "0LINE ONE"), Message("32", "1LINE TWO"), Message("60", response)}) {
    EXPECT_EQ(till.Call(), 0);
    EXPECT_EQ(till.Answer(), block);
  }
  EXPECT_EQ(till.Call(), 9);
  EXPECT_EQ(till.Answer(), ""); // a good end leaves the till's buffer alone

  // The module saw the request whole, on the command line it was promised.
  EXPECT_THAT(till.Got(), testing::MatchesRegex(till / "BIN/zat_mm" + "\n[0-9]+#[0-9]+\n-\n" + kTid + "\n" +
                                                Hex(sale) + "\n"));

  // The log shows the flow and no card number.
  std::string log = till.Log();
  for (const char* line :
       {"[eftp_create] ok", "[eftp_do] ReqHdr: 3130303030303030303132333237", "[MicroS] Open UP: 1",
        "[MicroS] Started\r", "[MicroS] LocVer: 200917", "[MicroS] Cmd: [MonoS] ",
        "[MicroS] TimeoutAfter-10: 0, 0", "[MicroS] B: scripted 1", "[MicroS] UP is: 1",
        "[MicroS] WriteBlock: 100000000123", "************7899=**********", "[MicroS] ReadBlock: 5-3",
        "[MicroS] Last Print Line N: 2", "************7899=****", "[MicroS] ReadBlock: #00000000123",
        "[MicroS] Close UP", "[eftp_do] out: 9"})
    EXPECT_THAT(log, HasSubstr(line));
  EXPECT_THAT(log, Not(HasSubstr("4000001234567899")));
  EXPECT_THAT(log, Not(HasSubstr("LINE ONE")));
  EXPECT_FALSE(till.Has("cid123.lck"));
  EXPECT_FALSE(till.Has("updtlock.lck"));
  EXPECT_FALSE(till.Has("mainlock.lck"));
}

TEST(Exchange, EndsTellSuccessFromFailure) {
  struct {
    std::string end;
    const char* settings;
    int result;
    std::string answer;
  } const cases[] = {
      {kEndOk, "", 9, ""},
      {kEndBad, "", 9, Message("5X", "XAЗавершено с ошибкой"_1251)},
      {kEndBad, "[TILL]\nCP=866\n", 9, Message("5X", "XAbad final")},
      {kEndBad, "[TILL]\nOLDRET=1\n", 10, ""},
      {kEndOk, "[TILL]\nOLDRET=yes\n", 9, ""},
      {Block(Message("#2")), "", 9, Message("5X", "XAЗавершено с ошибкой"_1251)},
      {Block(Message("33")), "", 9, Message("5X", "XAЗавершено с ошибкой"_1251)},
      {Block("x"), "", 9, Message("5X", "XAЗавершено с ошибкой"_1251)}, // shorter than a header
  };
  for (const auto& c : cases) {
    TestTill till(kGreet + c.end, c.settings);
    EXPECT_EQ(till.Call(Message("10", "000000000100")), c.result) << c.settings;
    EXPECT_EQ(till.Answer(), c.answer) << c.settings;
  }
}

TEST(Exchange, RefusalsBeforeAModuleRuns) {
  {
    TestTill till("", "", false); // no zat_mm
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(till.Call(Message("10", "000000000100")), 9); }), 5);
    EXPECT_EQ(till.Answer(), Message("5X", "XLПотеряна связь с MicroM"_1251));
  }
  TestTill till(kGreet + kEndOk);
  EXPECT_EQ(till.Call(), 9);
  EXPECT_EQ(till.Answer(), Message("5X", "X4Неверный набор параметров"_1251, ""));
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 9);
  EXPECT_EQ(till.Answer(), "");
}

TEST(Exchange, AnotherTerminalIdIsRefusedWhileOneIsServed) {
  TestTill till(kGreet + Block(Message("52")) + "read\n" + kEndOk);
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 0);
  EXPECT_EQ(till.Call(Message("10", "000000000100", "0000000999")), 9);
  EXPECT_EQ(till.Answer(), Message("5X", "X5Неверное значение tid"_1251));
  const std::string confirm = Message("26", "REF000000001"); // the same id goes through
  EXPECT_EQ(till.Call(confirm), 9);
  EXPECT_THAT(till.Got(), HasSubstr(Hex(confirm)));
}

TEST(Exchange, WithoutAnAnswerBufferNothingIsRead) {
  TestTill till(kGreet + Block(Message("32")) + Block(Message("52")) + kEndOk);
  std::string sale = Message("10", "000000000100");
  EXPECT_EQ(till.lib->call(till.session, sale.data(), nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(till.Call(), 0);
  EXPECT_EQ(till.Answer(), Message("32")) << "a print line may be empty";
  EXPECT_EQ(till.Call(), 0);
  EXPECT_EQ(till.Answer(), Message("52"));
  EXPECT_EQ(till.Call(), 9);
}

TEST(Exchange, BlocksOfEverySizeArriveWhole) {
  std::string script = kGreet;
  std::vector<std::string> blocks;
  for (size_t n : {0, 1, 254, 256, 1000, 2034}) blocks.push_back(Message("36", std::string(n, '\x17')));
  for (const std::string& block : blocks) script += Block(block);
  // A header that announces 255 bytes stands alone: that is how a message of that length is written.
  script += Block(Message("36", std::string(255, 'x')));
  TestTill till(script + kEndOk);
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 0);
  for (const std::string& block : blocks) {
    EXPECT_EQ(std::string(till.buffer, block.size()), block);
    EXPECT_EQ(till.Call(), 0);
  }
  EXPECT_EQ(std::string(till.buffer, 15), std::string("360000000123\x00\xFF\x00", 15));
  EXPECT_EQ(till.Call(), 9);
}

TEST(Exchange, NoiseAndOverlongBlocksDoNotConfuseTheNextOne) {
  const std::string longBlock = Message("36", std::string(2100, '\x17'));
  TestTill till(kGreet + "raw 000102\n" + Block(longBlock) + Block(Message("52")) + kEndOk);
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 0);
  EXPECT_EQ(std::string(till.buffer, 2048), longBlock.substr(0, 2048));
  EXPECT_EQ(till.Call(), 0);
  EXPECT_EQ(till.Answer(), Message("52"));
  EXPECT_EQ(till.Call(), 9);
}

TEST(Exchange, QuestionMarksBecomeTheTillsId) {
  TestTill till(kGreet + Block("52??????????00") + Block("5X??????????0DM1No terminal") + kEndBad);
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 0);
  EXPECT_EQ(till.Answer(), Message("52"));
  EXPECT_EQ(till.Call(), 0);
  EXPECT_EQ(till.Answer(), Message("5X", "M1Нет связи с терминалом"_1251));
}

TEST(Exchange, LastLinesOfAnEndOfDayGoIntoTheLog) {
  std::string script = kGreet;
  for (int i = 1; i <= 10; ++i)
    script += Block(Message("32", std::string(i < 10 ? "0" : "1") + "total " + std::to_string(i)));
  TestTill till(script + Block(Message("22")) + kEndOk);
  int result = till.Call(Message("21"));
  for (int i = 0; i < 11 && result == 0; ++i) result = till.Call();
  EXPECT_EQ(result, 9);
  std::string log = till.Log();
  size_t at = 0;
  for (int k = 10; k >= 3; --k) { // newest first, eight of them
    std::string line = "[MicroS] : FinDay PL " + std::to_string(k) + "/10: 3200000001230";
    size_t found = log.find(line, at);
    ASSERT_NE(found, std::string::npos) << line;
    at = found;
  }
  EXPECT_THAT(log, Not(HasSubstr("total 2")));
  EXPECT_THAT(log, HasSubstr("Last Print Line N: 10"));
}

int AskForBreak(void* calls) { return ++*static_cast<int*>(calls) == 3; }

TEST(Exchange, TheIdleCallbackBreaksAnExchangeWhenItMay) {
  const std::string script = kGreet + "read\n" + Block(Message("34", "0")) + kEndBad;
  TestTill till(script);
  int calls = 0;
  EXPECT_EQ(till.Call(Message("10", "000000000100"), AskForBreak, &calls), 0);
  EXPECT_EQ(till.Answer(), Message("34", "0"));
  EXPECT_EQ(calls, 3); // not called any more once a break is under way
  EXPECT_THAT(till.Got(), HasSubstr(Hex("33" + kTid + "00")));
  EXPECT_THAT(till.Log(), HasSubstr("[MicroS] WriteBreak: 33" + kTid + "00"));
  EXPECT_EQ(till.Call(), 9);

  TestTill locked(kGreet + Block(Message("52")) + kEndOk, "[ENV]\nLOGLEVEL=H\n");
  calls = 0;
  EXPECT_EQ(locked.Call(Message("10", "000000000100"), AskForBreak, &calls), 0);
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(locked.Log(), HasSubstr("[eftp_do] block break func"));
}

struct Nested {
  TestTill* till;
  std::string answer;
  int result = 0, calls = 0;
};

int CallInside(void* data) {
  Nested& nested = *static_cast<Nested*>(data);
  if (++nested.calls > 1) return 0;
  char buffer[2048] = {};
  nested.result = nested.till->lib->call(nested.till->session, nullptr, buffer, nullptr, nullptr);
  nested.answer.assign(buffer, 14 + strlen("X7") + strlen("Уже используется"_1251));
  nested.till->lib->destroy(
      nested.till->session); // refused: it would pull the session from under the outer call
  nested.till->Put("go", "");
  return 0;
}

TEST(Exchange, CallsFromInsideTheIdleCallbackAreRefused) {
  TestTill till(kGreet + "until go\n" + Block(Message("52")) + kEndOk);
  Nested nested{&till, ""};
  EXPECT_EQ(till.Call(Message("10", "000000000100"), CallInside, &nested), 0);
  EXPECT_EQ(till.Answer(), Message("52"));
  EXPECT_EQ(nested.result, 9);
  EXPECT_EQ(nested.answer, Message("5X", "X7Уже используется"_1251));
  EXPECT_THAT(till.Log(), HasSubstr("[eftp_destroy] skip"));
  EXPECT_EQ(till.Call(), 9);
}

int Throw(void* data) {
  static_cast<TestTill*>(data)->Put("go", "");
  throw std::runtime_error("a till's own mistake");
}

// In a C++ host the callback may throw. Nothing of that leaves a C function, and the till is not told that all is well:
// the answer is still to come.
TEST(Exchange, AnExceptionOfTheIdleCallbackIsALostLink) {
  for (bool oldResults : {false, true}) {
    TestTill till(kGreet + "until go\n" + Block(Message("52")) + kEndOk,
                  oldResults ? "[TILL]\nBREAK=1\nOLDRET=1\n" : "[TILL]\nBREAK=1\n");
    EXPECT_EQ(till.Call(Message("10", "000000000100"), Throw, &till), oldResults ? 65535 : 9);
    EXPECT_EQ(till.Answer(), oldResults ? "" : "5X??????????0FXLnot recv resp");
    EXPECT_EQ(till.lib->call(till.session, nullptr, nullptr, nullptr, nullptr), 0) << "collects nothing";
    EXPECT_EQ(till.Call(), 0);
    EXPECT_EQ(till.Answer(), Message("52"));
    EXPECT_EQ(till.Call(), 9);
    EXPECT_EQ(till.Answer(), "");
  }
}

// A host that has used up its descriptors is told so before anything is sent, and can pay once it has closed some.
TEST(Exchange, AFullTableOfDescriptorsRefuses) {
  TestTill till(kGreet + kEndOk, "[TILL]\nCP=0\n");
  rlimit before = {};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none = {3, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const int result = till.Call(Message("10", "000000000100"));
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(result, 9);
  EXPECT_EQ(till.Answer(), Message("5X", "X6can`t create upipe"));
  till.lib->destroy(nullptr);
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 9);
  EXPECT_EQ(till.Answer(), "");
}

TEST(Exchange, ARequestTooSoonAfterTheLastIsRefused) {
  for (bool oldResults : {false, true}) {
    TestTill till(kGreet + kEndOk, oldResults ? "[ENV]\nLOGLEVEL=H\n[TILL]\nOLDRET=1\n" : nullptr);
    till.Put("eftpos.cfg", "[COMMON]\nTimeoutAfter-30-Ok=50\n");
    till.lib->destroy(till.session);
    till.session = till.lib->create(nullptr);
    EXPECT_EQ(till.Call(Message("30")), 9);
    EXPECT_EQ(till.Call(Message("10", "000000000100")), oldResults ? 10 : 9);
    EXPECT_EQ(till.Answer(), oldResults
                                 ? Message("5X", "I3Timeout violation between inquiries from cash desk")
                                 : Message("5X", "XAЗавершено с ошибкой"_1251));
    EXPECT_THAT(till.Log(), HasSubstr("[MicroS] Not excerpt REQTO==50!"));
    EXPECT_THAT(till.Log(), HasSubstr("[eftp_do] skip: 10"));
    std::string again = Message("10", "000000000100");
    EXPECT_EQ(till.lib->call(till.session, again.data(), nullptr, nullptr, nullptr), oldResults ? 10 : 9);
  }
}

// A module that dies is noticed at once, wherever in the exchange; one that merely ends is given its time.
TEST(Exchange, ADeadModuleEndsTheWaitAtOnce) {
  const std::string block = Message("60", "half of it"),
                    wire = "17" + Hex(std::string(1, static_cast<char>(block.size()))) + "00" + Hex(block);
  struct {
    const char* name;
    std::string script;
    int blocks; // read before the loss
  } const cases[] = {
      {"before the greeting", "kill 9\n", 0},
      {"instead of an answer", kGreet + "kill 11\n", 0},
      {"after a block that it still wrote", kGreet + Block(Message("52")) + "kill 9\n", 1},
      {"inside a block", kGreet + "raw " + wire.substr(0, wire.size() / 4 * 2) + "\nkill 9\n", 0},
      {"could not be executed", "exit 255\n", 0},
  };
  for (const auto& c : cases) {
    TestTill till(c.script);
    double seconds = SecondsOf([&] {
      int result = till.Call(Message("10", "000000000100"));
      for (int i = 0; i < c.blocks; ++i, result = till.Call()) EXPECT_EQ(result, 0) << c.name;
      EXPECT_EQ(result, 9) << c.name;
    });
    EXPECT_LT(seconds, 5) << c.name;
    EXPECT_EQ(till.Answer(), Message("5X", "XLПотеряна связь с MicroM"_1251)) << c.name;
    EXPECT_LT(SecondsOf([&] { till.lib->destroy(till.session); }), 5) << c.name;
    till.session = nullptr;
    EXPECT_FALSE(till.Has("cid123.lck")) << c.name;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << c.name; // no zombie either
  }
}

int AlwaysBreak(void*) { return 1; }

TEST(Exchange, AfterABreakTheWaitEndsWithTheModule) {
  TestTill till(kGreet + "read\nexit 0\n");
  EXPECT_LT(SecondsOf([&] { EXPECT_EQ(till.Call(Message("10", "000000000100"), AlwaysBreak), 9); }), 5);
  EXPECT_EQ(till.Answer(), Message("5X", "XLПотеряна связь с MicroM"_1251));
}

// The long limits, one test each so that they run beside one another.
TEST(ExchangeLimit, ASilentModuleIsLostAfter30Seconds) {
  TestTill till("until go\n" + kGreet + kEndOk);
  double seconds = SecondsOf([&] { EXPECT_EQ(till.Call(Message("10", "000000000100")), 9); });
  EXPECT_GT(seconds, 29.9);
  EXPECT_LT(seconds, 33);
  EXPECT_EQ(till.Answer(), Message("5X", "XLПотеряна связь с MicroM"_1251));
  EXPECT_THAT(till.Log(), HasSubstr("[MicroS] No HELLO response with TO=30s!"));
  till.Put("go", ""); // the exchange is still open, the module still there:
  EXPECT_EQ(till.Call(Message("10", "000000000100")), 9); // the next call goes on with it
}

TEST(ExchangeLimit, AnAnswerIsAwaitedFor30Point3Seconds) {
  TestTill till(kGreet + "until go\n" + Block(Message("52")) + kEndOk);
  double seconds = SecondsOf([&] { EXPECT_EQ(till.Call(Message("10", "000000000100")), 9); });
  EXPECT_GT(seconds, 30.2);
  EXPECT_LT(seconds, 33.3);
  EXPECT_THAT(till.Log(), HasSubstr("[MicroS] No any response with TO=30s!"));
  till.Put("go", "");
  EXPECT_EQ(till.Call(), 0); // late, but not lost
  EXPECT_EQ(till.Answer(), Message("52"));
  EXPECT_EQ(till.Call(), 9);
}

TEST(ExchangeLimit, AModuleThatEndedIsWaitedForLikeASilentOne) {
  TestTill till(kGreet + "exit 3\n");
  double seconds = SecondsOf([&] { EXPECT_EQ(till.Call(Message("10", "000000000100")), 9); });
  EXPECT_GT(seconds, 30.2);
}

} // namespace
