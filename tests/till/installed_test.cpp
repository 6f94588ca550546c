// The whole road: till, object, pipes, simulated terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "runner.h"

using testing::HasSubstr;

namespace {

TEST(Installed, DayOfAShop) {
  InstalledTill till;
  Ran sale = till.Run("sale 1250.00 --json");
  ASSERT_EQ(sale.iExit, 0) << sale.oOut;
  std::string rrn = nlohmann::json::parse(sale.oOut)["response"]["rrn"];
  EXPECT_EQ(till.Run("sale 3.10 --track2 ;4000001234567899=25121011234?").iExit, 0);
  EXPECT_EQ(till.Run("reverse " + rrn + " 1250.00").iExit, 0);
  EXPECT_EQ(till.Run("reverse " + rrn + " 1250.00").iExit, 1) << "reversed already";
  EXPECT_THAT(till.Run("end-of-day").oOut, testing::AllOf(HasSubstr("3.10"), testing::EndsWith("DONE\n")));
}

// What the commands come out as, whichever way the terminal is reached.
struct Case {
  const char* pccLine;
  int iExit;
  const char* pccSays;
};
void Try(Till& till, const std::string& options, const std::vector<Case>& cases) {
  for (const auto& c : cases) {
    Ran ran = till.Run(c.pccLine + options);
    EXPECT_EQ(ran.iExit, c.iExit) << c.pccLine << ran.oOut;
    EXPECT_THAT(ran.oOut, HasSubstr(c.pccSays));
  }
}

TEST(Installed, Endings) {
  InstalledTill till;
  Try(till, "",
      {{"sale 1.51", 1, "51 НЕДОСТАТОЧНО СРЕДСТВ"},
       {"sale 1.91", 1, "M1 Нет связи с терминалом"},
       {"sale 1.94", 1, "M4 HOST 1: Ошибка транспортного уровня (110)"},
       {"sale 1.77", 5, "(XL)"}});
  std::filesystem::remove(till.oScratch / "BIN/zat_mm");
  Try(till, "", {{"sale 1", 4, "zat_mm"}});
  EXPECT_FALSE(till.oScratch.Has("cid1.lck"));
}

// The key reaches every program of the terminal; the module must outlive it to answer.
void BreakOff(Till& till, const std::string& options) {
  till.Start("sale 1.73" + options, true);
  ASSERT_TRUE(till.WaitForScreen("Waiting for the terminal"));
  till.Type('\x03');
  Ran ran = till.Finish();
  EXPECT_EQ(ran.iExit, 3);
  EXPECT_THAT(ran.oOut, HasSubstr("Broken off at the till's request."));
}

TEST(Installed, CtrlCOnTheTerminal) {
  InstalledTill till;
  BreakOff(till, "");
}

TEST(Linked, AsOverThePipes) {
  InstalledTill till;
  std::string place;
  {
    LinkedTerminal terminal(till);
    place = terminal.oPlace;
    Try(till, place,
        {{"sale 12.00", 0, "APPROVED"},
         {"sale 12.51", 1, "51 НЕДОСТАТОЧНО СРЕДСТВ"},
         {"sale 12.77", 5, "OUTCOME UNKNOWN"}, // the terminal goes silent after it has approved
         {"login", 0, "DONE"},
         {"raw 99", 2, "No message can be made"},
         {"end-of-day", 0, "24.77"}}); // the lost sale counts: it was made
    BreakOff(till, place);
  }
  Try(till, place, {{"sale 1", 4, "cannot be opened"}});
  Try(till, " --link nowhere", {{"sale 1", 4, "cannot be opened"}});
}

} // namespace
