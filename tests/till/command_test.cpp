// From the command line to the request that reaches the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "amount.h"
#include "cp1251.h"
#include "runner.h"

using testing::HasSubstr;
using testing::Not;
using namespace zat::till;

namespace {

TEST(Amount, ReadExactly) {
  struct {
    const char* pccText;
    AmountFault oFault;
    uint64_t ulKopecks;
  } cases[] = {{"1250", AmountFault::None, 125000},
               {"1250.00", AmountFault::None, 125000},
               {"1250.5", AmountFault::None, 125050},
               {"1250,05", AmountFault::None, 125005},
               {"0.01", AmountFault::None, 1},
               {"000000000000000.29", AmountFault::None, 29},
               {"9999999999.99", AmountFault::None, 999999999999},
               {"10000000000", AmountFault::TooLong, 0},
               {"99999999999999999999999", AmountFault::TooLong, 0},
               {"1.234", AmountFault::Decimals, 0},
               {"0.00", AmountFault::Zero, 0},
               {"-5", AmountFault::Negative, 0},
               {"", AmountFault::NotANumber, 0},
               {"1250.", AmountFault::NotANumber, 0},
               {".50", AmountFault::NotANumber, 0},
               {"1 250", AmountFault::NotANumber, 0},
               {"1,250.00", AmountFault::NotANumber, 0},
               {"+5", AmountFault::NotANumber, 0},
               {"1e3", AmountFault::NotANumber, 0}};
  for (const auto& c : cases) {
    uint64_t kopecks = 0;
    EXPECT_EQ(ReadAmount(c.pccText, kopecks), c.oFault) << c.pccText;
    EXPECT_EQ(kopecks, c.ulKopecks) << c.pccText;
  }
}

TEST(Amount, ShownAndReadBack) {
  for (uint64_t kopecks : {1ull, 10ull, 100ull, 125000ull, 999999999999ull}) {
    uint64_t again = 0;
    EXPECT_EQ(ReadAmount(ShowAmount(kopecks), again), AmountFault::None);
    EXPECT_EQ(again, kopecks);
  }
}

TEST(Command, RequestOnTheWire) {
  struct {
    std::vector<std::string> oWords;
    std::string oRequest;
  } cases[] = {
      {{"sale", "1250.00"}, "1000000000010C000000125000"},
      {{"sale", "1", "--tid", "AB12", "--track2", ";4000001234567899=25121011234?"},
       "10000000AB1228000000000100"
       "4000001234567899=25121011234"},
      {{"refund", "0,5"}, "1400000000010C000000000050"},
      {{"preauth", "7"}, "1100000000010C000000000700"},
      {{"reverse", "612345678901", "12.50"}, "1A000000000118612345678901000000001250"},
      {{"void", "77"}, "1900000000010C77          "},
      {{"login"}, "30000000000100"},
      {{"totals"}, "23000000000118            000000000000"},
      {{"end-of-day"}, "21000000000100"},
      {{"raw", "20", "612345678901"}, "2000000000010C612345678901"},
      {{"raw", "37", "Да"}, std::string("37000000000102") + "Да"_1251},
  };
  for (const auto& c : cases) {
    ScriptedTill till("bad\n");
    Ran ran = till.Run(c.oWords);
    EXPECT_EQ(till.Record(), "create (null)\nrequest " + c.oRequest + "\ndestroy\n") << ran.oErr;
  }
}

TEST(Command, WrongArguments) {
  struct {
    std::vector<std::string> oWords;
    const char* pccSays;
  } cases[] = {{{}, "missing: COMMAND"},
               {{"sail", "5"}, "Not understood: sail"},
               {{"sale"}, "missing: AMOUNT"},
               {{"reverse", "123"}, "missing: AMOUNT"},
               {{"sale", "12x"}, "\"12x\""},
               {{"sale", "-5"}, "negative"},
               {{"sale", "5", "6"}, "Not understood: 6"},
               {{"sale", "5", "--frobnicate"}, "Not understood: --frobnicate"},
               {{"sale", "5", "--tid", "12345678901"}, "Terminal id"},
               {{"sale", "5", "--tid", "a b"}, "Terminal id"},
               {{"void", "1234567890123"}, "Reference number"},
               {{"raw", "100"}, "Operation code"},
               {{"raw", "10", std::string(255, 'x')}, "255"},
               {{"raw", "10", std::string(2035, 'x')}, "2035"},
               {{"raw", "10", "日本"}, "Windows-1251"},
               {{"login", "--wait", "soon"}, "soon"}};
  for (const auto& c : cases) {
    ScriptedTill till("");
    Ran ran = till.Run(c.oWords);
    EXPECT_EQ(ran.iExit, 2) << c.pccSays;
    EXPECT_THAT(ran.oErr, HasSubstr(c.pccSays));
    EXPECT_EQ(ran.oOut, "");
    EXPECT_EQ(till.Record(), "");
  }
}

// Wherever a card is given by mistake, it is not shown again.
TEST(Command, CardNeverShown) {
  const char* card = "4000001234567899=25121011234";
  const std::vector<std::string> tries[] = {{"sale", "5", "--track2", "4000001234567899=2512x"},
                                            {"sale", "5", "--track2", "4000001234567899"},
                                            {"sale", card},
                                            {"sale", "5", card},
                                            {"void", card},
                                            {"sale", "5", "--tid", card}};
  for (const auto& words : tries) {
    Ran ran = ScriptedTill("").Run(words);
    EXPECT_EQ(ran.iExit, 2);
    EXPECT_THAT(ran.oErr, Not(HasSubstr("4000001234")));
  }
}

TEST(Command, Track2FromInputAndConfiguration) {
  ScriptedTill till("bad\n");
  till.Run({"sale", "1", "--track2", "-", "--config", "/etc/x y.cfg"}, "4000001234567899=2512101\r\n");
  EXPECT_THAT(till.Record(),
              testing::StartsWith(
                  "create /etc/x y.cfg\nrequest 100000000001240000000001004000001234567899=2512101\n"));
}

TEST(Command, HelpInBothLanguages) {
  for (auto [locale, word] : {std::pair{"C.UTF-8", "Exit codes:"}, {"ru_RU.UTF-8", "Коды завершения:"}}) {
    ScriptedTill till("");
    till.oEnvironment["LC_ALL"] = locale;
    Ran ran = till.Run({"--help"});
    EXPECT_EQ(ran.iExit, 0);
    EXPECT_THAT(ran.oOut, HasSubstr(word));
    EXPECT_THAT(ran.oOut, HasSubstr("zat_till sale 1250.00"));
  }
}

TEST(Library, WhatCannotBeLoaded) {
  struct {
    std::string oLib;
    const char* pccSays;
  } cases[] = {{"/nowhere/libzat_ms.so", "does not exist"},
               {"/etc/passwd", "cannot be loaded"},
               {ZAT_FAKES "/libforeign_ms.so", "eftp_create"}};
  for (const auto& c : cases) {
    ScriptedTill till("");
    till.oLib = c.oLib;
    Ran ran = till.Run({"login"});
    EXPECT_EQ(ran.iExit, 4);
    EXPECT_THAT(ran.oOut, HasSubstr(c.pccSays));
  }
}

TEST(Library, NoSession) {
  ScriptedTill till("");
  till.oEnvironment["FAKE_NO_SESSION"] = "1";
  Ran ran = till.Run({"login"});
  EXPECT_EQ(ran.iExit, 4);
  EXPECT_THAT(ran.oOut, HasSubstr("could not make a session"));
}

// Without a module nothing can have been sent; with one a lost link says nothing about the money.
TEST(Library, ModuleMissing) {
  ScriptedTill till("stop XL lost\n");
  std::filesystem::remove(till.oScratch / "zat_mm");
  Ran ran = till.Run({"sale", "1"});
  EXPECT_EQ(ran.iExit, 4);
  EXPECT_THAT(ran.oOut, HasSubstr("zat_mm"));
}

} // namespace
