// The whole road: till, object, pipes, simulated terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "runner.h"

using testing::HasSubstr;

namespace {

TEST(Installed, DayOfAShop) {
  InstalledTill till;
  Ran sale = till.Run({"sale", "1250.00", "--json"});
  ASSERT_EQ(sale.iExit, 0) << sale.oOut;
  std::string rrn = nlohmann::json::parse(sale.oOut)["response"]["rrn"];
  EXPECT_EQ(till.Run({"sale", "3.10", "--track2", ";4000001234567899=25121011234?"}).iExit, 0);
  EXPECT_EQ(till.Run({"reverse", rrn, "1250.00"}).iExit, 0);
  EXPECT_EQ(till.Run({"reverse", rrn, "1250.00"}).iExit, 1) << "reversed already";
  Ran end = till.Run({"end-of-day"});
  EXPECT_EQ(end.iExit, 0);
  EXPECT_THAT(end.oOut, HasSubstr("3.10"));
  EXPECT_THAT(end.oOut, testing::EndsWith("DONE\n"));
}

TEST(Installed, Endings) {
  struct {
    const char* pccAmount;
    int iExit;
    const char* pccSays;
  } cases[] = {{"1.51", 1, "51 НЕДОСТАТОЧНО СРЕДСТВ"},
               {"1.91", 1, "M1 Нет связи с терминалом"},
               {"1.94", 1, "M4 HOST 1: Ошибка транспортного уровня (110)"},
               {"1.77", 5, "(XL)"}};
  InstalledTill till;
  for (const auto& c : cases) {
    Ran ran = till.Run({"sale", c.pccAmount});
    EXPECT_EQ(ran.iExit, c.iExit) << c.pccAmount;
    EXPECT_THAT(ran.oOut, HasSubstr(c.pccSays));
  }
}

// The key reaches every program of the terminal; the module must outlive it to answer.
TEST(Installed, CtrlCOnTheTerminal) {
  InstalledTill till;
  till.Start({"sale", "1.73"}, true);
  ASSERT_TRUE(till.WaitForScreen("Waiting for the terminal"));
  till.Type('\x03');
  Ran ran = till.Finish();
  EXPECT_EQ(ran.iExit, 3);
  EXPECT_THAT(ran.oOut, HasSubstr("Broken off at the till's request."));
}

TEST(Installed, WithoutTheModule) {
  InstalledTill till;
  std::filesystem::remove(till.oScratch / "BIN/zat_mm");
  Ran ran = till.Run({"sale", "1"});
  EXPECT_EQ(ran.iExit, 4);
  EXPECT_THAT(ran.oOut, HasSubstr("zat_mm"));
  EXPECT_FALSE(till.oScratch.Has("cid1.lck"));
}

// A terminal that is reached over TCP, without the library; its first two lines are its process and its place.
class LinkedTerminal {
public:
  explicit LinkedTerminal(const InstalledTill& till) {
    std::string command = "echo $$; exec " + (till.oScratch / "BIN/zat_mm") + " --listen 127.0.0.1:0";
    poOut = popen(command.c_str(), "r");
    char line[128] = "";
    iProcess = atoi(fgets(line, sizeof line, poOut));
    std::string place = fgets(line, sizeof line, poOut);
    oPlace = "tcp:127.0.0.1:" + std::to_string(atoi(place.substr(place.rfind(':') + 1).c_str()));
  }
  ~LinkedTerminal() { Stop(); }
  void Stop() {
    if (iProcess > 0) kill(iProcess, SIGTERM);
    if (poOut) pclose(poOut);
    iProcess = 0;
    poOut = nullptr;
  }

  std::string oPlace;

private:
  FILE* poOut;
  int iProcess;
};

TEST(Linked, OutcomesAreThoseOfThePipes) {
  InstalledTill till;
  LinkedTerminal terminal(till);
  struct {
    std::vector<std::string> words;
    int iExit;
    const char* pccSays;
  } cases[] = {{{"sale", "12.00"}, 0, "APPROVED"},
               {{"sale", "12.51"}, 1, "51 НЕДОСТАТОЧНО СРЕДСТВ"},
               {{"sale", "12.77"}, 5, "OUTCOME UNKNOWN"}, // the terminal goes silent after it has approved
               {{"login"}, 0, "DONE"},
               {{"raw", "99"}, 2, "No message can be made"},
               {{"end-of-day"}, 0, "24.77"}}; // the lost sale counts: it was made
  for (const auto& c : cases) {
    std::vector<std::string> words = c.words;
    words.insert(words.end(), {"--link", terminal.oPlace});
    Ran ran = till.Run(words);
    EXPECT_EQ(ran.iExit, c.iExit) << c.pccSays;
    EXPECT_THAT(ran.oOut, HasSubstr(c.pccSays));
  }
}

TEST(Linked, BreaksOffAndSaysWhenNobodyAnswers) {
  InstalledTill till;
  LinkedTerminal terminal(till);
  till.Start({"sale", "1.73", "--link", terminal.oPlace}, true);
  ASSERT_TRUE(till.WaitForScreen("Waiting for the terminal"));
  till.Type('\x03');
  EXPECT_EQ(till.Finish().iExit, 3);
  terminal.Stop();
  for (const std::string& place : {terminal.oPlace, std::string("nowhere")}) {
    Ran ran = till.Run({"sale", "1", "--link", place});
    EXPECT_EQ(ran.iExit, 4) << place;
    EXPECT_THAT(ran.oOut, HasSubstr("cannot be opened"));
  }
}

} // namespace
