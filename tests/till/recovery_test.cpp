// No payment is forgotten: what the journal says after a till has gone, and what the terminal says about it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

#include "runner.h"
#include "updates/killer.h"
#include "utilf.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

json Journal(Till& till) { return json::parse(till.Run("journal --all --json").oOut); }

// The reference numbers of the payments that the terminal has made, from its own record of the day.
std::multiset<std::string> MadeByTerminal(const Till& till, const char* id = "1") {
  std::multiset<std::string> made;
  std::istringstream day(till.oScratch.Get(std::string("simulator-") + id + ".day"));
  for (std::string line; std::getline(day, line);)
    if (line.starts_with("[") && line.find("DAY") == line.npos)
      made.insert(line.substr(1, line.find(']') - 1));
  return made;
}

// Those that the journal calls approved.
std::multiset<std::string> MadeByJournal(const json& journal) {
  std::multiset<std::string> made;
  for (const json& entry : journal["entries"])
    if (entry["state"] == "approved") made.insert(entry.value("rrn", "none"));
  return made;
}

// A till that is killed when it, or the terminal's module, is about to change a file for the n-th time, for every n
// there is. The module lives on, as it does in a shop.
TEST(Recovery, AfterAKillAtEveryStepOfASale) {
  InstalledTill till;
  std::filesystem::remove(till.oScratch / "micromgl.cfg"); // no log: its lines are no steps
  int kills = 0, unknown = 0, approved = 0;
  for (bool killed = true; killed; ++kills) {
    SCOPED_TRACE("killed at change " + std::to_string(kills + 1));
    const std::string sale =
        "exec " ZAT_INSTALLATION "/BIN/zat_till sale 12.00 >/dev/null 2>&1 --lib " + till.oLib;
    killed = RunAndKillAt({"/bin/sh", "-c", sale}, kills + 1, false);
    unknown += Journal(till)["unknown"].get<int>();
    const Ran ran = till.Run("recover --json");
    ASSERT_EQ(ran.iExit, 0) << ran.oOut << ran.oErr;
    const json journal = Journal(till);
    ASSERT_EQ(journal["unknown"], 0);
    ASSERT_EQ(MadeByJournal(journal), MadeByTerminal(till)) << ran.oOut << journal;
    approved += json::parse(ran.oOut)["entries"].dump().find("approved") != std::string::npos;
  }
  EXPECT_GT(kills, 20);
  EXPECT_GT(unknown, 10);
  EXPECT_GT(approved, 3) << "some were made although the till never heard of it";
}

TEST(Recovery, SaysWhatIsUnknownAndAsks) {
  InstalledTill till;
  EXPECT_EQ(till.Run("sale 1.77").iExit, 5); // approved, and then the module is gone
  const Ran login = till.Run("login");
  EXPECT_EQ(login.iExit, 0) << "a warning only";
  EXPECT_THAT(login.oErr,
              testing::AllOf(HasSubstr("Payment 1 has an unknown outcome"), HasSubstr("sale 1.77")));
  const json object = json::parse(till.Run("login --json").oOut);
  EXPECT_EQ(object["unresolved"][0]["amount"], "1.77");
  EXPECT_EQ(object["exitCode"], 0);

  const Ran recovered = till.Run("recover");
  EXPECT_EQ(recovered.iExit, 0);
  const std::string rrn = *MadeByTerminal(till).begin();
  EXPECT_THAT(recovered.oOut,
              testing::AllOf(HasSubstr("1.77\n"), HasSubstr("APPROVED  " + rrn), HasSubstr("СПАСИБО!")));
  EXPECT_EQ(till.Run("recover").oOut, "No payment has an unknown outcome.\n");
  EXPECT_EQ(till.Run("login").oErr, "");
}

TEST(Recovery, WhatTheTerminalCannotTellAPersonSettles) {
  InstalledTill till;
  EXPECT_EQ(till.Run("sale 1.77 --tid 2").iExit, 5);
  EXPECT_EQ(till.Run("sale 5 --tid 002").iExit, 0); // the same terminal: its last payment is this one now
  EXPECT_EQ(till.Run("recover --tid 1").oOut, "No payment has an unknown outcome.\n");
  const Ran recovered = till.Run("recover --json");
  EXPECT_EQ(recovered.iExit, 5);
  EXPECT_EQ(json::parse(recovered.oOut)["entries"][0]["ground"], "hidden");
  EXPECT_EQ(till.Run("settle 2 paid").iExit, 4) << "nothing is unknown about this one";
  EXPECT_EQ(till.Run("settle 1 maybe").iExit, 2);
  EXPECT_EQ(till.Run("settle 1 not-paid").iExit, 0);
  const json journal = Journal(till);
  EXPECT_EQ(journal["entries"][0]["state"], "notMade");
  EXPECT_EQ(journal["entries"][0]["toldBy"], "person");
}

// A response came, and then the till was killed: the terminal is asked by the reference number, whatever followed.
TEST(Recovery, ByTheReferenceNumberWhenItIsKnown) {
  const std::string response = "block 60 0000000125000643" + []() {
    char now[16];
    const time_t t = time(nullptr);
    strftime(now, sizeof now, "%Y%m%d%H%M%S", localtime(&t));
    return std::string(now);
  }() + "00000000001234561234567890100A1B2C3\\e4000001234567899=2512\\eVISA\\eyes\\e\n";
  ScriptedTill till(response + "mark waiting\nsleep 60000\n");
  till.Start("sale 1250");
  ASSERT_TRUE(till.WaitFor("waiting"));
  till.Kill();
  till.Finish();
  EXPECT_EQ(Journal(till)["entries"][0]["rrn"], "612345678901");
  EXPECT_THAT(till.oScratch.Get("till.jnl"), Not(HasSubstr("7899")));

  till.oScratch.Put("script", "block 54 \nblock 5X 25no such\nbad\n");
  till.oScratch.Put("record", "");
  std::filesystem::copy(till.oScratch / "till.jnl", till.oScratch / "again.jnl");
  const std::string again = "recover --json --journal " + till.oScratch / "again.jnl";
  EXPECT_EQ(json::parse(till.Run(again).oOut)["entries"][0]["ground"], "gone");
  EXPECT_THAT(till.Record(), HasSubstr("request 2000000000010C612345678901\n"));
  till.oScratch.Put("script", response + "good\n");
  EXPECT_EQ(json::parse(till.Run("recover --json").oOut)["entries"][0]["state"], "approved");
}

// The module of a till that was killed may go on for a while; it has the last word.
TEST(Recovery, WaitsForATerminalThatIsAtWork) {
  InstalledTill till;
  EXPECT_EQ(till.Run("sale 1.77").iExit, 5);
  const pid_t atWork = fork();
  if (atWork == 0) {
    tryflock((till.oScratch / "cid1.lck").c_str());
    till.oScratch.Put("record", "held");
    for (;;) pause();
  }
  ASSERT_TRUE(till.WaitFor("held"));
  const Ran impatient = till.Run("recover --wait 0");
  EXPECT_EQ(impatient.iExit, 5);
  EXPECT_THAT(impatient.oOut, HasSubstr("could not be asked"));
  till.oScratch.Put("BIN/zat_comm.log", "");
  till.Start("recover");
  EXPECT_TRUE(till.WaitFor("Already lock", "BIN/zat_comm.log"));
  kill(atWork, SIGKILL);
  EXPECT_EQ(till.Finish().iExit, 0);
  waitpid(atWork, nullptr, 0);
}

TEST(Recovery, OverALink) {
  InstalledTill till, other; // the terminal's own day, which the till's installation knows nothing of
  LinkedTerminal terminal(other);
  EXPECT_EQ(till.Run("sale 12.77" + terminal.oPlace).iExit, 5);
  EXPECT_EQ(till.Run("recover").iExit, 0) << "the journal knows the way";
  EXPECT_EQ(MadeByJournal(Journal(till)), MadeByTerminal(other));
  EXPECT_EQ(MadeByTerminal(other).size(), 1u);
}

TEST(Recovery, NothingIsSentThatCannotBeRecorded) {
  InstalledTill till;
  std::filesystem::create_directory(till.oScratch / "till.jnl");
  const Ran sale = till.Run("sale 1");
  EXPECT_EQ(sale.iExit, 4);
  EXPECT_THAT(sale.oOut,
              testing::AllOf(HasSubstr("NOT SENT"), HasSubstr("till.jnl"), HasSubstr("--no-journal")));
  EXPECT_TRUE(MadeByTerminal(till).empty());
  EXPECT_EQ(json::parse(till.Run("sale 1 --json").oOut)["why"], "noJournal");
  EXPECT_EQ(till.Run("journal").iExit, 4);
  EXPECT_EQ(till.Run("login").iExit, 0) << "it moves no money";
  EXPECT_EQ(till.Run("sale 1 --no-journal").iExit, 0);
  EXPECT_EQ(till.Run("sale 1 --journal " + till.oScratch / "other.jnl").iExit, 0);
}

} // namespace
