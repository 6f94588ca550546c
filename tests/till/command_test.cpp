// From the command line to the request that reaches the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cp1251.h"
#include "runner.h"

using testing::HasSubstr;
using testing::Not;

namespace {

TEST(Command, RequestOnTheWire) {
  const std::pair<std::string, std::string> cases[] = {
      {"sale 1250.00", "1000000000010C000000125000"},
      {"sale 1 --tid AB12 --track2 ;4000001234567899=25121011234?",
       "10000000AB12280000000001004000001234567899=25121011234"},
      {"refund 0,5", "1400000000010C000000000050"},
      {"preauth 7", "1100000000010C000000000700"},
      {"reverse 612345678901 12.50", "1A000000000118612345678901000000001250"},
      {"void 77", "1900000000010C77          "},
      {"login", "30000000000100"},
      {"totals", "23000000000118            000000000000"},
      {"end-of-day", "21000000000100"},
      {"raw 20 612345678901", "2000000000010C612345678901"},
      {"raw 37 Да", std::string("37000000000102") + "Да"_1251},
  };
  for (const auto& [line, request] : cases) {
    ScriptedTill till("bad\n");
    Ran ran = till.Run(line);
    EXPECT_EQ(till.Record(), "create (null)\nrequest " + request + "\ndestroy\n") << ran.oErr;
  }
  ScriptedTill till("bad\n");
  till.Run("sale 1 --track2 - --config /etc/x.cfg", "4000001234567899=2512101\r\n");
  EXPECT_THAT(till.Record(), HasSubstr("create /etc/x.cfg\nrequest 10000000000124"
                                       "0000000001004000001234567899=2512101\n"));
}

TEST(Command, WrongArgumentsAreExplainedAndNoCardShown) {
  const std::string card = "4000001234567899=25121011234";
  const std::pair<std::string, const char*> cases[] = {
      {"", "missing: COMMAND"},
      {"sail 5", "Not understood: sail"},
      {"sale", "missing: AMOUNT"},
      {"reverse 123", "missing: AMOUNT"},
      {"sale 12x", "\"12x\""},
      {"sale -5", "negative"},
      {"sale 0,00", "zero"},
      {"sale 1.234", "more than two"},
      {"sale 10000000000", "9999999999.99"},
      {"sale 5 6", "Not understood: 6"},
      {"sale 5 --frobnicate", "Not understood: --frobnicate"},
      {"sale 5 --tid 12345678901", "Terminal id"},
      {"sale 5 --tid a.b", "Terminal id"},
      {"void 1234567890123", "Reference number"},
      {"raw 100", "Operation code"},
      {"raw 10 " + std::string(255, 'x'), "255"},
      {"raw 10 " + std::string(2035, 'x'), "2035"},
      {"raw 10 日本", "Windows-1251"},
      {"login --wait soon", "soon"},
      {"sale 5 --track2 4000001234567899=2512x", ""},
      {"sale 5 --track2 4000001234567899", ""},
      {"sale " + card, ""},
      {"sale 5 " + card, ""},
      {"void " + card, ""},
      {"sale 5 --tid " + card, ""},
  };
  for (const auto& [line, says] : cases) {
    ScriptedTill till("");
    Ran ran = till.Run(line);
    EXPECT_EQ(ran.iExit, 2) << line;
    EXPECT_THAT(ran.oErr, testing::AllOf(HasSubstr(says), Not(HasSubstr("4000001234")))) << line;
    EXPECT_EQ(ran.oOut + till.Record(), "");
  }
}

TEST(Command, HelpInBothLanguages) {
  for (auto [locale, word] : {std::pair{"C.UTF-8", "Exit codes:"}, {"ru_RU.UTF-8", "Коды завершения:"}}) {
    ScriptedTill till("");
    till.oEnvironment["LC_ALL"] = locale;
    Ran ran = till.Run("--help");
    EXPECT_EQ(ran.iExit, 0);
    EXPECT_THAT(ran.oOut, testing::AllOf(HasSubstr(word), HasSubstr("zat_till sale 1250.00")));
  }
}

TEST(Library, WhatCannotBeUsed) {
  const std::pair<std::string, const char*> cases[] = {
      {"/nowhere/libzat_ms.so", "does not exist"},
      {"/etc/passwd", "cannot be loaded"},
      {ZAT_FAKES "/libforeign_ms.so", "eftp_create"},
      {"", "could not make a session"}, // the fake that refuses to
  };
  for (const auto& [lib, says] : cases) {
    ScriptedTill till("");
    if (!lib.empty()) till.oLib = lib;
    till.oEnvironment["FAKE_NO_SESSION"] = "1";
    Ran ran = till.Run("login");
    EXPECT_EQ(ran.iExit, 4);
    EXPECT_THAT(ran.oOut, HasSubstr(says));
  }
}

// Without a module nothing can have been sent; with one a lost link says nothing about the money.
TEST(Library, ModuleMissing) {
  ScriptedTill till("stop XL lost\n");
  std::filesystem::remove(till.oScratch / "BIN/zat_mm");
  Ran ran = till.Run("sale 1");
  EXPECT_EQ(ran.iExit, 4);
  EXPECT_THAT(ran.oOut, HasSubstr("zat_mm"));
}

} // namespace
