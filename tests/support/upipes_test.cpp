#include "child.h"
#include "upipes.h"
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <thread>
#include <vector>

using UP = UnnamedPipes;
using namespace std::string_literals;

namespace {

std::string Frame(const std::string& data, size_t told) {
  return "\x17"s + static_cast<char>(told & 0xFF) + static_cast<char>(told >> 8) + data + "\x17";
}
std::string Frame(const std::string& data) { return Frame(data, data.size()); }

// A channel whose other side is played by the test, byte by byte.
struct Channel : UP {
  Channel() { EXPECT_TRUE(Open()); }
  void Play(const std::string& bytes) const {
    ASSERT_EQ(write(miHExt[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  std::string Get(size_t room, tBType type = eBTv0cb) {
    std::string out(room, '?');
    out.resize(static_cast<size_t>(ReadBlock(out.data(), static_cast<int>(room), type)));
    return out;
  }
  int Left() const {
    int count = -1;
    ioctl(miHLoc[0], FIONREAD, &count);
    return count;
  }
};

// The module's side of a test: this program, started again with an export text, echoes.
const bool fEcho = [] {
  UP pipes;
  if (!pipes.Import(getenv("ZAT_TEST_PIPES"))) return false;
  std::string block(2048, ' ');
  for (int size; (size = pipes.ReadBlock(block.data(), 2048, UP::eBTver0)) > 0;)
    pipes.WriteBlock(block.data(), size, UP::eBTver0);
  _exit(0);
}();

double Seconds(std::chrono::steady_clock::time_point from) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

} // namespace

TEST(UPipesBlock, EverySizeArrivesAndNothingBeyondIsRead) {
  for (size_t size : {0, 1, 3, 254, 255, 256, 2047, 2048, 4092, 60000}) {
    for (auto type : {UP::eBTver0, UP::eBTv0cb}) {
      Channel here;
      UP there;
      ASSERT_TRUE(there.Import(here.Export()));
      const std::string data(size, '\x17'); // the worst content: nothing but frame bytes
      ASSERT_EQ(there.WriteBlock(data.data(), static_cast<int>(size), type), static_cast<int>(size));
      ASSERT_EQ(there.Write("next", 4), 4);
      EXPECT_EQ(here.Get(size + 1, type), data);
      EXPECT_EQ(here.Left(), 4) << size;
    }
  }
}

TEST(UPipesBlock, HostileStreams) {
  const std::string good = Frame("good");
  // reads: what one eBTv0cb read after the other gives
  typedef std::tuple<const char*, std::string, size_t, std::vector<std::string>> Row;
  for (const auto& [name, stream, room, reads] :
       {Row{"noise costs one call a byte", "ab" + good, 9, {"", "", "good", ""}},
        Row{"exactly the buffer", Frame("1234") + good, 4, {"1234", "good"}},
        Row{"frame bytes in a tail beyond it", Frame("1234\x17\x17z") + good, 4, {"1234", "good"}},
        Row{"longer than the buffer, the rest to come", Frame("123456").substr(0, 8), 4, {"1234", "", ""}},
        Row{"65535 announced", Frame(std::string(50000, 'x'), 65535), 100, {std::string(100, 'x'), "", ""}},
        Row{"no room at all", Frame("12") + good, 0, {"", ""}},
        Row{"no end byte in its place", Frame("1234", 2) + good, 9, {"1234", "good"}},
        Row{"no end byte and no room", Frame("123456", 4) + good, 4, {"1234", "good"}},
        Row{"empty blocks", Frame("") + Frame("") + good, 9, {"", "", "good"}}}) {
    Channel here;
    here.Play(stream);
    for (const auto& want : reads) EXPECT_EQ(here.Get(room), want) << name;
  }
}

TEST(UPipesBlock, TheRestOfALongBlockMayComeLaterOrBeTakenRaw) {
  Channel here;
  here.Play(Frame("123456").substr(0, 8));
  EXPECT_EQ(here.Get(4) + here.Get(4), "1234");
  here.Play("6\x17" + Frame("next"));
  EXPECT_EQ(here.Get(4, UP::eBTver0), "next");
  here.Play(Frame("123456") + Frame("last"));
  EXPECT_EQ(here.Get(4), "1234");
  EXPECT_EQ(here.Get(2, UP::eBTnone), "56"); // a caller that wants the tail may fetch it
  EXPECT_EQ(here.Get(4), "last");
}

TEST(UPipesBlock, ASlowWriterIsWaitedFor) {
  Channel here;
  std::thread writer([&] {
    for (char c : "noise" + Frame("slow\x17one")) here.Play(std::string(1, c));
  });
  EXPECT_EQ(here.Get(100, UP::eBTver0), "slow\x17one");
  writer.join();
}

TEST(UPipesBlock, ASilentBlockIsGivenUpAndTheNextOneIsRead) {
  Channel renewed, resumed; // both wait at the same time
  for (auto* here : {&renewed, &resumed}) here->Play(Frame("abcd").substr(0, 5));
  const auto start = std::chrono::steady_clock::now();
  std::thread other([&] { EXPECT_EQ(resumed.Get(9), ""); });
  EXPECT_EQ(renewed.Get(9), "");
  other.join();
  EXPECT_GT(Seconds(start), 29.9);
  EXPECT_LT(Seconds(start), 35);
  renewed.Play(Frame("next"));
  EXPECT_EQ(renewed.Get(9), "next");
  resumed.Play("cd\x17" + Frame("next"));
  EXPECT_EQ(resumed.Get(9), "next");
}

TEST(UPipesBlock, AFullPipeRefusesABlockWholeAndUnframedBytesWaitForRoom) {
  Channel here;
  UP there;
  there.Import(here.Export());
  const std::string data(1000, 'd');
  size_t sent = 0;
  while (there.WriteBlock(data.data(), 1000, UP::eBTver0) == 1000) ++sent;
  ASSERT_GT(sent, 10u);
  for (size_t i = 0; i < sent; ++i) ASSERT_EQ(here.Get(2048), data);
  EXPECT_EQ(here.Left(), 0); // no part of the refused block

  const std::string much(300000, 'm');
  std::thread writer([&] { EXPECT_EQ(there.WriteBlock(much.data(), 300000, UP::eBTnone), 300000); });
  EXPECT_EQ(here.Get(300000, UP::eBTcanb), much);
  writer.join();
}

TEST(UPipes, NothingToReadReturnsAtOnce) {
  Channel here;
  const auto start = std::chrono::steady_clock::now();
  char c;
  EXPECT_EQ(here.Get(9), "");
  EXPECT_EQ(here.Read(&c, 1), 0);
  EXPECT_FALSE(here.WaitIn(0) || here.WaitIn(-1));
  here.Play("x");
  EXPECT_TRUE(here.WaitIn(60000));
  UP closed;
  EXPECT_EQ(closed.ReadBlock(&c, 1, UP::eBTver0) + closed.WriteBlock(&c, 1, UP::eBTnone), 0);
  EXPECT_LT(Seconds(start), 5);
}

TEST(UPipes, AClosedChannelMovesNothing) {
  UnnamedPipes open, closed, half;
  ASSERT_TRUE(open.Open());
  half.miHLoc[0] = dup(open.miHLoc[0]);
  EXPECT_FALSE(closed.IsReady() || half.IsReady());
  char byte = 'x';
  for (const UnnamedPipes::tBType type :
       {UnnamedPipes::eBTnone, UnnamedPipes::eBTver0, UnnamedPipes::eBTv0cb}) {
    EXPECT_EQ(closed.ReadBlock(&byte, 1, type) + closed.WriteBlock(&byte, 1, type) +
                  half.WriteBlock(&byte, 1, type),
              0);
    EXPECT_EQ(open.ReadBlock(&byte, -1, type) + open.WriteBlock(&byte, -1, type), 0);
  }
  EXPECT_EQ(closed.Read(&byte, 1) + closed.Write(&byte, 1), 0);
  EXPECT_EQ(open.Read(&byte, 0) + open.Write(&byte, 0) + open.Read(&byte, -1) + open.Write(&byte, -1), 0);
  EXPECT_FALSE(closed.WaitIn(-1));
  EXPECT_STREQ(half.Export(), "-");
}

TEST(UPipes, ExportAndImport) {
  UP pipes;
  EXPECT_STREQ(pipes.Export(), "-");
  EXPECT_FALSE(pipes.Import(nullptr));
  ASSERT_TRUE(pipes.Open());
  EXPECT_EQ(pipes.Export(), std::to_string(pipes.miHExt[1]) + "#" + std::to_string(pipes.miHExt[0]));
  EXPECT_FALSE(pipes.Import("-"));
  EXPECT_TRUE(pipes.IsReady()); // left alone

  UP other;
  EXPECT_TRUE(other.Import("2000000009#2000000006") && other.fImported && other.miHLoc[1] == 2000000009 &&
              other.miHLoc[0] == 2000000006);
  for (const char* bad : {"", "x", "#", "9", "9#", "9#x", "9#-6", "99999999999#6", "9#99999999999"}) {
    EXPECT_FALSE(other.Import(bad)) << bad;
    EXPECT_TRUE(other.miHLoc[0] == -1 && other.miHLoc[1] == -1) << bad;
  }
}

TEST(UPipes, NoDescriptorIsAStandardOne) {
  Child child([] {
    for (int fd : {0, 1, 2}) close(fd);
    UP pipes;
    bool good = pipes.Open() && pipes.IsReady();
    for (int fd : {pipes.miHLoc[0], pipes.miHLoc[1], pipes.miHExt[0], pipes.miHExt[1]}) good = good && fd > 2;
    for (int fd : {0, 1, 2}) good = good && fcntl(fd, F_GETFD) == -1; // nothing is left behind either
    return good ? 0 : 1;
  });
  EXPECT_EQ(child.End(), 0);
}

TEST(UPipes, APeerThatIsGoneGivesZeroAndNoSignal) {
  Channel here;
  UP there;
  ASSERT_TRUE(there.Import(here.Export()));
  for (int& fd : there.miHLoc) fd = dup(fd);
  here.Close();

  sigset_t pipe, before, now;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  const auto write_all = [&] {
    return there.WriteBlock("x", 1, UP::eBTver0) + there.WriteBlock("x", 1, UP::eBTnone) +
           there.Write("x", 1);
  };
  const auto pending = [&] { return sigpending(&now) == 0 && sigismember(&now, SIGPIPE); };
  EXPECT_EQ(write_all(), 0); // the default of SIGPIPE would end this process
  pthread_sigmask(SIG_BLOCK, &pipe, &now);
  EXPECT_FALSE(sigismember(&now, SIGPIPE)); // what was held back for the write is let go
  EXPECT_EQ(write_all(), 0);
  EXPECT_FALSE(pending());
  raise(SIGPIPE); // one that the host holds back stays with it
  EXPECT_EQ(write_all(), 0);
  EXPECT_TRUE(pending());
  const timespec none{};
  sigtimedwait(&pipe, nullptr, &none);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);

  char c;
  EXPECT_EQ(there.ReadBlock(&c, 1, UP::eBTver0) + there.ReadBlock(&c, 1, UP::eBTnone), 0);
  EXPECT_TRUE(there.WaitIn(60000));
  const int kept[2] = {there.miHLoc[0], there.miHLoc[1]};
  there.Close();
  for (int fd : kept) EXPECT_EQ(close(fd), 0); // imported: still open
}

TEST(UPipes, AStartedProgramAnswersThroughItsTwoEnds) {
  Channel here;
  for (int i : {0, 1}) {
    EXPECT_TRUE(fcntl(here.miHLoc[i], F_GETFD) & FD_CLOEXEC);
    EXPECT_FALSE(fcntl(here.miHExt[i], F_GETFD) & FD_CLOEXEC);
  }
  setenv("ZAT_TEST_PIPES", here.Export(), 1);
  Child child([] { return execl("/proc/self/exe", "echo", nullptr); });
  unsetenv("ZAT_TEST_PIPES");
  for (const std::string& data : {std::string(254, 'x'), std::string(2048, '\x17')}) {
    here.WriteBlock(data.data(), static_cast<int>(data.size()), UP::eBTver0);
    EXPECT_EQ(here.Get(2048, UP::eBTver0), data);
  }
  here.Close(); // the end of the pipe ends the program
  EXPECT_EQ(child.End(), 0);
}

// A host's timers and children interrupt the waits: they neither end them early nor prolong them.
TEST(UPipesWait, IsNotMovedBySignals) {
  Channel here;
  struct sigaction heard = {}, before = {};
  heard.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &heard, &before), 0);
  const itimerval often = {{0, 3000}, {0, 3000}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  const auto from = std::chrono::steady_clock::now();
  EXPECT_FALSE(here.WaitIn(60));
  EXPECT_GE(Seconds(from), 0.06);
  std::thread writer([&here] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    here.Play(Frame("late"));
  });
  EXPECT_EQ(here.Get(10, UP::eBTver0), "late");
  setitimer(ITIMER_REAL, &never, nullptr);
  writer.join();
  sigaction(SIGALRM, &before, nullptr);
}

// A channel of descriptors that are no pipes, and one that is short of descriptors, refuse and leave nothing open.
TEST(UPipesWait, DescriptorsThatCannotServe) {
  const int dir = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::string text = std::to_string(dir) + "#" + std::to_string(dir);
  UP odd;
  ASSERT_TRUE(odd.Import(text.c_str()));
  char byte;
  EXPECT_EQ(odd.ReadBlock(&byte, 1, UP::eBTver0) + odd.ReadBlock(&byte, 1, UP::eBTnone) + odd.Read(&byte, 1),
            0);
  EXPECT_EQ(odd.WriteBlock("x", 1, UP::eBTnone) + odd.WriteBlock("x", 1, UP::eBTver0) + odd.Write("x", 1), 0);
  odd.HangUp();
  EXPECT_FALSE(odd.IsReady());
  close(dir);

  rlimit before = {};
  getrlimit(RLIMIT_NOFILE, &before);
  const int first = dup(0); // the lowest number that is free
  close(first);
  for (int room = 0; room < 8; ++room) {
    const rlimit most = {static_cast<rlim_t>(first + room), before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &most);
    UP pipes;
    const bool made = pipes.Open(), told = pipes.Export()[0] != '-';
    pipes.Close();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(made == (room >= 4) && told == made) << room;
    const int again = dup(0);
    close(again);
    EXPECT_EQ(again, first) << "left open";
  }
}
