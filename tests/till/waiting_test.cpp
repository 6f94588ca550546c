// While the library waits: the live line, and Ctrl-C.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runner.h"

using testing::HasSubstr;
using testing::Not;

namespace {

TEST(Live, CountsSecondsAndIsTakenBack) {
  ScriptedTill till("block 52 \nidle 60000\nbroken\nblock 32 0line\nbad\n");
  till.Start("sale 1", true);
  ASSERT_TRUE(till.WaitForScreen("1 s  PIN requested"));
  till.Interrupt();
  Ran ran = till.Finish();
  EXPECT_THAT(ran.oOut, testing::ContainsRegex("[1-9] s  PIN requested\r\x1B\\[KAsking"));
  EXPECT_THAT(ran.oOut, HasSubstr("\x1B[Kline\r\n"));
  EXPECT_THAT(ran.oOut, testing::EndsWith("\r\nABORTED\r\n  Broken off at the till's request.\r\n"));
}

TEST(Live, OnlyOnATerminal) {
  Ran ran = ScriptedTill("block 52 \nsleep 600\nbad\n").Run("sale 1");
  EXPECT_EQ(ran.oErr, "");
  EXPECT_THAT(ran.oOut, Not(HasSubstr("PIN")));
}

TEST(CtrlC, OnceAsksForABreak) {
  struct {
    std::string oScript;
    int iExit;
    const char *pccOut, *pccErr, *pccRecord;
  } cases[] = {
      {"idle 20000\nbroken\nblock 34 0\nbad\n", 3, "Broken off at the till's request.", "",
       "break\ndestroy\n"},
      {"idle 20000\nbroken\nblock 60 "
       "00000001000006432026112111590000000000001234561234567890100\\e\\e\\e\\e\n"
       "good\n",
       0, "APPROVED", "", "break\n"},                       // too late
      {"sleep 2500\nbad\n", 3, "", "BREAK=1", "destroy\n"}, // nobody asks whether to break
  };
  for (const auto& c : cases) {
    ScriptedTill till("mark waiting\n" + c.oScript);
    till.Start("sale 1");
    ASSERT_TRUE(till.WaitFor("waiting"));
    till.Interrupt();
    Ran ran = till.Finish();
    EXPECT_EQ(ran.iExit, c.iExit) << c.oScript;
    EXPECT_THAT(ran.oOut, HasSubstr(c.pccOut));
    EXPECT_THAT(ran.oErr, HasSubstr(c.pccErr));
    EXPECT_THAT(till.Record(), HasSubstr(c.pccRecord));
  }
}

TEST(CtrlC, TwiceLeavesAtOnce) {
  for (auto [line, says] :
       {std::pair{"sale 1", "OUTCOME UNKNOWN"}, {"sale 1 --json", "\"outcome\": \"unknown\""}}) {
    ScriptedTill till("block 32 0line\nmark waiting\nsleep 60000\n");
    till.Start(line);
    ASSERT_TRUE(till.WaitFor("waiting"));
    till.Interrupt();
    ASSERT_TRUE(till.WaitFor("once more", "err")); // two signals that come together are one
    till.Interrupt();
    Ran ran = till.Finish();
    EXPECT_EQ(ran.iExit, 5);
    EXPECT_THAT(ran.oErr, HasSubstr("THE OUTCOME IS UNKNOWN"));
    EXPECT_THAT(ran.oOut, testing::AllOf(HasSubstr(says), HasSubstr("line")));
    EXPECT_THAT(till.Record(), Not(HasSubstr("destroy")));
  }
}

// A reader that goes away must not end a payment.
TEST(Output, ReaderGoesAway) {
  ScriptedTill till("block 32 0line\nblock 52 \nbad\n");
  till.fReaderGone = true;
  EXPECT_EQ(till.Run("sale 1").iExit, 3);
}

} // namespace
