#include "lab.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <fmt/core.h>

#include "scratch.h"

namespace fs = std::filesystem;

namespace trust {

namespace {

constexpr int kBenches = 2;
constexpr int kHangMs = 40000; // more than every limit that passes in real time, on a busy machine too

const std::string kPrograms = std::string(ZAT_INSTALLATION) + "/bench/";

void PutProgram(const Scratch& at, const std::string& name, const std::string& text) {
  fs::permissions(at.Put(name, "#!/bin/sh\n" + text), fs::perms(0755));
}

// What the update brings: a module and an updater, which are scripts around the first ones, a file and a link.
void PutUpdate(const Scratch& at) {
  const std::string parts = at / "parts/";
  PutProgram(at, "tree/BIN/zat_mm", "exec " + parts + "zat_mm \"$@\"\n");
  PutProgram(at, "tree/BIN/zat_mu", "[ $# = 0 ] && exit 0\nexec " + parts + "zat_mu \"$@\"\n");
  at.Put("tree/texts", "texts");
  fs::create_symlink("../texts", at / "tree/BIN/link");
  const std::string line = parts + "zat_mu --pack " + at / "tree" + " " + parts + "update";
  fs::create_hard_link(at / "tree/texts", at / "tree/again");
  const std::string packed = "tar -C " + at / "tree" + " -czf " + parts + "packed .";
  if (system((line + " && " + packed).c_str()) != 0) throw std::runtime_error("the update cannot be packed");
}

} // namespace

// An installation, its record and its till.
struct Lab::Bench {
  Scratch at, own; // the installation; what must stay whatever happens to its place
  faults::Plan* plan;
  pid_t till = -1;
  int orders = -1, answers = -1;
  std::string text; // of the till, not yet taken
  const std::string program;
  const procSpoil_t procSpoil;

  Bench(const char* name, procSpoil_t spoil) : program(name), procSpoil(spoil) {
    for (const char* dir : {"BIN", "parts"}) fs::create_directories(at / dir);
    fs::copy_file(std::string(ZAT_INSTALLATION) + "/BIN/libzat_ms.so", at / "BIN/libzat_ms.so");
    for (const char* part : {"zat_mm", "zat_mu"}) {
      fs::copy_file(kPrograms + "zat_fault" + (part + 3), at / (std::string("parts/") + part));
      fs::create_hard_link(at / (std::string("parts/") + part), at / (std::string("BIN/") + part));
    }
    at.Put("micromgl.cfg", "[ENV]\nLOGLEVEL=H\nLOGMEGSIZE=11\n"); // the log is moved at each start
    at.Put("eftpos.cfg", "[COMMON]\nDefaultOkTimeout=0\nDefaultNOkTimeout=0\n");
    PutUpdate(at);
    const int fd = open((own / "plan").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* page = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof(faults::Plan)) == 0)
      page = mmap(nullptr, sizeof(faults::Plan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd >= 0) close(fd);
    if (page == MAP_FAILED) throw std::runtime_error("no shared record");
    plan = static_cast<faults::Plan*>(page);
  }

  ~Bench() {
    Stop(SIGTERM);
    munmap(plan, sizeof(faults::Plan));
  }

  void Start(bool traced = false) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    text.clear();
    till = fork();
    if (till == 0) {
      setenv("ZAT_FAULTS", (own / "plan").c_str(), 1);
      setenv("ASAN_OPTIONS", "detect_leaks=0",
             1); // a leak is no descriptor and no lock, and here the loader's
      if (chdir((own / "").c_str()) != 0) _exit(127);
      dup2(in[0], 0);
      dup2(out[1], 1);
      const int complaints = open("complaints", O_WRONLY | O_CREAT | O_APPEND, 0666);
      dup2(complaints, 2);
      close(complaints);
      if (procSpoil) procSpoil(fs::path(at / "").parent_path());
      if (traced) ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      execl((kPrograms + program).c_str(), program.c_str(), fs::path(at / "").parent_path().c_str(), nullptr);
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    orders = in[1];
    answers = out[0];
  }

  // Ends the till and its module; its raw status.
  int Stop(int number) {
    if (till < 0) return 0;
    close(orders);
    close(answers);
    kill(till, number);
    int status = 0;
    waitpid(till, &status, 0);
    till = -1;
    plan->iRole = faults::eNobody;
    plan->fHangUp = true;
    if (const int module = plan->iModule.exchange(0); module > 0) kill(module, SIGKILL);
    return status;
  }

  // One line of the till; false when it died or hangs.
  bool Line(std::string& line, bool* hangs) {
    for (size_t end; (end = text.find('\n')) == std::string::npos;) {
      pollfd in{answers, POLLIN, 0};
      *hangs = poll(&in, 1, kHangMs) <= 0;
      char part[512];
      const ssize_t n = *hangs ? 0 : read(answers, part, sizeof part);
      if (n <= 0) return false;
      text.append(part, static_cast<size_t>(n));
    }
    line = text.substr(0, text.find('\n'));
    text.erase(0, line.size() + 1);
    return true;
  }

  static std::string Text(const Trial& trial) {
    return fmt::format("{} {} {} {} {} {} {} {} {}\n", trial.oScene, trial.iRole, trial.ulAt, trial.lAt,
                       trial.lSpan, trial.iError, trial.iWhat, trial.iCutHow, trial.iCut);
  }

  Result Make(const Trial& trial) {
    if (till < 0) Start();
    const std::string order = Text(trial);
    Result result;
    std::string line;
    bool hangs = false;
    const bool asked = write(orders, order.data(), order.size()) == static_cast<ssize_t>(order.size());
    if (asked && Line(line, &hangs)) {
      std::istringstream in(line);
      in >> result.lCalls >> result.oReason >> result.dWorstMs >> result.dNextMs >> std::ws;
      std::getline(in, result.oProblem);
      if (result.oProblem == "-") result.oProblem.clear();
    } else {
      const int status = Stop(hangs ? SIGKILL : SIGTERM);
      result.oProblem = hangs ? "the till hangs"
                        : WIFSIGNALED(status)
                            ? fmt::format("the till dies of SIG{}", sigabbrev_np(WTERMSIG(status)))
                            : fmt::format("the till ends with {}", WEXITSTATUS(status));
    }
    result.ulPlace = plan->ulHit;
    return result;
  }
};

Lab::Lab(const char* pccProgram, procSpoil_t procSpoil) {
  signal(SIGPIPE, SIG_IGN); // a till that has died takes no more orders
  for (int i = 0; i < kBenches; ++i) benches.push_back(std::make_unique<Bench>(pccProgram, procSpoil));
}

Lab::~Lab() = default;

std::vector<Result> Lab::Run(const std::vector<Trial>& trials) {
  std::vector<Result> results(trials.size());
  std::atomic<size_t> next = 0;
  std::vector<std::thread> workers;
  for (auto& bench : benches)
    workers.emplace_back([&, own = bench.get()] {
      for (size_t i; (i = next++) < trials.size();) results[i] = own->Make(trials[i]);
    });
  for (std::thread& worker : workers) worker.join();
  return results;
}

std::vector<uint64_t> Lab::Trace(const std::string& scene, int role, int what) {
  Bench& bench = *benches[0];
  const Result result = bench.Make({scene, role, 0, 0, 1, 0, what});
  if (!result.oProblem.empty()) throw std::runtime_error(scene + " without a fault: " + result.oProblem);
  std::vector<uint64_t> places{0};
  for (long i = 1; i <= result.lCalls && i < faults::Plan::kTrace; ++i)
    places.push_back(bench.plan->mulPlace[bench.plan->muTrace[i]]);
  return places;
}

namespace {

// Whether what this process does now is the object's or an updater's doing.
bool Counts(pid_t pid, const faults::Plan& plan) {
  std::error_code error;
  const std::string program = fs::read_symlink(fmt::format("/proc/{}/exe", pid), error).filename();
  return program == "zat_mu" || (program == "zat_fault_till" && plan.iRole == faults::eTill);
}

} // namespace

std::set<long> Lab::Observe(const std::vector<Trial>& trials) {
  Bench& bench = *benches[0];
  bench.Stop(SIGTERM);
  bench.Start(true);
  for (const Trial& trial : trials) {
    const std::string order = Bench::Text(trial);
    if (write(bench.orders, order.data(), order.size()) < 0) break;
  }
  close(bench.orders);
  std::set<long> calls;
  bool options = false;
  for (int status;;) {
    const pid_t pid = waitpid(-1, &status, __WALL);
    if (pid < 0 || (pid == bench.till && !WIFSTOPPED(status))) break;
    if (!WIFSTOPPED(status)) continue;
    if (!options && (options = true))
      ptrace(PTRACE_SETOPTIONS, pid, nullptr,
             PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                 PTRACE_O_EXITKILL);
    __ptrace_syscall_info info = {};
    const bool entry = WSTOPSIG(status) == (SIGTRAP | 0x80) &&
                       ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) > 0 &&
                       info.op == PTRACE_SYSCALL_INFO_ENTRY;
    if (entry && Counts(pid, *bench.plan)) calls.insert(static_cast<long>(info.entry.nr));
    const int number = WSTOPSIG(status);
    const bool pass = number != (SIGTRAP | 0x80) && number != SIGTRAP && number != SIGSTOP;
    ptrace(PTRACE_SYSCALL, pid, nullptr, pass ? number : 0);
  }
  close(bench.answers);
  bench.till = -1;
  return calls;
}

std::vector<uint64_t> Lab::Places() const {
  std::vector<uint64_t> all;
  for (const auto& bench : benches)
    for (const auto& place : bench->plan->mulPlace)
      if (place) all.push_back(place);
  return all;
}

std::string Lab::Root() const { return benches[0]->at / ""; }

std::string ErrorName(int error) {
  if (error == faults::kShort) return "a part";
  if (error == faults::kKill) return "killed";
  return strerrorname_np(error);
}

} // namespace trust
