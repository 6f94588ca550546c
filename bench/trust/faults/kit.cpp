// The parts of the library that no sale and no update come by: the link to a terminal, the record log, whole trees, and
// the ways that only a host in trouble goes. Each step is a scene of its own.
//
//   zat_fault_kit ROOT    orders: trial.h; answers as zat_fault_till gives them
#include "trial.h"

#include "EFTPLink.h"
#include "MiscFunc.h"
#include "SLogger.h"
#include "fsysmpsc.h"
#include "microus.h"
#include "simplecfg.h"
#include "ssqueeze.h"
#include "uni_misc.h"
#include "upipes.h"
#include "util.h"
#include "utilf.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace faults;

namespace {

std::string root; // everything is done below it

std::string At(const char* name) { return root + "kit/" + name; }

void Put(const char* name, const char* text = "text") {
  fs::create_directories(fs::path(At(name)).parent_path());
  std::ofstream(At(name)) << text;
}

// ---- Files -------------------------------------------------------------------------------------------------

void RecordLog() {
  const std::string log = At("records");
  logAppend(log.c_str(), "one", 3, 7, flatcrc16, true);
  logAppend(log.c_str(), "two", 3, 7, flatcrc16, true);
  logCheck(log.c_str(), 7, flatcrc16);
  char record[16];
  logRead(log.c_str(), record, sizeof record, 1, 7, flatcrc16, true);
  truefilecrc16(log.c_str(), 2);
  truefilecrc16(log.c_str(), 1);
}

void Rewind() {
  if (FILE* file = fopen(At("rewound").c_str(), "w+e")) {
    rewind_my(file);
    fclose(file);
  }
}

void Copies() {
  fcopy(At("file").c_str(), At("copy").c_str());
  fcopy(At("file").c_str(), At("file").c_str());
  fcopy(At("file").c_str(), At("none/copy").c_str());
  flink(At("file").c_str(), At("second").c_str());
}

void Trees() {
  tFSysMpScExtDT times{};
  FSMSDirExtDT(At("tree").c_str(), &times);
  tFSysMpScData list{};
  const std::string tree = At("tree"), moved = At("moved"), link = At("link");
  list.oInit.pccPathIn = tree.c_str();
  FSysMpSc(&list, FSysMpScList, true, 0);
  FSMSDirRemove(tree.c_str(), moved.c_str());
  FSMSDirRemove(link.c_str(), At("link2").c_str());
  FSMSDirDelete(At("link2").c_str(), nullptr);
}

// On a file system that does not tell types with names.
void Untyped() {
  Attach()->fNoTypes = true;
  tFSysMpScExtDT times{};
  FSMSDirExtDT(At("tree").c_str(), &times);
  FSMSDirDelete(At("tree").c_str(), nullptr);
}

void Settings() {
  SimpleCfg cfg;
  cfg.LoadFile(At("settings").c_str());
  cfg.SetValue("LAST", "INST", "1");
  cfg.SaveFile(At("settings").c_str());
  CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>> plain; // what the library does by itself
  plain.LoadFile(At("settings").c_str());
  plain.SaveFile(At("settings").c_str());
}

void Logs() {
  AppendToFLog(At("exceptions").c_str(), "a line");
  std::error_code error;
  const std::string name = At("dir/a.log");
  SLogger log(name.c_str(), true);
  log.Write(150, "a line");
  fs::rename(name, name + ".old", error); // as another till does that finds it too long
  log.Write(150, "a line");
}

// ---- The link ------------------------------------------------------------------------------------------------

void Talk(zat::Link& link) {
  PortSEtx_tag port{};
  if (!EFTPWorkInit(&port, &link, nullptr, &EFTPLinkSetUp, true)) return;
  port.oPortCmds.Send(&port.oPortCmds, "\x06", 1, ePCInone);
  unsigned char got[8];
  if (link.WaitIn(20)) port.oPortCmds.Recv(&port.oPortCmds, got, 1, ePCInone, 0, nullptr);
}

void SerialLine() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (master < 0) return;
  if (grantpt(master) == 0 && unlockpt(master) == 0) {
    zat::tLinkPlace place;
    place.oKind = zat::tLinkPlace::eSerial;
    place.oDevice = ptsname(master);
    tString why;
    zat::Link link;
    if (link.Open(place, 100, why) && ::write(master, "\x06", 1) == 1) Talk(link);
    link.Close();
    const int adopted = ::open(place.oDevice.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (adopted >= 0 && !link.Adopt(adopted, why)) ::close(adopted);
  }
  ::close(master);
}

void Connection() {
  zat::LinkListener listener;
  zat::tLinkPlace place;
  tString why;
  if (!zat::LinkPlaceFromText("tcp:127.0.0.1:0", place, why) || !listener.Open(place, why)) return;
  place.oPort = std::to_string(listener.Port());
  zat::Link here, there;
  if (here.Open(place, 100, why) && listener.Accept(there, 100)) {
    Talk(there);
    Talk(here);
  }
  listener.Close();
  there.Open(place, 100, why); // nobody listens any more
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
  zat::Link adopted;
  if (!adopted.Adopt(ends[0], why)) ::close(ends[0]);
  ::close(ends[1]);
}

// ---- Locks -------------------------------------------------------------------------------------------------

void Locks() {
  const std::string lock = At("a.lck");
  for (int inherited : {0, 1})
    if (tryflock(lock.c_str(), inherited) == 0) {
      holdsflock(lock.c_str());
      isflock(lock.c_str());
      remflock(lock.c_str());
    }
}

// A lock whose file somebody has removed, and one that a copy of the process gives up.
void LostLocks() {
  const std::string lock = At("a.lck");
  putflock(lock.c_str());
  unlink(lock.c_str());
  remflock(lock.c_str());
  if (putflock(lock.c_str()) != 0) return;
  const pid_t child = fork();
  if (child == 0) _exit(remflock(lock.c_str()));
  while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) {}
  remflock(lock.c_str());
  remflock(At("none.lck").c_str()); // with the next lock that is not there, forgotten ones are given up
}

// The version list, where it must not be had at once and changes owner.
void Versions() {
  FListStorage list;
  if (list.Open(At("DOWNLOAD/"), "7")) list.SaveLI("00000002.000");
}

// A host that has closed its standard descriptors: what is opened must not come to stand there.
void Closed() {
  const int kept = fcntl(0, F_DUPFD_CLOEXEC, 100);
  close(0);
  putflock(At("low.lck").c_str());
  remflock(At("low.lck").c_str());
  UnnamedPipes pipes;
  pipes.Open();
  pipes.Close();
  AppendToFLog(At("exceptions").c_str(), "a line");
  Connection();
  dup2(kept, 0);
  close(kept);
}

// ---- Processes and pipes ------------------------------------------------------------------------------------

void Processes() {
  SysCall("exit 3");
  SysExec(At("program").c_str());
  SysCallFor("exec sleep 60", 20);
  if (void* handle = SysCallBegin("/bin/true")) {
    SysCallEnded(handle, nullptr);
    SysCallEnd(handle);
  }
  GetTId();
  tDateTame now;
  now.Fill(true);
  SSqueeze::ss_make(0);
}

void OnChild(int) {}

// A host that waits for its children in a handler, and one that ignores them: neither may lose, nor keep, a child of its
// own that ended meanwhile.
void HostsOwnChild() {
  for (void (*how)(int) : {OnChild, SIG_IGN}) {
    struct sigaction handler = {}, before;
    handler.sa_handler = how;
    sigaction(SIGCHLD, &handler, &before);
    const pid_t own = fork();
    if (own == 0) _exit(0);
    SysCallFor("true", 5000);
    while (own > 0 && waitpid(own, nullptr, 0) < 0 && errno == EINTR) {}
    sigaction(SIGCHLD, &before, nullptr);
  }
}

// The other side of a till's pipes, and one whose reader is gone.
void ModulesPipes() {
  UnnamedPipes till, module;
  if (!till.Open()) return;
  Attach()->fJump = Attach()->fSilent = true; // what does not come in full is not waited for
  module.Import(till.Export());
  module.WriteBlock("block", 5, UnnamedPipes::eBTver0);
  char block[16];
  till.ReadBlock(block, sizeof block, UnnamedPipes::eBTv0cb);
  if (module.WriteBlock("ab", 2, UnnamedPipes::eBTnone) == 2) till.ReadBlock(block, 2, UnnamedPipes::eBTnone);
  close(till.miHLoc[0]);
  till.miHLoc[0] = -1;
  sigset_t pipe, before;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  for (int how : {SIG_UNBLOCK, SIG_BLOCK}) { // the second time the host itself holds the signal back
    pthread_sigmask(how, &pipe, &before);
    module.WriteBlock("block", 5, UnnamedPipes::eBTver0);
    const timespec now{};
    while (sigtimedwait(&pipe, nullptr, &now) > 0) {
    } // one that is left was held back, and is this host's to drop
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
}

// ---- A trial -----------------------------------------------------------------------------------------------

struct Step {
  const char* pccName;
  void (*procDo)();
};
constexpr Step kSteps[] = {
    {"records", RecordLog},      {"rewind", Rewind},      {"copies", Copies},     {"trees", Trees},
    {"untyped", Untyped},        {"settings", Settings},  {"logs", Logs},         {"locks", Locks},
    {"lost", LostLocks},         {"versions", Versions},  {"closed", Closed},     {"processes", Processes},
    {"children", HostsOwnChild}, {"pipes", ModulesPipes}, {"serial", SerialLine}, {"connection", Connection}};

void SetUp() {
  fs::remove_all(root + "kit");
  Put("file");
  Put("tree/below/file");
  Put("settings", "[A]\nb=c\n");
  Put("dir/a.log", "");
  Put("program", "#!/bin/sh\nexit 0\n");
  Put("DOWNLOAD/7/verslist.upd", "[LAST]\nINST=00000001.000\n");
  fs::create_directory_symlink("tree", At("link"));
  fs::create_symlink("file", At("tree/below/link"));
}

std::string Try(Plan& plan, const Order& order) {
  SetUp();
  const std::set<int> before = OpenDescriptors();
  Arm(plan, order);
  plan.fJump = false;
  plan.iRole = order.iRole;
  for (const Step& step : kSteps)
    if (order.oScene == step.pccName) step.procDo();
  Disarm(plan);
  return LeftBehind(root, before);
}

} // namespace

int main(int argc, char** argv) {
  Plan* plan = Attach();
  if (!plan || argc != 2) return 2;
  root = std::string(argv[1]) + "/";
  signal(SIGPIPE, SIG_DFL); // as in a host that does nothing about it
  const int answers = fcntl(1, F_DUPFD_CLOEXEC, 10);
  dup2(2, 1); // what a step prints is no answer
  Order order;
  while (std::cin >> order) {
    const std::string problem = Try(*plan, order);
    const std::string answer =
        std::to_string(plan->lCalls) + " - 0 0 " + (problem.empty() ? "-" : problem) + "\n";
    if (::write(answers, answer.data(), answer.size()) < 0) return 1;
  }
  return 0;
}
