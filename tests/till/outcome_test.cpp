// From what the library answers to what the user is told: script, exit code, words. What each answer comes to is the
// client's affair (tests/client).
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

const std::string kOk = Bank("00");

TEST(Outcome, ExitCodeAndWords) {
  struct {
    std::string oScript;
    int iExit;
    const char* pccSays;
    std::string oLine = "sale 1250.00";
  } cases[] = {
      {"block 52 \nblock 53 \n" + kOk + "good\n", 0, "APPROVED"},
      {Bank("00", "000000050000") + "good\n", 0, "approved 500.00, the till asked for 1250.00"},
      {"block 31 \ngood\n", 0, "DONE", "login"},
      {"block 38 1MV014000001234567899=2512\ngood\n", 0, "38 1MV01****************=****\nDONE",
       "raw 37 1MV01"},
      {Bank("51") + "good\n", 1, "The bank's answer: 51 text of the bank"},
      {"block 5X M1no link\nbad\n", 1, "The terminal's answer: M1 no link"},
      {"block 51 \nbad\n", 1, "zat_till login"},
      {"block 52 \nbad\n", 3, "without a decision"},
      {"stop X8 no\n", 4, "NOT SENT"},
      {"pause\n", 4, "eftpos.cfg", "sale 1250.00 --wait 0"},
      {"stop XL lost\n", 5, "Do not repeat the operation"},
      {"old 77\n", 5, "77"}, // a number of no table
  };
  for (const auto& c : cases) {
    Ran ran = ScriptedTill(c.oScript).Run(c.oLine);
    EXPECT_EQ(ran.iExit, c.iExit) << c.oScript << ran.oOut;
    EXPECT_THAT(ran.oOut, HasSubstr(c.pccSays)) << c.oScript;
    EXPECT_EQ(ran.oErr, "");
    EXPECT_EQ(ran.oOut.find("APPROVED") != ran.oOut.npos, c.iExit == 0 && c.oLine[0] == 's');
  }
}

TEST(Receipt, LinesAsTheyCome) {
  ScriptedTill till(std::string("block 32 0") + "ЧЕК №1\t"_1251 +
                    "\nblock 32 1\x1B[2J\x98\nblock 32 0second slip\n" + kOk + "good\n");
  Ran ran = till.Run("sale 1250");
  EXPECT_THAT(ran.oOut, testing::StartsWith("ЧЕК №1 \n?[2J\xEF\xBF\xBD\n\nsecond slip\n\nAPPROVED\n"));
  EXPECT_THAT(ran.oOut, testing::AllOf(HasSubstr("************7899"), Not(HasSubstr("4000001234567899"))));
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
    Ran ran = till.Run("sale 1250");
    EXPECT_THAT(ran.oOut, testing::AllOf(testing::StartsWith(c.pccLine), HasSubstr(c.pccTitle)));
  }
}

TEST(Json, OneObject) {
  ScriptedTill till("block 52 \nblock 32 0one\nblock 32 1two\nblock 32 0three\n" + kOk + "good\n");
  nlohmann::json object = nlohmann::json::parse(till.Run("--json sale 1250.00 --tid 7").oOut);
  EXPECT_EQ(object["receipt"], (nlohmann::json{{"one", "two"}, {"three"}}));
  EXPECT_EQ(object["statuses"], (nlohmann::json{"connecting", "pin"}));
  EXPECT_EQ(object["exitCode"], 0);
  const std::pair<const char*, const char*> texts[] = {{"/outcome", "approved"},
                                                       {"/amount", "1250.00"},
                                                       {"/tid", "7"},
                                                       {"/response/rrn", "612345678901"},
                                                       {"/response/card", "************7899"}};
  for (auto [at, text] : texts) EXPECT_EQ(object[nlohmann::json::json_pointer(at)], text);
}

TEST(Json, EveryWayOut) {
  struct {
    const char *pccLine, *pccLib, *pccOutcome, *pccWhy;
  } cases[] = {{"sale 12,345 --json", "", "usage", ""},
               {"sail 1 --json", "", "usage", ""},
               {"login --json", "/nowhere/x.so", "refused", "noLibrary"}};
  for (const auto& c : cases) {
    ScriptedTill till("");
    till.oLib = c.pccLib;
    Ran ran = till.Run(c.pccLine);
    nlohmann::json object = nlohmann::json::parse(ran.oOut);
    EXPECT_EQ(object["outcome"], c.pccOutcome);
    EXPECT_EQ(object.value("why", ""), c.pccWhy);
    EXPECT_EQ(object["exitCode"], ran.iExit);
    EXPECT_NE(object["message"], "");
  }
}

} // namespace
