// The journal's file: what survives which accident.
#include "journal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "scratch.h"
#include "updates/killer.h"

using namespace zat::client;

// What has been brought to the disk, by name, in this process.
static std::string oSynced;
extern "C" int fsync(int fd) {
  char name[4096];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), name, sizeof name);
  oSynced += std::filesystem::path(std::string(name, static_cast<size_t>(std::max<ssize_t>(0, length))))
                 .filename()
                 .string() +
             " ";
  return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

const Intent kSale = {"10", "1", 125000, "", ""};

Ending Approved(const std::string& ref) { return {Fate::Approved, "00", 125000, ref, Source::Till, 0}; }

// For those who write thousands of times: where there is no disk to wait for.
struct InMemory {
  InMemory() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
  }
  ~InMemory() { unsetenv("TMPDIR"); }
};

// One line an entry: number, what became of it, reference. "?" for one whose record is lost.
std::string Told(const std::string& file) {
  JournalState state;
  Journal journal(file);
  std::string all = journal.Read(state) ? "" : journal.Fault();
  for (const Entry& entry : state.oEntries)
    all += std::to_string(entry.uNumber) + (entry.fKnown ? " " : "? ") + NameOf(entry.oEnding.oFate) + " " +
           entry.oEnding.oRef + (entry.fRunning ? "running" : "") + "\n";
  return all + (state.fDamaged ? "damaged\n" : "");
}

TEST(Journal, TellsWhatBecameOfEach) {
  Scratch at;
  Journal journal(at / "till.jnl");
  EXPECT_EQ(Told(at / "till.jnl"), "");
  const Intent odd = {"1A", "12345678901", 0, "612345678901\t", "tcp:a:1\n"};
  EXPECT_EQ(journal.Begin(kSale), 1u);
  EXPECT_EQ(Journal(at / "till.jnl").Begin(odd), 2u);
  EXPECT_EQ(journal.Begin(kSale), 3u);
  EXPECT_TRUE(journal.Note(1, Approved("R1")));
  EXPECT_EQ(Told(at / "till.jnl"), "1 unknown R1running\n2 unknown running\n3 unknown running\n");
  EXPECT_TRUE(journal.Finish(1, {Fate::Unknown, "XL", 0, "", Source::Till, 0}));
  EXPECT_EQ(Told(at / "till.jnl"), "1 unknown R1\n2 unknown running\n3 unknown running\n");
  EXPECT_TRUE(journal.Finish(1, Approved("R1")));
  EXPECT_TRUE(journal.Finish(2, {Fate::Unknown, "XL", 0, "", Source::Till, 0}));
  EXPECT_TRUE(journal.Settle(2, {Fate::NotMade, "", 0, "", Source::Terminal, 0}));
  EXPECT_TRUE(journal.Settle(2, Approved("R9"))) << "too late, and no failure";
  EXPECT_EQ(Told(at / "till.jnl"), "1 approved R1\n2 notMade \n3 unknown running\n");

  JournalState state;
  ASSERT_TRUE(journal.Read(state));
  EXPECT_EQ(state.oEntries[1].oIntent.oTid, "1234567890");
  EXPECT_EQ(state.oEntries[1].oIntent.oRef, "612345678901");
  EXPECT_EQ(state.oEntries[1].oIntent.oRoad, "tcp:a:1?");
  EXPECT_EQ(state.oEntries[1].oEnding.oSource, Source::Terminal);
  EXPECT_FALSE(at.Has("till.jnl.lck"));
}

TEST(Journal, IsOnTheDiskWithItsNameWhenACallReturns) {
  Scratch at;
  const std::string directory = std::filesystem::path(at / "x").parent_path().filename(), file = "till.jnl ";
  const auto synced = [](bool done) { return done ? std::exchange(oSynced, "") : "failed"; };
  Journal journal(at / "till.jnl", 4);
  oSynced.clear();
  EXPECT_EQ(synced(journal.Begin(kSale) == 1), file + directory + " " + file + directory + " ");
  EXPECT_EQ(synced(journal.Finish(1, Approved("R1"))), file);
  EXPECT_EQ(synced(journal.Begin(kSale) == 2), file);
  EXPECT_EQ(synced(journal.Finish(2, Approved("R2"))), file);
  EXPECT_EQ(synced(journal.Begin(kSale) == 3),
            "till.jnl.old.new " + directory + " till.jnl.new " + directory + " " + file + directory + " ");
}

TEST(Journal, KnowsAPaymentWhoseTillIsGone) {
  Scratch at;
  if (const pid_t child = fork(); child == 0)
    _exit(Journal(at / "till.jnl").Begin(kSale) == 1 ? 0 : 1);
  else {
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
    EXPECT_EQ(Told(at / "till.jnl"), "1 unknown \n") << "also before its parent has noticed";
    waitpid(child, nullptr, 0);
  }
  EXPECT_EQ(Told(at / "till.jnl"), "1 unknown \n");
}

// What a power cut may leave of an append: any number of its bytes, the file longer or not, what it did not write old or
// zero.
TEST(Journal, SurvivesAnAppendThatWasCutAnywhere) {
  InMemory memory;
  Scratch at;
  Journal journal(at / "till.jnl");
  for (int i = 1; i < 3; ++i) journal.Finish(journal.Begin(kSale), Approved("R" + std::to_string(i)));
  const std::string before = at.Get("till.jnl");
  ASSERT_EQ(journal.Begin(kSale), 3u);
  const std::string after = at.Get("till.jnl");
  const std::string told = "1 approved R1\n2 approved R2\n";
  ASSERT_EQ(Told(at / "till.jnl"), told + "3 unknown running\n");
  const size_t trailer = 6;
  for (size_t put = 0; put <= after.size() - (before.size() - trailer); ++put) {
    const size_t end = before.size() - trailer + put;
    const std::string written = after.substr(0, end);
    std::string old = written + (end < before.size() ? before.substr(end) : ""), zero = written;
    zero.resize(after.size(), '\0');
    for (const std::string& bytes : {written, old, zero}) {
      SCOPED_TRACE(put);
      at.Put("till.jnl", bytes);
      Journal next(at / "till.jnl");
      const uint32_t number = next.Begin(kSale);
      ASSERT_TRUE(number == 3 || (number == 4 && end >= after.size() - trailer)) << number;
      ASSERT_TRUE(next.Finish(number, Approved("R4")));
      ASSERT_EQ(Told(at / "till.jnl"), told + (number == 4 ? "3 unknown running\n" : "") +
                                           std::to_string(number) + " approved R4\n");
    }
  }
}

// One flipped bit, wherever: an entry that cannot be read is said to be lost, all others stand, before the file is mended
// and after.
TEST(Journal, SurvivesADamagedByte) {
  InMemory memory;
  Scratch at;
  Journal journal(at / "till.jnl");
  for (int i = 1; i < 4; ++i) journal.Finish(journal.Begin(kSale), Approved("R" + std::to_string(i)));
  const std::string good = at.Get("till.jnl"),
                    lines[] = {"1 approved R1\n", "2 approved R2\n", "3 approved R3\n"};
  for (size_t i = 0; i < good.size(); ++i) {
    SCOPED_TRACE(i);
    std::string bytes = good;
    bytes[i] ^= 0x10;
    at.Put("till.jnl", bytes);
    const std::string told = Told(at / "till.jnl");
    ASSERT_TRUE(told.ends_with("damaged\n"));
    int spoiled = 0; // an outcome that is told is the true one
    for (const std::string& line : lines) spoiled += told.find(line) == told.npos;
    ASSERT_LE(spoiled, 1) << told;
    for (size_t n = 1; n <= 3; ++n)
      ASSERT_THAT(told, testing::ContainsRegex("(^|\n)" + std::to_string(n) + "(\\? approved R" +
                                               std::to_string(n) + "|\\?? unknown (running)?| approved R" +
                                               std::to_string(n) + ")\n"));
    ASSERT_EQ(std::count(told.begin(), told.end(), '\n'), 4) << told;
    Journal next(at / "till.jnl");
    ASSERT_EQ(next.Begin(kSale), 4u);
    ASSERT_TRUE(next.WasMended());
    ASSERT_EQ(at.Get("till.jnl.bad"), bytes);
    ASSERT_EQ(Told(at / "till.jnl"),
              told.substr(0, told.size() - strlen("damaged\n")) + "4 unknown running\n");
  }
}

TEST(Journal, GrowsToALimitAndForgetsNothingThatIsOpen) {
  Scratch at;
  Journal journal(at / "till.jnl", 10);
  std::string open;
  for (uint32_t i = 1; i <= 60; ++i) {
    ASSERT_EQ(journal.Begin(kSale), i);
    if (i % 13 == 0) open += std::to_string(i) + " unknown Q\n";
    const Ending lost = {Fate::Unknown, "XL", 0, "Q", Source::Till, 0};
    ASSERT_TRUE(journal.Finish(i, i % 13 ? Approved("R") : lost));
    const std::string told = Told(at / "till.jnl");
    ASSERT_THAT(told, testing::HasSubstr(std::to_string(i)));
    for (uint32_t j = 13; j <= i; j += 13)
      ASSERT_THAT(told, testing::HasSubstr(std::to_string(j) + " unknown Q\n"));
    ASSERT_THAT(told, testing::Not(testing::HasSubstr("damaged")));
  }
  EXPECT_LT(at.Get("till.jnl").size(), 2000u);
  std::filesystem::remove(at / "till.jnl");
  EXPECT_GT(journal.Begin(kSale), 50u) << "numbers go on behind those of the older file";
}

TEST(Journal, IsSharedByManyTills) {
  InMemory memory;
  Scratch at;
  constexpr int kTills = 4, kEach = 40;
  for (int i = 0; i < kTills; ++i) {
    if (fork() != 0) continue;
    Journal journal(at / "till.jnl", 50);
    bool good = true;
    for (int j = 0; j < kEach && good; ++j) {
      const uint32_t number = journal.Begin(kSale);
      good = number && (j % 20 == 0 || journal.Finish(number, Approved("R")));
    }
    _exit(good ? 0 : 1);
  }
  int status;
  while (wait(&status) > 0) EXPECT_EQ(status, 0);
  const std::string told = Told(at / "till.jnl");
  size_t open = 0;
  for (size_t at_ = 0; (at_ = told.find(" unknown \n", at_)) != told.npos; ++at_) ++open;
  EXPECT_EQ(open, kTills * kEach / 20u) << told;
  Journal journal(at / "till.jnl");
  EXPECT_EQ(journal.Begin(kSale), kTills * kEach + 1u);
}

// The work of a till that is killed: a file at its limit is rotated, an entry made and ended.
TEST(JournalWork, DISABLED_Payment) {
  Journal journal(getenv("JOURNAL"), 6);
  const uint32_t number = journal.Begin(kSale);
  std::ofstream(std::string(getenv("JOURNAL")) + ".sent") << number; // what the terminal would have heard of
  if (!number || !journal.Finish(number, Approved("NEW"))) abort();
}

TEST(Journal, SurvivesATillThatIsKilledAtAnyChange) {
  Scratch at;
  const std::string file = at / "till.jnl", work = "--gtest_filter=JournalWork.DISABLED_Payment";
  setenv("JOURNAL", file.c_str(), 1);
  int kills = 0;
  for (bool killed = true; killed; ++kills) {
    for (const char* name : {"till.jnl", "till.jnl.old", "till.jnl.sent"}) std::filesystem::remove(at / name);
    Journal journal(file, 6);
    journal.Begin({"10", "1", 5, "", ""});
    journal.Finish(1, {Fate::Unknown, "XL", 0, "", Source::Till, 0});
    journal.Finish(journal.Begin(kSale), Approved("R2"));
    ASSERT_TRUE(journal.Note(1, {Fate::Unknown, "", 0, "Q1", Source::Till, 0}));
    killed = RunAndKillAt({"/proc/self/exe", work, "--gtest_also_run_disabled_tests", "--gtest_brief=1"},
                          kills + 1);
    SCOPED_TRACE("killed at change " + std::to_string(kills + 1));
    const std::string told = Told(file);
    ASSERT_THAT(told, testing::HasSubstr("1 unknown Q1\n2 approved R2\n"));
    if (at.Has("till.jnl.sent")) { ASSERT_THAT(told, testing::HasSubstr("3 ")); }
    if (!killed) { ASSERT_THAT(told, testing::HasSubstr("3 approved NEW\n")); }
    Journal next(file);
    ASSERT_GE(next.Begin(kSale), 3u);
    ASSERT_THAT(Told(file), testing::StartsWith("1 unknown Q1\n2 approved R2\n"));
  }
  EXPECT_GT(kills, 15);
}

TEST(Journal, SaysWhyItCannotRecord) {
  Scratch at;
  std::filesystem::create_directory(at / "directory.jnl");
  std::filesystem::create_symlink("/dev/full", at / "full.jnl");
  const std::pair<std::string, const char*> cases[] = {
      {at / "nowhere/till.jnl", "No such file"}, {at / "directory.jnl", ""}, {at / "full.jnl", ""}};
  for (const auto& [file, says] : cases) {
    Journal journal(file);
    EXPECT_EQ(journal.Begin(kSale), 0u) << file;
    EXPECT_THAT(journal.Fault(), testing::AllOf(testing::HasSubstr(says), testing::Not("")));
    EXPECT_FALSE(journal.Finish(1, Approved("R")));
  }
}

} // namespace
