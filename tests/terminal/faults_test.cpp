// Every fault of simulator.cfg does what its key says; the module starts and ends as its callers expect.
#include "module.h"
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>

namespace {

using std::chrono::milliseconds;
typedef std::chrono::steady_clock Clock;

const std::string kSale = "000000030000";

// The output of the program started by hand, and its exit code at the end.
std::string ByHand(const std::string& arguments) {
  FILE* out = popen((ZAT_INSTALLATION "/BIN/zat_mm " + arguments + " 2>&1").c_str(), "r");
  std::string text;
  for (int c; (c = fgetc(out)) != EOF;) text += static_cast<char>(c);
  return text + std::to_string(WEXITSTATUS(pclose(out)));
}

// What a sale looks like under each, and how the module ends.
TEST(Faults, DoWhatTheirKeySays) {
  const struct {
    const char *keys, *codes;
    int status = 0, atLeastMs = 0;
  } cases[] = {
      {"", "53 32 60 #0"},
      {"Pause=0:150", "53 32 60 #0", 0, 150},
      {"Pause=3:150", "53 32 60 #0", 0, 150},
      {"Silent=2:300", "53 nothing", 1 << 8, 300},
      {"Cut=2:10", "53 nothing", 1 << 8},
      {"Die=2", "53 nothing", SIGKILL},
      {"Die=2:15", "53 nothing", SIGTERM},
      {"Die=2:0\nExitCode=7", "53 nothing", 7 << 8},
      {"ExitCode=9", "53 32 60 #0", 9 << 8},
      {"Duplicate=1", "53 53 32 60 #0"},
      {"Noise=1:50", "53 32 60 #0"}, // a reader skips what is no block
      {"PrintLines=0", "53 60 #0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.keys);
    Site at(c.keys);
    const auto begin = Clock::now();
    Module module(at);
    EXPECT_EQ(module.Block(), "zat_mm 1.0.0");
    module.Send("10", kSale);
    EXPECT_EQ(Codes(module.Rest()), c.codes);
    EXPECT_EQ(module.Ended(), c.status);
    EXPECT_GE(Clock::now() - begin, milliseconds(c.atLeastMs));
  }
}

TEST(Faults, DisturbTheBytesOfABlock) {
  const std::pair<const char*, std::string> cases[] = {{"Cut=1:10", {"\x17\x1B\0003100000", 10}},
                                                       {"Noise=1:5", "abcde\x17\x1B"}};
  for (const auto& [keys, want] : cases) {
    Site at(keys);
    Module module(at);
    char buffer[4096];
    module.Block();
    module.Send("30");
    module.Ended();
    const int count = module.pipes.Read(buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, buffer + count).substr(0, want.size()), want);
    EXPECT_EQ(count == 10, want.size() == 10) << "cut";
  }
}

TEST(Faults, KeepTheGreetingBackAndHideTheTerminalId) {
  Site at("NoGreeting=1\nUnknownId=1");
  Module module(at);
  module.Send("30");
  const auto blocks = module.Rest();
  EXPECT_EQ(Codes(blocks), "31 #0");
  EXPECT_EQ(blocks[0].substr(2, 10), "??????????");
}

TEST(Faults, GiveABlockASize) {
  const std::pair<size_t, size_t> cases[] = {{0, 14},    {254, 268},   {255, 14},
                                             {256, 270}, {2034, 2048}, {4000, 4014}};
  for (auto [data, size] : cases) {
    Site at("Size=1:" + std::to_string(data));
    const auto blocks = Module(at).Ask("30");
    EXPECT_EQ(Codes(blocks), "31 #0");
    EXPECT_EQ(blocks[0].size(), size) << data;
    EXPECT_EQ(EFTPParsDLen(reinterpret_cast<const unsigned char*>(blocks[0].data()) + 12, 2, nullptr), data);
  }
}

TEST(Faults, PrintAsManyLinesAsAsked) {
  Site at("PrintLines=3000");
  const auto blocks = Module(at).Ask("10", kSale); // far more than the pipe holds at once
  ASSERT_EQ(blocks.size(), 1u + 3000 + 2);
  EXPECT_EQ(blocks[2999][14], '0');
  EXPECT_EQ(blocks[3000][14], '1');
}

TEST(Faults, AreTakenForTheTerminalAndFromBesideTheConfiguration) {
  Site at("Duplicate=1\n[FAULTS-77]\nDuplicate=\nPrintLines=0\n");
  at.Put("shop/simulator.cfg", "[FAULTS]\nPrintLines=0\n");
  const struct {
    const char* terminal;
    std::string config, codes;
  } cases[] = {{"0000001234", "-", "53 53 32 60 #0"},
               {"0000000077", "-", "53 60 #0"},
               {"0000001234", at / "shop", "53 60 #0"},
               {"0000001234", at / "shop/till.cfg", "53 60 #0"},
               {"0000001234", at / "elsewhere", "53 53 32 60 #0"}};
  for (const auto& c : cases)
    EXPECT_EQ(Codes(Module(at, c.terminal, c.config).Ask("10", kSale)), c.codes) << c.terminal << c.config;
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
  Site at("Pause=3\nDie=now\nSize=2:99999999\nExitCode=256\n"); // what it does not understand
  const std::string faults = "--faults --config " + (at / "");
  const std::pair<std::string, const char*> cases[] = {
      {"--version", "zat_mm 1.0.0\n0"},
      {"--help", "--outcomes"},
      {"--outcomes", "n.05    60, #1         05    declined by the host\n"},
      {"--faults", "  Die=BLOCK[:SIGNAL] "},
      {faults, "Pause=3:"},
      {faults, "Die=now:"},
      {faults, "Size=2:99999999:"},
      {faults, "ExitCode=256:"},
  };
  for (const auto& [arguments, says] : cases)
    EXPECT_NE(ByHand(arguments).find(says), std::string::npos) << arguments << ' ' << says;
  for (const char* arguments : {"", "-", "9#", "500#501 - 1", "0#0 - 1 </dev/null"}) {
    const std::string text = ByHand(arguments);
    EXPECT_TRUE(text.find("--help") != text.npos && text.back() == '2') << arguments << ": " << text;
  }
  EXPECT_EQ(Codes(Module(at).Ask("30")), "31 #0");
}

} // namespace
