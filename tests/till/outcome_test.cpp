// From what the library answers to what the user is told: script, exit code, words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "cp1251.h"
#include "runner.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// A response of the bank: code, and the amount in kopecks.
std::string Bank(const std::string& code, const std::string& amount = "000000125000") {
  return "block 60 0" + amount + "643" + "20261121115900" + "000000000012345" + "612345678901" + code +
         "A1B2C3\\e" + "4000001234567899=2512\\e" + "VISA\\e" + "text of the bank\\e\n";
}

struct Case {
  const char* pccName;
  std::string oScript;
  int iExit;
  const char* pccSays;
  std::vector<std::string> oWords = {"sale", "1250.00"};
};

std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.pccName; }

class OutcomeTest : public testing::TestWithParam<Case> {};

TEST_P(OutcomeTest, ExitCodeAndWords) {
  const Case& c = GetParam();
  ScriptedTill till(c.oScript);
  Ran ran = till.Run(c.oWords);
  EXPECT_EQ(ran.iExit, c.iExit) << ran.oOut << ran.oErr;
  EXPECT_THAT(ran.oOut, HasSubstr(c.pccSays));
  EXPECT_EQ(ran.oErr, "");
  EXPECT_EQ(ran.oOut.find("APPROVED") != ran.oOut.npos, c.iExit == 0 && c.oWords[0] == "sale");
}

const std::string kOk = Bank("00"), kNo = Bank("51"), kCut = "block 60 000000\n";

INSTANTIATE_TEST_SUITE_P(
    All, OutcomeTest,
    testing::Values(
        Case{"approved", "block 52 \nblock 53 \n" + kOk + "good\n", 0, "APPROVED"},
        Case{"declined, good end", kNo + "good\n", 1, "The bank's answer: 51 text of the bank"},
        Case{"declined, bad end", kNo + "bad\n", 1, "DECLINED"},
        Case{"the last response counts", kOk + kNo + "good\n", 1, "DECLINED"},
        Case{"approval and bad end contradict", kOk + "bad\n", 5, "OUTCOME UNKNOWN"},
        Case{"lost after an approval", kOk + "stop XL lost\n", 5, "OUTCOME UNKNOWN"},
        Case{"lost at once", "stop XL lost\n", 5, "Do not repeat the operation"},
        Case{"refused after the request went out", "block 52 \nstop X6 pipes\n", 5, "OUTCOME UNKNOWN"},
        Case{"good end without a response", "block 52 \ngood\n", 5, "never sent the bank's answer"},
        Case{"damaged response", kCut + "good\n", 5, "damaged"},
        Case{"response with letters in the amount", Bank("00", "0000001250A0") + "good\n", 5, "damaged"},
        Case{"empty answers without an end",
             [] {
               std::string s;
               for (int i = 0; i < 200; ++i) s += "empty\n";
               return s;
             }(),
             5, "keeps answering"},
        Case{"refusal of the terminal", "block 5X M1no link\nbad\n", 1, "The terminal's answer: M1 no link"},
        Case{"a refusal takes no approval back", kOk + "block 5X I7late\ngood\n", 0, "APPROVED"},
        Case{"not logged in", "block 51 \nbad\n", 1, "zat_till login"},
        Case{"cancelled at the terminal", "block 52 \nbad\n", 3, "ABORTED"},
        Case{"no module started", "stop X8 no\n", 4, "NOT SENT"},
        Case{"no pipes", "stop X6 no\n", 4, "NOT SENT"},
        Case{"unknown reason", "stop XX no\n", 5, "OUTCOME UNKNOWN"},
        Case{"pause is waited out", "pause\npause\n" + kOk + "good\n", 0, "APPROVED"},
        Case{"pause is not waited out", "pause\n", 4, "eftpos.cfg", {"sale", "1250.00", "--wait", "0"}},
        Case{"old results: approved", kOk + "old 9\n", 0, "APPROVED"},
        Case{"old results: lost", "old 65535\n", 5, "XL"}, Case{"old results: no module", "old 8\n", 4, "X8"},
        Case{"old results: bad end", "block 52 \nold 10\n", 3, "ABORTED"},
        Case{"old results: pause", "old 10 pause\n" + kOk + "old 9\n", 0, "APPROVED"},
        Case{"old results: a number of no table", "old 77\n", 5, "77"},
        Case{"login needs no response", "block 31 \ngood\n", 0, "DONE", {"login"}},
        Case{"end of day fails", "block 5X M3no host\nbad\n", 1, "DECLINED", {"end-of-day"}},
        Case{"too late to break off", "block 34 1\nbad\n", 3, "without a decision"},
        Case{"what a request of one's own brings",
             "block 38 1MV014000001234567899=2512\ngood\n",
             0,
             "38 1MV01****************=****\nDONE",
             {"raw", "37", "1MV01"}},
        Case{"another amount approved", Bank("00", "000000050000") + "good\n", 0,
             "approved 500.00, the till asked for 1250.00"}));

TEST(Receipt, LinesAsTheyCome) {
  ScriptedTill till(std::string("block 32 0") + "ЧЕК №1\t"_1251 +
                    "\nblock 32 1\x1B[2J\x98\nblock 32 0second slip\n" + kOk + "good\n");
  Ran ran = till.Run({"sale", "1250"});
  EXPECT_THAT(ran.oOut, testing::StartsWith("ЧЕК №1 \n?[2J\xEF\xBF\xBD\n\nsecond slip\n\nAPPROVED\n"));
  EXPECT_THAT(ran.oOut, HasSubstr("************7899"));
  EXPECT_THAT(ran.oOut, Not(HasSubstr("4000001234567899")));
}

TEST(Receipt, InTheTerminalsCodePage) {
  const std::string script = std::string("block 32 0") + "Чек"_1251 + "\n" + kOk + "good\n";
  struct {
    const char *pccLocale, *pccLine, *pccTitle;
  } cases[] = {{"ru_RU.UTF-8", "Чек\n", "ОДОБРЕНО"},
               {"ru_RU.KOI8-R", "\xFE\xC5\xCB\n", "\xEF\xE4\xEF\xE2\xF2\xE5\xEE\xEF"},
               {"ru_RU.ISO-8859-1", "???\n", "APPROVED"}, // nothing Russian can be shown
               {"C", "???\n", "APPROVED"}};
  for (const auto& c : cases) {
    ScriptedTill till(script);
    till.oEnvironment["LC_ALL"] = c.pccLocale;
    Ran ran = till.Run({"sale", "1250"});
    EXPECT_THAT(ran.oOut, testing::StartsWith(c.pccLine)) << c.pccLocale;
    EXPECT_THAT(ran.oOut, HasSubstr(c.pccTitle)) << c.pccLocale;
  }
}

TEST(Json, OneObject) {
  ScriptedTill till("block 52 \nblock 32 0one\nblock 32 1two\nblock 32 0three\n" + kOk + "good\n");
  Ran ran = till.Run({"--json", "sale", "1250.00", "--tid", "7"});
  nlohmann::json object = nlohmann::json::parse(ran.oOut);
  EXPECT_EQ(object["outcome"], "approved");
  EXPECT_EQ(object["exitCode"], 0);
  EXPECT_EQ(object["amount"], "1250.00");
  EXPECT_EQ(object["tid"], "7");
  EXPECT_EQ(object["receipt"], (nlohmann::json{{"one", "two"}, {"three"}}));
  EXPECT_EQ(object["response"]["rrn"], "612345678901");
  EXPECT_EQ(object["response"]["card"], "************7899");
  EXPECT_EQ(object["statuses"], (nlohmann::json{"connecting", "pin"}));
}

TEST(Json, EveryWayOut) {
  struct {
    std::vector<std::string> oWords;
    const char* pccLib;
    const char *pccOutcome, *pccWhy;
  } cases[] = {{{"sale", "12,345", "--json"}, "", "usage", ""},
               {{"sail", "1", "--json"}, "", "usage", ""},
               {{"login", "--json"}, "/nowhere/x.so", "refused", "noLibrary"}};
  for (const auto& c : cases) {
    ScriptedTill till("");
    till.oLib = c.pccLib;
    Ran ran = till.Run(c.oWords);
    nlohmann::json object = nlohmann::json::parse(ran.oOut);
    EXPECT_EQ(object["outcome"], c.pccOutcome);
    EXPECT_EQ(object.value("why", ""), c.pccWhy);
    EXPECT_EQ(object["exitCode"], ran.iExit);
    EXPECT_NE(object["message"], "");
  }
}

} // namespace
