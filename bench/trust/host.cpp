#include "host.h"

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <mutex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include "hoststate.h"
#include "shop.h"

namespace trust {

namespace {

constexpr rlim_t kDescriptors = 256;
constexpr int kFirstId = 1001;

HostSeen* poSeen; // for the signal handlers
pid_t iHost;

void CountSignal(int) { ++(getpid() == iHost ? poSeen->signals : poSeen->strayHandlers); }

// A host that reaps everything, modules included.
void ReapAll(int number) {
  const int code = errno;
  CountSignal(number);
  while (waitpid(-1, nullptr, WNOHANG) > 0) {}
  errno = code;
}

void Handle(int number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler; // without SA_RESTART: every wait of the object may be interrupted
  sigaddset(&action.sa_mask, SIGUSR2);
  sigaction(number, &action, nullptr);
}

// How the host has made itself at home before the guest comes.
void Settle(const HostPlan& plan, const Scratch& home) {
  for (int fd : {0, 1, 2}) close(fd);
  for (int number : {SIGUSR1, SIGALRM, SIGPIPE, SIGTERM, SIGINT, SIGHUP}) Handle(number, CountSignal);
  if (plan.oChildSignal == ChildSignal::handled) Handle(SIGCHLD, ReapAll);
  if (plan.oChildSignal == ChildSignal::ignored) signal(SIGCHLD, SIG_IGN);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  setlocale(LC_ALL, MakeForeignLocale(home / "").c_str());
  umask(027);
  const rlimit few = {kDescriptors, kDescriptors};
  setrlimit(RLIMIT_NOFILE, &few);
}

// --- What the other threads do ----------------------------------------------------------------------------------

bool MakeProcess(unsigned round) {
  const pid_t child = fork();
  if (child == 0) {
    if (round % 4 == 0) execl("/bin/true", "true", nullptr);
    _exit(0);
  }
  pid_t got;
  do got = waitpid(child, nullptr, 0);
  while (got < 0 && errno == EINTR);
  return child > 0 &&
         (got == child || errno == ECHILD); // whom the kernel or the handler has reaped is gone as well
}

bool UseLocales(unsigned round) {
  const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  const locale_t before = uselocale(plain);
  char text[32];
  snprintf(text, sizeof text, "%.2f", round + 0.25);
  const bool dot = strchr(text, '.') != nullptr;
  uselocale(before);
  freelocale(plain);
  snprintf(text, sizeof text, "%.2f", round + 0.25);
  return dot && strchr(text, *localeconv()->decimal_point) && getenv("ZAT_L_LEVEL");
}

bool UseMemory(unsigned round) {
  std::vector<std::unique_ptr<char[]>> pieces;
  for (unsigned i = 1; i < 40; ++i) {
    pieces.push_back(std::make_unique<char[]>((round * 37 + i * 101) % 3000 + 1));
    pieces.back()[0] = static_cast<char>(i);
  }
  return true;
}

bool UseSignalsAndFiles(unsigned round) {
  kill(iHost, round % 2 ? SIGUSR1 : SIGALRM);
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  return fd < 0 ? errno == EMFILE : close(fd) == 0;
}

constexpr bool (*kWork[])(unsigned) = {MakeProcess, UseLocales, UseMemory, UseSignalsAndFiles};

// --- The host -----------------------------------------------------------------------------------------------------

class Host {
public:
  Host(const HostPlan& oPlan, HostSeen& oSeen, const Shop& oShop)
      : plan(oPlan), seen(oSeen), shop(oShop), object(shop.Library()) {
    for (int i = 0; i < kTills; ++i) sessions.push_back(object.create(nullptr));
  }
  ~Host() {
    for (void* session : sessions) object.destroy(session);
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // So many exchanges and for so long, by the tills in turn, while the other threads work.
  void Run(int exchanges, double seconds) {
    const int64_t end = NowNs() + static_cast<int64_t>(seconds * kSecondNs);
    std::atomic<bool> over = false;
    std::vector<std::thread> others, tills;
    for (int i = 0; i < kOthers; ++i)
      others.emplace_back([&, i] { Work(kWork[i % std::size(kWork)], over); });
    for (int i = 0; i < kTills; ++i) tills.emplace_back([&, i] { Sales(i, exchanges, end); });
    for (std::thread& till : tills) till.join();
    over = true;
    for (std::thread& other : others) other.join();
  }

  // An exchange with every descriptor in use but so many, and one when they are free again.
  void RunFull(int left) {
    std::vector<int> taken;
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) taken.push_back(fd);
    for (int i = 0; i < left && !taken.empty(); ++i, taken.pop_back()) close(taken.back());
    const Sale sale = Sell(object, sessions[0], Id(0), &turn);
    for (int fd : taken) close(fd);
    ++(sale == Sale::paid ? seen.fullPaid : sale == Sale::refused ? seen.fullRefused : seen.fullUnclear);
    ++seen.begun;
    ++(Sell(object, sessions[0], Id(0), &turn) == Sale::paid ? seen.paid : seen.unclear);
  }

private:
  static std::string Id(int till) { return fmt::format("{:010}", kFirstId + till); }

  void Work(bool (*work)(unsigned), const std::atomic<bool>& over) {
    for (unsigned round = 0; !over; ++round) {
      if (!work(round)) ++seen.otherFaults;
      ++seen.otherWork;
      usleep(2000);
    }
  }

  void Sales(int till, int exchanges, int64_t end) {
    for (int i = till; i < exchanges || NowNs() < end; i += kTills) {
      ++seen.begun;
      const HostState before = ThreadState();
      const Sale sale = Sell(object, sessions[static_cast<size_t>(till)], Id(till), &turn);
      ++(sale == Sale::paid ? seen.paid : sale == Sale::refused ? seen.refused : seen.unclear);
      if (ThreadState() != before) ++seen.maskChanges;
      if (i / kTills % 50 == 49) shop.NewDay(Id(till));
    }
  }

  // What belongs to a thread.
  static HostState ThreadState() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    int cancel = -1;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancel);
    pthread_setcancelstate(cancel, nullptr);
    HostState state = {{"cancel", std::to_string(cancel)},
                       {"locale", fmt::format("{}", static_cast<void*>(uselocale(nullptr)))}};
    for (int number = 1; number < NSIG; ++number) state["mask"] += sigismember(&mask, number) ? '1' : '0';
    return state;
  }

  const HostPlan& plan;
  HostSeen& seen;
  const Shop& shop;
  LoadedObject object;
  std::vector<void*> sessions;
  std::mutex turn; // the calls of one process come one at a time
};

struct Memory {
  long heap, resident;
};

Memory MemoryNow() {
  const struct mallinfo2 heap = mallinfo2();
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return {static_cast<long>(heap.uordblks + heap.hblkhd), resident * sysconf(_SC_PAGESIZE)};
}

} // namespace

std::string MakeForeignLocale(const std::string& directory) {
  std::ofstream(directory + "source") << "comment_char %\nescape_char /\nLC_NUMERIC\ndecimal_point \",\"\n"
                                         "thousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n";
  const std::string line = fmt::format("localedef -c --no-archive -i {0}source -f ANSI_X3.4-1968 {0}xx_XX "
                                       ">{0}out 2>&1 </dev/null",
                                       directory);
  if (std::system(line.c_str()) < 0) return "C.UTF-8"; // its complaints of missing parts do not matter
  setenv("LOCPATH", directory.c_str(), 1);
  return setlocale(LC_NUMERIC, "xx_XX") ? "xx_XX" : "C.UTF-8";
}

int LiveAsHost(const HostPlan& plan, HostSeen& seen) {
  poSeen = &seen;
  iHost = getpid();
  Shop shop;
  Scratch home;
  Settle(plan, home);
  const HostState before = TakeState();
  {
    Host host(plan, seen, shop);
    host.Run(plan.iExchanges / 5, 0);
    const Memory warm = MemoryNow();
    host.Run(plan.iExchanges - plan.iExchanges / 5, plan.dSeconds);
    const Memory end = MemoryNow();
    seen.heapGrowth = end.heap - warm.heap;
    seen.residentGrowth = end.resident - warm.resident;
    for (int left = 0; left < plan.iFullTables; ++left) host.RunFull(left);
  }
  const std::string text = Differences(before, TakeState());
  strncpy(seen.mcDifferences, text.c_str(), sizeof seen.mcDifferences - 1);
  return 0;
}

} // namespace trust
