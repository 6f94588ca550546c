#include "child.h"
#include "scratch.h"
#include "utilf.h"
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

volatile sig_atomic_t iReaped = 0;

void Reap(int) {
  while (waitpid(-1, nullptr, WNOHANG) > 0) iReaped = iReaped + 1;
}

// How a host may treat the end of its children, for the time of one scope.
typedef void (*Handler)(int);
struct Host {
  explicit Host(Handler handler) {
    struct sigaction action = {}; // no SA_RESTART: waits are interrupted
    action.sa_handler = handler;
    sigaction(SIGCHLD, &action, &before);
  }
  ~Host() { sigaction(SIGCHLD, &before, nullptr); }
  struct sigaction before;
};
const Handler kHosts[] = {SIG_DFL, SIG_IGN, &Reap};

struct Process : testing::Test {
  Scratch dir;
  std::string Script(const std::string& text, const std::string& as = "script") const {
    std::string name = dir.Put(as, "#!/bin/sh\n" + text + "\n");
    chmod(name.c_str(), 0755);
    return name;
  }
  static bool Ended(void* handle) {
    return Eventually([&] { return SysCallEnded(handle, nullptr); });
  }
};

constexpr int Exited(int code) { return code << 8; } // a raw wait status

Handler Now() {
  struct sigaction now;
  sigaction(SIGCHLD, nullptr, &now);
  return now.sa_handler;
}

} // namespace

TEST_F(Process, SysCallInEveryKindOfHost) {
  typedef std::tuple<const char*, int, int> Row;
  for (Handler handler : kHosts) {
    Host host(handler);
    for (const auto& [line, result, status] :
         {Row{"true", 0, 0}, Row{"exit 127", 127, Exited(127)}, Row{"exit 128", -128, Exited(128)},
          Row{"exit 255", -1, Exited(255)}, Row{"kill -9 $$", 0, SIGKILL}, Row{nullptr, -1, -1}}) {
      int raw = 77;
      EXPECT_EQ(SysCall(line, &raw), result) << line;
      EXPECT_EQ(raw, status) << line;
    }
    EXPECT_EQ(Now(), handler) << "put back";
  }
  EXPECT_TRUE(HasNoChildren());
}

// Two calls at once on two threads: neither may put back what the other has set for a while.
TEST_F(Process, SysCallOnTwoThreads) {
  Host host(SIG_IGN);
  const std::string hold = dir / "hold";
  ASSERT_EQ(mkfifo(hold.c_str(), 0666), 0);
  int first = 0;
  std::thread longer([&] { first = SysCall(("cat " + hold + "; exit 5").c_str()); });
  const int writer = open(hold.c_str(), O_WRONLY);
  std::thread shorter([&] { EXPECT_EQ(SysCall("exit 4"), 4); });
  shorter.join();
  close(writer);
  longer.join();
  EXPECT_EQ(first, 5);
  EXPECT_EQ(Now(), SIG_IGN);
}

TEST_F(Process, HostsOwnChildEndsMeanwhile) {
  for (Handler handler : {&Reap, SIG_IGN}) {
    Host host(handler);
    const pid_t own = fork();
    if (own == 0)
      for (;;) pause();
    iReaped = 0;
    const std::string line =
        "p=" + std::to_string(own) +
        "; kill -9 $p; while kill -0 $p && ! grep -q '^State:.Z' /proc/$p/status; do :; done 2>/dev/null";
    EXPECT_EQ(SysCall(line.c_str()), 0);
    EXPECT_TRUE(handler != &Reap || Eventually([] { return iReaped == 1; })) << "its handler was not called";
    EXPECT_TRUE(HasNoChildren()) << "a zombie is left";
  }
}

TEST_F(Process, SysExecMakesExecutable) {
  const std::string name = dir.Put("tool", "#!/bin/sh\nexit 6\n");
  int raw = 77;
  EXPECT_EQ(SysExec(name.c_str(), &raw), 6);
  EXPECT_EQ(raw, Exited(6));
  EXPECT_EQ(SysExec((dir / "none").c_str(), &raw), -1);
}

TEST_F(Process, EndsAreToldApart) {
  const long before = OpenDescriptors();
  typedef std::tuple<std::string, int, bool> Row;
  for (const auto& [line, code, lost] :
       {Row{Script("exit 3"), 3, false}, Row{Script("exit 137", "b"), 137, false},
        Row{Script("exit 254", "c"), 254, false}, Row{Script("exit 255", "d"), 255, true},
        Row{Script("kill -9 $$", "e"), 128 + SIGKILL, true}, Row{"/no/such/program with words", 255, true},
        Row{"/", 255, true}, Row{"", 255, true}, Row{"(null)", 255, true}}) {
    void* handle = SysCallBegin(line == "(null)" ? nullptr : line.c_str());
    ASSERT_TRUE(handle && Ended(handle)) << "one that cannot be executed gives a handle too";
    int status = 77;
    EXPECT_TRUE(SysCallEnded(handle, &status));
    EXPECT_EQ(status, code) << line;
    EXPECT_EQ(SysCallLost(handle), lost) << line;
    EXPECT_EQ(SysCallEnd(handle, false), 0);
  }
  EXPECT_EQ(SysCallEnd(nullptr), -1);
  EXPECT_FALSE(SysCallLost(nullptr) || SysCallEnded(nullptr, nullptr));
  EXPECT_TRUE(HasNoChildren());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Process, RunsUntilItEnds) {
  const std::string hold = dir / "hold";
  ASSERT_EQ(mkfifo(hold.c_str(), 0666), 0);
  for (Handler handler : kHosts) {
    Host host(handler);
    void* handle = SysCallBegin(("/bin/cat " + hold).c_str());
    ASSERT_TRUE(handle);
    const int writer = open(hold.c_str(), O_WRONLY);
    int status = 77;
    EXPECT_FALSE(SysCallEnded(handle, &status) || SysCallLost(handle));
    EXPECT_EQ(status, 77);
    close(writer);
    if (handler != SIG_DFL) {
      EXPECT_TRUE(Ended(handle) && SysCallEnded(handle, &status));
      EXPECT_EQ(status, -1) << "nobody can tell any more";
      EXPECT_TRUE(SysCallLost(handle));
    }
    EXPECT_EQ(SysCallEnd(handle), 0);
  }
  EXPECT_TRUE(HasNoChildren());
}

TEST_F(Process, ArgumentsAndSignalsOfTheProgram) {
  const std::string args = dir / "args", status = dir / "status";
  void* handle =
      SysCallBegin((Script("printf '<%s>' \"$@\" > " + args) + " a \"b c\" 'd' 1 2 3 4 5 6 7").c_str());
  EXPECT_EQ(SysCallEnd(handle), 0);
  EXPECT_EQ(dir.Get("args"), "<a><\"b c\"><'d'><1><2><3><4><5>") << "quotes stay, nine words in all";

  Host host(SIG_IGN);
  const Handler was = signal(SIGUSR1, &Reap);
  sigset_t usr2 = {}, before = {}, after = {};
  sigaddset(&usr2, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &usr2, nullptr);
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  handle = SysCallBegin(("/bin/cp /proc/self/status " + status).c_str());
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  pthread_sigmask(SIG_UNBLOCK, &usr2, nullptr);
  EXPECT_EQ(signal(SIGUSR1, was), &Reap) << "the host's own stays";
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
  EXPECT_EQ(SysCallEnd(handle), 0);
  for (const char* line :
       {"SigIgn:\t0000000000000000", "SigCgt:\t0000000000000000", "SigBlk:\t0000000000000000"})
    EXPECT_NE(dir.Get("status").find(line), std::string::npos) << line << dir.Get("status");
}

TEST(Sleep, SignalCutsOnlyAShortRest) {
  struct sigaction action = {}, before;
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, &before);
  auto slept = [](uint32_t ms) {
    const struct itimerval soon = {{0, 0}, {0, 50000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    auto from = std::chrono::steady_clock::now();
    YieldMS(ms);
    return (std::chrono::steady_clock::now() - from) / std::chrono::milliseconds(1);
  };
  EXPECT_LT(slept(990), 900) << "under a second was left";
  EXPECT_GE(slept(1300), 1300);
  sigaction(SIGALRM, &before, nullptr);
}

namespace {

// In a copy of this program that the next test starts: what it takes for its name, from another directory.
struct ModuleCopy : testing::Environment {
  void SetUp() override {
    const char* wanted = getenv("ZAT_TEST_MODULE");
    if (!wanted) return;
    tString path;
    const bool good = chdir("/") == 0 && tString(wanted) == GetModuleName();
    DetectLocDir("[MonoS]", path);
    _exit(good && path == tString(wanted).substr(0, fsplitp(wanted)) ? 0 : 1);
  }
};
const auto* const poCopy = testing::AddGlobalTestEnvironment(new ModuleCopy);

} // namespace

TEST(ModuleName, AbsoluteHoweverStarted) {
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe"),
                              folder = self.parent_path();
  const std::string name = self.filename(), up = "../" + folder.filename().string() + "/";
  for (const std::string& how :
       {self.string(), "./" + name, up + name, "./" + up + "./" + name, "PATH=.:$PATH " + name}) {
    const std::string line =
        "cd " + folder.string() + " && ZAT_TEST_MODULE=" + self.string() + " " + how + " > /dev/null";
    EXPECT_EQ(SysCall(line.c_str()), 0) << line;
  }
}
