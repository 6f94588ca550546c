#include "desk.h"

#include <unistd.h>

#include "linksession.h"
#include "texts.h"
#include "watch.h"

namespace zat::till {
namespace {

// A break that the library could take has been taken by then: it asks about once a millisecond.
constexpr auto kBreakPatience = std::chrono::milliseconds(1500);

// How long Ctrl-C waits for the other thread, which may be printing to a reader that stands still.
constexpr int kLeaveTries = 30;
constexpr auto kLeavePause = std::chrono::milliseconds(10);

typedef std::lock_guard<std::mutex> Guard;

std::unique_lock<std::mutex> LockInTime(std::mutex& mutex) {
  std::unique_lock lock(mutex, std::try_to_lock);
  for (int i = 0; i < kLeaveTries && !lock; ++i) {
    std::this_thread::sleep_for(kLeavePause);
    lock.try_lock();
  }
  return lock;
}

} // namespace

Desk::Desk(const Order& order, Screen& screen) : oOrder(order), oScreen(screen) {
  oReport.oCommand = order.oCommand;
  oReport.oWorkId = order.oWorkId;
  oReport.oTid = order.oTill.terminal;
  oReport.oAmount = order.oAmount;
  oReport.fRecorded = !order.oTill.journal.empty();
  oStatus = Describe(Status::Connecting, "");
}

int Desk::Work() {
  LookForUnknown();
  Outcome outcome = Carry();
  Guard guard(oLock);
  Tell(outcome);
  return ExitCode(outcome.verdict);
}

// What a till before this one has left behind. It does not keep anybody from paying.
void Desk::LookForUnknown() {
  client::JournalState state;
  if (!oOrder.oTill.journal.empty() && client::Journal(oOrder.oTill.journal).Read(state))
    oReport.oUnknown = UnknownOf(state.oEntries);
  const tString warning = Warning(oReport.oUnknown);
  if (!warning.empty() && !oOrder.fJson) oScreen.Remark(warning);
}

Outcome Desk::Carry() {
  if (!oOrder.oLink.empty()) return CarryByLink();
  Till till(oOrder.oTill);
  oReport.oMessage = Explain(till.loadFault(), oOrder.oTill.library, till.loadDetail());
  return Ask(till);
}

Outcome Desk::CarryByLink() {
  tString why;
  if (const std::unique_ptr<Till> till = TillByLink(oOrder.oTill, oOrder.oLink, why)) return Ask(*till);
  oReport.oWhy = "noLink";
  oReport.oMessage = Say(Text::LinkClosed, oOrder.oLink, why);
  Outcome outcome;
  outcome.verdict = Verdict::Refused;
  return outcome;
}

Outcome Desk::Ask(Till& till) {
  Watch watch([this](int count) { Press(count); }, [this] { Tick(); });
  return oOrder.procAsk(till, oOrder, MakeCallbacks());
}

Callbacks Desk::MakeCallbacks() {
  Callbacks callbacks;
  callbacks.line = [this](const tString& line, bool last) { Line(line, last); };
  callbacks.status = [this](Status status, const tString& text) { Show(status, text); };
  callbacks.block = [this](const tString& workId, const tString& data) { Other(workId, data); };
  callbacks.idle = [this] { return fBreakWanted && !fBreakTaken.exchange(true); };
  return callbacks;
}

void Desk::Line(const tString& line, bool last) {
  Guard guard(oLock);
  bool newSlip = !oReport.oLines.empty() && oReport.oLines.back().last;
  oReport.oLines.push_back({line, last});
  if (!oOrder.fJson) oScreen.Print((newSlip ? "\n" : "") + line + "\n");
}

void Desk::Show(Status status, const tString& text) {
  Guard guard(oLock);
  if (oReport.oStatuses.empty() || oReport.oStatuses.back() != status) oReport.oStatuses.push_back(status);
  oStatus = Describe(status, text);
}

// Developers who send a request of their own want to see what it brings.
void Desk::Other(const tString& workId, const tString& data) {
  Guard guard(oLock);
  oReport.oOthers.push_back({workId, data});
  if (oOrder.fRaw && !oOrder.fJson) oScreen.Print(workId + " " + data + "\n");
}

void Desk::Press(int count) {
  if (count == 1) fBreakWanted = true;
  std::unique_lock lock = LockInTime(oLock);
  if (count > 1) Leave(lock.owns_lock());
  if (!lock || fFinished) return;
  oReport.fBreak = true;
  oPressed = Clock::now();
  oScreen.Remark(Say(Text::BreakAsked));
}

// Never waits for the lock: the thread that ticks must stay free for Ctrl-C.
void Desk::Tick() {
  std::unique_lock lock(oLock, std::try_to_lock);
  if (!lock || fFinished) return;
  if (oReport.fBreak && !fBreakTaken && !fHinted && Clock::now() - oPressed > kBreakPatience) {
    oScreen.Remark(Say(Text::BreakNoEffect));
    fHinted = true;
  }
  auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - oBegin).count();
  oScreen.Live(Say(Text::Seconds, seconds) + "  " + oStatus);
}

void Desk::Tell(const Outcome& outcome) {
  fFinished = true;
  oReport.oOutcome = outcome;
  oReport.llMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - oBegin).count();
  const char* gap = oReport.oLines.empty() ? "" : "\n";
  oScreen.Live("");
  oScreen.Print(oOrder.fJson ? ForMachines(oReport) + "\n" : gap + ForPeople(oReport));
  if (!outcome.journal.empty() && !oOrder.fJson) oScreen.Remark(Say(Text::JournalTrouble, outcome.journal));
}

// Ends the process beside a thread that is inside the library: nothing is torn down, and the terminal module
// goes on. Without the lock (orderly is false) the report is in the other thread's hands: only the warning is
// left.
void Desk::Leave(bool orderly) {
  if (orderly && fFinished) _exit(ExitCode(oReport.oOutcome.verdict));
  oScreen.Remark(Say(Text::LeftAtOnce));
  if (orderly) {
    oReport.oWhy = "left";
    oReport.oMessage = Say(Text::WhyLeft);
    Tell(Outcome());
  }
  _exit(ExitCode(Verdict::Unknown));
}

} // namespace zat::till
