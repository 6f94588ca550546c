// A till that meets faults: makes the trials that are written to it, one a line, and answers each with one line.
//
//   zat_fault_till ROOT
//   order:   trial.h
//   answer:  CALLS REASON WORST-MS NEXT-MS PROBLEM   "-" when there is none
//
// A trial loads the object, makes a session, a sale, ends both, and looks at what is left; then a till without faults must
// be able to pay at once.
#include "exchange.h"
#include "microus.h"
#include "trial.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <regex>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace faults;

namespace {

constexpr int kNextMs = 10000;      // until when the next till must have paid, on a busy machine too
constexpr int kInstalledMs = 20000; // and an installation that goes on in the background be over
constexpr double kLongestMs =
    70000; // of one call: the locks', the greeting's and the answer's limits together

struct Answer {
  long lCalls = 0;
  Sale oSale;
  double dNextMs = 0;
  std::string oProblem;
};

std::string root, library;
Plan* plan = nullptr;

// ---- Scenes ------------------------------------------------------------------------------------------------

void Put(const std::string& name, const std::string& text) {
  fs::create_directories(fs::path(root + name).parent_path());
  std::ofstream(root + name) << text;
}

// A part as it was at first. The installation may have put another file into its place.
void Renew(const std::string& part) {
  fs::remove(root + "BIN/" + part);
  fs::create_hard_link(root + "parts/" + part, root + "BIN/" + part);
}

void SceneSale() { fs::remove_all(root + "DOWNLOAD"); }

// An update with everything in it, one that is still being written, and the lock of a dead module.
void SceneUpdate() {
  for (const char* part : {"zat_mm", "zat_mu"}) Renew(part);
  fs::remove(root + "BIN/zat_mm.prev");
  fs::remove(root + "texts");
  fs::remove_all(root + "DOWNLOAD");
  fs::remove_all(root + "UPDATE_T");
  Put("DOWNLOAD/123/verslist.upd", "[LAST]\nINST=00000000.000\nHI=00000005.000\n");
  Put("DOWNLOAD/123/00000003.000.tmp", "half");
  fs::copy_file(root + "parts/update", root + "DOWNLOAD/123/00000001.000");
  Put("cid999.lck", "1");
}

// An installation whose updater has died in the middle: its lock is there and nobody holds it, and another update has been
// unpacked since.
void SceneMend() {
  SceneSale();
  Put(std::string("updtlock.lck/") + zat::kUpdaterMark, ".");
  Put("updtlock.lck/staged", root + "OLD");
  Put("OLD/texts", "old");
  Put("UPDATE_T/texts", "new");
}

// The place is prepared by others, and nobody else is waited for.
void ScenePlain() { plan->iRealSleepMs = 0; }

struct Scene {
  const char* pccName;
  void (*procSet)();
};
constexpr Scene kScenes[] = {
    {"plain", ScenePlain}, {"sale", SceneSale}, {"update", SceneUpdate}, {"mend", SceneMend}};

std::string Get(const std::string& name) {
  std::ifstream in(root + name);
  return {std::istreambuf_iterator<char>(in), {}};
}

// What of the update's files is neither as it was nor as the update brings it; empty when all are whole.
std::string Torn() {
  const std::string list = Get("DOWNLOAD/123/verslist.upd"), texts = Get("texts");
  // The sale behind the update has nothing left to install, and notes that.
  static const std::regex installed("INST *= *0000000[015]\\.000\\s"), highest("HI *= *00000005\\.000\\s");
  if (!std::regex_search(list, installed) || !std::regex_search(list, highest)) return "a torn version list";
  return texts.empty() || texts == "texts" ? "" : "a torn file of the update";
}

// ---- A trial -----------------------------------------------------------------------------------------------

// After a lost link: a module that was stopped goes on, and what it still has to say is collected; any other ends.
void AfterLoss(const Object& object, void* session, Sale& sale, int cut) {
  const int module = plan->iModule;
  if (cut == eStops && module > 0 && sale.mcReason[0] == 'X' && sale.mcReason[1] == 'L') {
    siginfo_t info;
    const int any = WSTOPPED | WEXITED | WNOWAIT;
    waitid(P_PID, static_cast<id_t>(module), &info, any); // so far it has only said that it will stop
    plan->fSilent = false;
    kill(module, SIGCONT);
    sale.iResult = ZAT_MS_MORE;
    Collect(object, session, sale);
  }
  plan->fHangUp = true;
}

// The part of the trial that the fault can hit.
void Sell(const Order& order, Sale& sale) {
  Object object;
  plan->iRole = order.iRole;
  if (object.Load(library.c_str())) {
    void* session = object.create(nullptr);
    if (session) {
      Pay(object, session, sale);
      AfterLoss(object, session, sale, order.iCutHow);
      object.destroy(session);
    }
  }
  if (order.iWhat == eMemory) Disarm(*plan); // the loader's own memory is not the object's
  object.Unload();
  Disarm(*plan);
}

// A till without faults pays; how long that takes it, or what is wrong with it.
double NextSale(std::string& problem) {
  const double begin = NowMs();
  Sale sale;
  do {
    ResetRecord(*plan);
    Object object;
    sale = Sale();
    if (object.Load(library.c_str())) {
      if (void* session = object.create(nullptr)) {
        Pay(object, session, sale);
        plan->fHangUp = true;
        object.destroy(session);
      }
    }
    object.Unload();
  } while (!sale.Paid() && sale.mcReason[1] == '8' && NowMs() - begin < kNextMs);
  if (!sale.Paid() && problem.empty()) problem = std::string("the next till gets ") + sale.mcReason;
  return NowMs() - begin;
}

// The updater by itself: tries itself out, or unpacks what other programs than itself have packed.
void RunUpdater(bool unpacks) {
  const std::string file = root + "parts/packed", dir = root + "unpacked";
  const pid_t child = fork();
  if (child == 0) {
    execl((root + "parts/zat_mu").c_str(), "zat_mu", unpacks ? file.c_str() : nullptr, dir.c_str(), nullptr);
    _exit(127);
  }
  waitpid(child, nullptr, 0);
  fs::remove_all(dir);
}

// The till is killed in a copy of this process; what it knew by then is kept.
void SellAndDie(const Order& order, Sale& sale) {
  static Sale* const shared = static_cast<Sale*>(
      mmap(nullptr, sizeof(Sale), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  *shared = Sale();
  const pid_t child = fork();
  if (child == 0) {
    Sell(order, *shared);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  Disarm(*plan);
  sale = *shared;
}

// What is wrong about the sale itself.
std::string WrongAbout(const Sale& sale, bool died) {
  if (sale.dWorstMs > kLongestMs) return "takes too long";
  if (died) return sale.Paid() && plan->iApprovals != 1 ? "a wrong approved" : "";
  const char* wrong = Judge(sale, *plan);
  return wrong ? wrong : "";
}

Answer TrySale(const Order& order, const std::set<int>& before) {
  Answer answer;
  const bool dies = order.iError == kKill && order.iRole == eTill;
  if (dies)
    SellAndDie(order, answer.oSale);
  else
    Sell(order, answer.oSale);
  answer.lCalls = plan->lCalls;
  answer.oProblem = WrongAbout(answer.oSale, dies);
  if (!dies && answer.oProblem.empty()) answer.oProblem = LeftBehind(root, before);
  if (order.oScene == "plain") return answer; // what is wrong with the place is still wrong
  answer.dNextMs = NextSale(answer.oProblem);
  if (answer.oProblem.empty() && !AwaitInstalled(root, kInstalledMs))
    answer.oProblem = "an installation does not end";
  if (answer.oProblem.empty() && order.oScene == "update") answer.oProblem = Torn();
  return answer;
}

Answer Try(const Order& order) {
  Answer answer;
  const std::set<int> before = OpenDescriptors();
  Arm(*plan, order);
  if (order.oScene == "check" || order.oScene == "unpack") {
    plan->iRole = order.iRole;
    RunUpdater(order.oScene == "unpack");
    Disarm(*plan);
    answer.lCalls = plan->lCalls;
  } else {
    for (const Scene& scene : kScenes)
      if (order.oScene == scene.pccName) scene.procSet();
    answer = TrySale(order, before);
  }
  const std::string left = LeftBehind(root, before);
  if (answer.oProblem.empty()) answer.oProblem = left;
  return answer;
}

} // namespace

int main(int argc, char** argv) {
  plan = Attach();
  if (!plan || argc != 2) return 2;
  root = std::string(argv[1]) + "/";
  library = root + "BIN/libzat_ms.so";
  Order order;
  while (std::cin >> order) {
    const Answer answer = Try(order);
    std::cout << answer.lCalls << ' ' << answer.oSale.mcReason << ' ' << answer.oSale.dWorstMs << ' '
              << answer.dNextMs << ' ' << (answer.oProblem.empty() ? "-" : answer.oProblem) << std::endl;
  }
  return 0;
}
