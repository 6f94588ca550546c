// While the library waits: the live line, and Ctrl-C.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runner.h"

using testing::HasSubstr;
using testing::Not;

namespace {

TEST(Live, OnlyOnATerminalAndTakenBack) {
  const char* script = "block 52 \nidle 1300\nblock 32 0line\nbad\n";
  Till till(script);
  till.Start({"sale", "1"}, true);
  Ran ran = till.Finish();
  EXPECT_THAT(ran.oOut, testing::ContainsRegex("[1-9] s  PIN requested\r\x1B"));
  EXPECT_THAT(ran.oOut, HasSubstr("requested\r\x1B[Kline\r\n")); // taken back before a line of the receipt
  EXPECT_THAT(ran.oOut, testing::EndsWith("decision.\r\n"));

  Ran quiet = Till(script).Run({"sale", "1"});
  EXPECT_EQ(quiet.oErr, "");
  EXPECT_THAT(quiet.oOut, Not(HasSubstr("PIN")));
}

TEST(CtrlC, OnceAsksForABreak) {
  Till till("block 52 \nmark waiting\nidle 20000\nbroken\nblock 34 0\nbad\n");
  till.Start({"sale", "1"});
  ASSERT_TRUE(till.WaitFor("waiting"));
  till.Interrupt();
  Ran ran = till.Finish();
  EXPECT_EQ(ran.iExit, 3);
  EXPECT_THAT(ran.oOut, HasSubstr("Broken off at the till's request."));
  EXPECT_THAT(till.Record(), HasSubstr("break\n"));
  EXPECT_THAT(till.Record(), HasSubstr("destroy\n"));
}

TEST(CtrlC, TooLateForABreak) {
  Till till("mark waiting\nidle 20000\nbroken\nblock 60 "
            "00000001000006432026112111590000000000001234561234567890100\\e\\e\\e\\e\ngood\n");
  till.Start({"sale", "1"});
  ASSERT_TRUE(till.WaitFor("waiting"));
  till.Interrupt();
  EXPECT_EQ(till.Finish().iExit, 0);
}

TEST(CtrlC, WithoutEffectSaysSo) {
  Till till("mark waiting\nsleep 2500\nbad\n");
  till.Start({"sale", "1"});
  ASSERT_TRUE(till.WaitFor("waiting"));
  till.Interrupt();
  Ran ran = till.Finish();
  EXPECT_EQ(ran.iExit, 3);
  EXPECT_THAT(ran.oErr, HasSubstr("BREAK=1"));
}

TEST(CtrlC, TwiceLeavesAtOnce) {
  for (bool json : {false, true}) {
    Till till("block 32 0line\nmark waiting\nsleep 60000\n");
    till.Start(json ? std::vector<std::string>{"sale", "1", "--json"}
                    : std::vector<std::string>{"sale", "1"});
    ASSERT_TRUE(till.WaitFor("waiting"));
    till.Interrupt();
    ASSERT_TRUE(till.WaitFor("once more", "err")); // two signals that come together are one
    till.Interrupt();
    Ran ran = till.Finish();
    EXPECT_EQ(ran.iExit, 5);
    EXPECT_THAT(ran.oErr, HasSubstr("THE OUTCOME IS UNKNOWN"));
    EXPECT_THAT(ran.oOut, HasSubstr(json ? "\"outcome\": \"unknown\"" : "OUTCOME UNKNOWN"));
    EXPECT_THAT(ran.oOut, HasSubstr("line"));
    EXPECT_THAT(till.Record(), Not(HasSubstr("destroy")));
  }
}

// A reader that goes away must not end a payment.
TEST(Output, ReaderGoesAway) {
  Till till("block 32 0line\nblock 52 \nbad\n");
  till.fReaderGone = true;
  EXPECT_EQ(till.Run({"sale", "1"}).iExit, 3);
}

} // namespace
