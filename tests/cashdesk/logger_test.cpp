// The log: what a line looks like, which lines are written, when the file is moved, and that no lock loses a line.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "SLogger.h"
#include "scratch.h"
#include "util.h"
#include "utilf.h"

namespace {

using testing::MatchesRegex;

const char* const kStamp = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}\\.[0-9]{2}\\.[0-9]{2} ";

std::string Pid() {
  char text[16];
  snprintf(text, sizeof text, "\\{%08X\\}", static_cast<unsigned>(getpid()));
  return text;
}

TEST(Logger, LineHasStampProcessAndText) {
  Scratch dir;
  SLogger log((dir / "test.log").c_str(), false);
  log.Write(150, "a %d %s", 7, "b");
  EXPECT_THAT(dir.Get("test.log"), MatchesRegex(kStamp + Pid() + " L\\[0:150\\] : a 7 b\r\n"));
  EXPECT_FALSE(dir.Has("test.log.lck"));

  SLogger again((dir / "test.log").c_str(), true);
  again.SetLevel(100);
  again.Write(100, "%s", std::string(2000, 'x').c_str()); // longer than any buffer on the stack
  EXPECT_THAT(dir.Get("test.log"), MatchesRegex(kStamp + Pid() + " : x{2000}\r\n"));
}

TEST(Logger, DataAsTextAndAsHexadecimal) {
  Scratch dir;
  SLogger log((dir / "test.log").c_str(), true);
  log.Data(150, "text: ", "ab\0c", 4);
  log.Data(150, "hex: ", "\x00\x7F\xFFz", 4, true);
  log.Data(150, "nothing", "", 0);
  log.SetLevel(151);
  log.Data(150, "below", "x", 1);
  std::string all = dir.Get("test.log");
  EXPECT_NE(all.find(" : text: ab\r\n"), std::string::npos);
  EXPECT_NE(all.find(" : hex: 007FFF7A\r\n"), std::string::npos);
  EXPECT_EQ(all.find("nothing"), std::string::npos);
  EXPECT_EQ(all.find("below"), std::string::npos);
}

TEST(Logger, LetterSetsTheThreshold) {
  Scratch dir;
  SLogger log((dir / "test.log").c_str(), true);
  struct {
    char letter;
    int threshold;
  } const cases[] = {{'H', 100}, {'M', 150}, {'L', 200}, {'h', 150}, {'?', 150}};
  for (const auto& c : cases) {
    PutGlobLogLevel(c.letter);
    EXPECT_EQ(GetGlobLogLevel(), c.letter);
    SetGlobLogLevel(&log);
    EXPECT_EQ(log.GetLevel(), c.threshold) << c.letter;
  }
  unsetenv("ZAT_L_LEVEL");
  EXPECT_EQ(GetGlobLogLevel(), 'M');
}

TEST(Logger, ALogThatOutgrewItsLimitIsMovedWhenItIsOpened) {
  struct {
    const char *name, *backup;
    unsigned long limit;
    bool moved;
  } const cases[] = {
      {"zat_comm.log", "zat_com2.log", 10, true},
      {"zat_comm.log", "zat_com2.log", 11, false},
      {"logs2.txt", "logs2.txt", 10, false}, // its own backup
  };
  for (const auto& c : cases) {
    Scratch dir;
    dir.Put(c.name, "eleven byte");
    ASSERT_EQ(dir.Get(c.name).size(), 11u);
    SLogger log((dir / "other.log").c_str(), true);
    log.ulMSize = c.limit;
    log.open((dir / c.name).c_str(), false);
    log.Write(200, "new");
    EXPECT_EQ(dir.Get(c.name).find("eleven") == std::string::npos, c.moved) << c.name << c.limit;
    EXPECT_EQ(dir.Get(c.backup).starts_with("eleven byte"), c.moved || c.backup == std::string(c.name));
  }
}

// A till runs for months while others start and move the log, and a host may close what it does not know.
TEST(Logger, FollowsItsNameAndKeepsOutOfOtherFiles) {
  Scratch dir;
  SLogger log((dir / "zat_comm.log").c_str(), false), other((dir / "other.log").c_str(), false);
  log.ulMSize = other.ulMSize = 1;
  log.Write(200, "one");
  other.open((dir / "zat_comm.log").c_str(), false);
  log.Write(200, "two");
  EXPECT_NE(dir.Get("zat_com2.log").find("one\r\n"), std::string::npos);
  EXPECT_THAT(dir.Get("zat_comm.log"), MatchesRegex(".* two\r\n"));

  log.ulMSize = 1000;
  std::filesystem::rename(dir / "zat_comm.log", dir / "kept");
  log.oLooked = 0; // as a second later
  log.Write(200, "by hand");
  EXPECT_THAT(dir.Get("zat_comm.log"), MatchesRegex(".* by hand\r\n"));

  int hosts = open((dir / "hosts").c_str(), O_WRONLY | O_CREAT, 0666), number = fileno(log.poOut);
  ASSERT_EQ(dup2(hosts, number), number);
  log.Write(200, "three");
  log.close();
  EXPECT_EQ(write(number, "host", 4), 4); // still open
  EXPECT_EQ(dir.Get("hosts"), "host");
  EXPECT_NE(dir.Get("zat_comm.log").find("three\r\n"), std::string::npos);
}

TEST(Logger, PathsThatCannotBeALogAreSilent) {
  Scratch dir;
  for (const std::string& path : {dir / "", dir / "missing/test.log"}) {
    SLogger log(path.c_str(), false);
    EXPECT_EQ(log.poOut, nullptr);
    log.Write(200, "nothing happens");
  }
}

// A process that holds the log's lock for ever (stopped, swapped out) costs one long wait, and no line.
TEST(Logger, ALineIsNeverLostToALock) {
  Scratch dir;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t holder = fork();
  if (holder == 0) {
    char taken = static_cast<char>(tryflock((dir / "test.log.lck").c_str()));
    (void)!write(ready[1], &taken, 1);
    pause();
    _exit(0);
  }
  char taken = 1;
  ASSERT_EQ(read(ready[0], &taken, 1), 1);
  ASSERT_EQ(taken, 0);
  ASSERT_EQ(chdir((dir / "").c_str()), 0); // the exception log goes to the working directory
  {
    SLogger log((dir / "test.log").c_str(), false); // gives the size check up after a second
    log.fLockLost = true;                           // as after one wait of full length
    tTicks start = TicksGet();
    log.Write(200, "written all the same");
    EXPECT_FALSE(TicksEnd(start, 2000));
  }
  EXPECT_NE(dir.Get("test.log").find("written all the same"), std::string::npos);
  std::string exceptions = dir.Get("zat_expt.log");
  EXPECT_NE(exceptions.find("Can`t lock '" + (dir / "test.log.lck") + "' - skip log checksize\r\n"),
            std::string::npos);
  EXPECT_NE(exceptions.find("Can`t lock '" + (dir / "test.log.lck") + "' - skip block log\r\n"),
            std::string::npos);
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
}

// There is nobody to wait for when the lock file cannot be made at all (here a directory stands in its place).
TEST(Logger, ALockThatCannotBeHadCostsNoTime) {
  Scratch dir;
  ASSERT_EQ(chdir((dir / "").c_str()), 0);
  std::filesystem::create_directories(dir / "test.log.lck/x");
  tTicks start = TicksGet();
  SLogger log((dir / "test.log").c_str(), false);
  log.Write(200, "one");
  log.Write(200, "two");
  EXPECT_FALSE(TicksEnd(start, 900));
  EXPECT_THAT(dir.Get("test.log"), testing::ContainsRegex("one\r\n.*two\r\n"));
  EXPECT_NE(dir.Get("zat_expt.log").find("skip block log"), std::string::npos);
}

TEST(Logger, ADeadOneIsRecognisedAndNoted) {
  Scratch dir;
  ASSERT_EQ(chdir((dir / "").c_str()), 0);
  alignas(SLogger) char memory[sizeof(SLogger)];
  SLogger* log = new (memory) SLogger((dir / "test.log").c_str(), true);
  EXPECT_TRUE(SLogger::ItIsMe(log));
  log->~SLogger();
  EXPECT_FALSE(SLogger::ItIsMe(log));
  EXPECT_FALSE(SLogger::ItIsMe(nullptr));
  char line[64];
  snprintf(line, sizeof line, "Addr %p - is not (SLogger*)\r\n", static_cast<void*>(log));
  EXPECT_NE(dir.Get("zat_expt.log").find(line), std::string::npos);
}

TEST(ExceptionLog, AppendsToTheNamedFile) {
  Scratch dir;
  EXPECT_TRUE(AppendToFLog((dir / "x.log").c_str(), "%s", "one"));
  EXPECT_TRUE(AppendToFLog((dir / "x.log").c_str(), "two"));
  EXPECT_THAT(dir.Get("x.log"), MatchesRegex(kStamp + Pid() + " : one\r\n" + kStamp + Pid() + " : two\r\n"));
  EXPECT_FALSE(AppendToFLog((dir / "missing/x.log").c_str(), "three"));
}

// Many processes write at once: every line is there, and none is torn.
TEST(Logger, LinesOfManyProcessesStayWhole) {
  Scratch dir;
  constexpr int kProcesses = 6, kLines = 60;
  for (int p = 0; p < kProcesses; ++p) {
    if (fork() != 0) continue;
    SLogger log((dir / "test.log").c_str(), false);
    for (int i = 0; i < kLines; ++i) log.Write(200, "<%d %d %s>", p, i, std::string(300, 'y').c_str());
    log.close();
    _exit(0);
  }
  for (int p = 0; p < kProcesses; ++p) wait(nullptr);
  std::string all = dir.Get("test.log");
  size_t lines = 0, at = 0;
  for (size_t end; (end = all.find("\r\n", at)) != std::string::npos; at = end + 2, ++lines)
    EXPECT_EQ(all.substr(end - 301, 301), std::string(300, 'y') + ">") << "torn line " << lines;
  EXPECT_EQ(lines, static_cast<size_t>(kProcesses * kLines));
}

} // namespace
