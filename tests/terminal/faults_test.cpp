// Every fault of simulator.cfg does what its key says; the module starts and ends as its callers expect.
#include "module.h"
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>

namespace {

using std::chrono::milliseconds;
typedef std::chrono::steady_clock Clock;

const std::string kSale = "000000030000";

// The answer to a sale of 300.00 under these faults: without any it is "53", ten print lines, "60", "#0".
std::string Sale(const std::string& faults, const std::string& id = "0000001234") {
  Site at(faults);
  return Codes(Module(at, id).Ask("10", kSale));
}

// What is in the pipe, unframed, once the module has ended.
std::string Bytes(Module& module) {
  char buffer[4096];
  module.Ended();
  return {buffer, buffer + module.pipes.Read(buffer, sizeof buffer)};
}

// The output of the program started by hand, and its exit code at the end.
std::string ByHand(const std::string& arguments) {
  std::array<char, 4096> buffer;
  FILE* out = popen((ZAT_INSTALLATION "/BIN/zat_mm " + arguments + " 2>&1").c_str(), "r");
  std::string text;
  for (size_t n; (n = fread(buffer.data(), 1, buffer.size(), out)) > 0;) text.append(buffer.data(), n);
  return text + std::to_string(WEXITSTATUS(pclose(out)));
}

TEST(Faults, PauseBeforeTheBlockTheyName) {
  for (const char* key : {"Pause=0:150", "Pause=3:150"}) {
    const auto begin = Clock::now();
    EXPECT_EQ(Sale(key), "53 32 60 #0");
    EXPECT_GE(Clock::now() - begin, milliseconds(150)) << key;
  }
}

TEST(Faults, KeepTheGreetingBack) {
  Site at("NoGreeting=1");
  Module module(at);
  module.Send("30");
  EXPECT_EQ(Codes(module.Rest()), "31 #0");
}

TEST(Faults, StopAnswering) {
  Site at("Silent=2:300");
  Module module(at);
  const auto begin = Clock::now();
  module.Block();
  module.Send("10", kSale);
  EXPECT_EQ(module.Block().substr(0, 2), "53");
  EXPECT_EQ(WEXITSTATUS(module.Ended()), 1);
  EXPECT_GE(Clock::now() - begin, milliseconds(300));
  EXPECT_EQ(module.Block(0), "") << "something came out of the silence";
}

TEST(Faults, EndInTheMiddleOfABlock) {
  Site at("Cut=1:10");
  Module module(at);
  module.Block();
  module.Send("30");
  EXPECT_EQ(Bytes(module), std::string("\x17\x1B\0"
                                       "3100000",
                                       10));
}

TEST(Faults, DieAtABlock) {
  const struct {
    const char* key;
    int status;
  } cases[] = {{"Die=2", SIGKILL}, {"Die=2:15", SIGTERM}, {"Die=2:0\nExitCode=7", 7 << 8}};
  for (const auto& c : cases) {
    Site at(c.key);
    Module module(at);
    EXPECT_EQ(module.Block(), "zat_mm 1.0.0");
    module.Send("10", kSale);
    EXPECT_EQ(module.Block().substr(0, 2), "53");
    EXPECT_EQ(module.Ended(), c.status) << c.key;
  }
}

TEST(Faults, ChangeTheExitCode) {
  Site at("ExitCode=9");
  Module module(at);
  EXPECT_EQ(Codes(module.Ask("30")), "31 #0");
  EXPECT_EQ(WEXITSTATUS(module.Ended()), 9);
}

TEST(Faults, DisturbBlocks) {
  EXPECT_EQ(Sale("Duplicate=1"), "53 53 32 60 #0");
  EXPECT_EQ(Sale("Noise=1:50"), "53 32 60 #0") << "a reader skips what is no block";
  EXPECT_EQ(Sale("PrintLines=0"), "53 60 #0");

  Site at("Noise=1:5");
  Module module(at);
  module.Block();
  module.Send("33");
  EXPECT_EQ(Bytes(module).substr(0, 7), "abcde\x17\x0F");
}

TEST(Faults, HideTheTerminalId) {
  Site at("UnknownId=1");
  for (const std::string& block : Module(at).Ask("10", kSale)) EXPECT_EQ(block.substr(2, 10), "??????????");
}

TEST(Faults, GiveABlockASize) {
  const struct {
    size_t data, block;
  } cases[] = {{0, 14}, {254, 268}, {255, 14}, {256, 270}, {2034, 2048}, {4000, 4014}};
  for (const auto& c : cases) {
    Site at("Size=1:" + std::to_string(c.data));
    const auto blocks = Module(at).Ask("30");
    EXPECT_EQ(blocks[0].size(), c.block) << c.data;
    EXPECT_EQ(EFTPParsDLen(reinterpret_cast<const unsigned char*>(blocks[0].data()) + 12, 2, nullptr),
              c.data);
    EXPECT_EQ(Codes(blocks), "31 #0");
  }
}

TEST(Faults, PrintAsManyLinesAsAsked) {
  Site at("PrintLines=3000");
  Module module(at);
  module.Block();
  module.Send("10", kSale);
  const auto blocks = module.Rest(); // far more than the pipe holds at once
  ASSERT_EQ(blocks.size(), 1u + 3000 + 2);
  EXPECT_EQ(blocks[2999][14], '0');
  EXPECT_EQ(blocks[3000][14], '1');
}

TEST(Faults, CanBeMeantForOneTerminal) {
  const std::string keys = "Duplicate=1\n[FAULTS-77]\nDuplicate=\nPrintLines=0\n";
  EXPECT_EQ(Sale(keys), "53 53 32 60 #0");
  EXPECT_EQ(Sale(keys, "0000000077"), "53 60 #0");
}

TEST(Faults, StandBesideTheConfiguration) {
  Site at;
  at.Put("shop/simulator.cfg", "[FAULTS]\nPrintLines=0\n");
  EXPECT_EQ(Codes(Module(at, "0000000001", at / "shop").Ask("10", kSale)), "53 60 #0");
  EXPECT_EQ(Codes(Module(at, "0000000001", at / "shop/till.cfg").Ask("10", kSale)), "53 60 #0");
  EXPECT_EQ(Codes(Module(at, "0000000001", at / "elsewhere").Ask("10", kSale)), "53 32 60 #0");
}

TEST(Module, EndsWhenTheTillHasGone) {
  Site at("Card=60000");
  for (bool asked : {false, true}) {
    Module module(at);
    module.Block();
    if (asked) module.Send("10", kSale);
    module.pipes.Close();
    EXPECT_EQ(WEXITSTATUS(module.Ended()), 1) << asked;
  }
}

// Another process of the till's may hold copies of its ends: the module must not rely on the end of the pipe.
TEST(Module, EndsWhenItsParentIsKilled) {
  prctl(PR_SET_CHILD_SUBREAPER, 1); // the orphan comes to this process, which can then wait for it
  Site at("Card=60000");
  UnnamedPipes pipes;
  int told[2]; // by the till: the module's process id
  ASSERT_TRUE(pipes.Open() && pipe2(told, O_CLOEXEC) == 0);
  const std::string program = at / "BIN/zat_mm", exported = pipes.Export();
  const pid_t till = fork();
  if (till == 0) {
    const pid_t started = fork();
    if (started == 0) execl(program.c_str(), program.c_str(), exported.c_str(), "-", "1", nullptr);
    if (write(told[1], &started, sizeof started) == sizeof started) pause();
    _exit(1);
  }
  pid_t module = -1;
  ASSERT_EQ(read(told[0], &module, sizeof module), ssize_t(sizeof module));
  close(told[0]);
  close(told[1]);
  char greeting[29];
  EXPECT_GT(pipes.ReadBlock(greeting, sizeof greeting, UnnamedPipes::eBTver0), 0);
  kill(till, SIGKILL);
  EXPECT_EQ(waitpid(till, nullptr, 0), till);
  int status = -1;
  EXPECT_EQ(waitpid(module, &status, 0), module);
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

TEST(Module, ExplainsItselfToAPerson) {
  EXPECT_EQ(ByHand("--version"), "zat_mm 1.0.0\n0");
  EXPECT_NE(ByHand("--help").find("--outcomes"), std::string::npos);
  EXPECT_NE(ByHand("--outcomes").find("n.05    60, #1         05    declined by the host\n"),
            std::string::npos);
  EXPECT_NE(ByHand("--faults").find("  Die=BLOCK[:SIGNAL] "), std::string::npos);
  for (const char* arguments : {"", "-", "9#", "500#501 - 1", "0#0 - 1 </dev/null"}) {
    const std::string text = ByHand(arguments);
    EXPECT_NE(text.find("--help"), std::string::npos) << arguments << ": " << text;
    EXPECT_EQ(text.back(), '2') << arguments;
  }
}

TEST(Module, SaysWhichKeyItDoesNotUnderstand) {
  Site at("Pause=3\nDie=now\nSize=2:99999999\nExitCode=256\n");
  const std::string text = ByHand("--faults --config " + (at / ""));
  for (const char* key : {"Pause=3:", "Die=now:", "Size=2:99999999:", "ExitCode=256:"})
    EXPECT_NE(text.find(key), std::string::npos) << key;
  EXPECT_EQ(Codes(Module(at).Ask("30")), "31 #0");
}

} // namespace
