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
  int id = order.oRequest.oId;
  oReport.oCommand = order.oCommand;
  oReport.oWorkId = {static_cast<char>(id >> 8), static_cast<char>(id)};
  oReport.oTid = order.oRequest.oTid;
  oReport.ulKopecks = order.ulKopecks;
  oStatus = Describe(Status::Connecting, "");
}

int Desk::Work() {
  Result result = Carry();
  Guard guard(oLock);
  Tell(result);
  return ExitCode(result.oOutcome);
}

Result Desk::Carry() { return oOrder.oLink.empty() ? CarryByLibrary() : CarryByLink(); }

Result Desk::CarryByLink() {
  LinkSession session;
  tString why;
  if (!session.Open(oOrder.oLink, why)) {
    oReport.oMessage = Say(Text::LinkClosed, oOrder.oLink, why);
    return Exchange(oOrder.oRequest.oId).Stop(Why::NoLink, Outcome::Refused);
  }
  Watch watch([this](int count) { Press(count); }, [this] { Tick(); });
  return session.Run(oOrder.oRequest, MakeEvents());
}

Result Desk::CarryByLibrary() {
  LoadFault fault;
  tString detail;
  std::unique_ptr<Library> library = Library::Load(oOrder.oLib, fault, detail);
  if (!library) return CannotLoad(fault, detail);
  Session session(*library, oOrder.oConfig);
  if (!session.IsOpen()) oReport.oMessage = Say(Text::LibNoSession);
  Watch watch([this](int count) { Press(count); }, [this] { Tick(); });
  return session.Run(oOrder.oRequest, MakeEvents());
}

Result Desk::CannotLoad(LoadFault fault, const tString& detail) {
  Text text = fault == LoadFault::Missing   ? Text::LibMissing
              : fault == LoadFault::Foreign ? Text::LibForeign
                                            : Text::LibUnreadable;
  oReport.oMessage = Say(text, oOrder.oLib, detail);
  return Exchange(oOrder.oRequest.oId).Stop(Why::NoLibrary, Outcome::Refused);
}

Events Desk::MakeEvents() {
  Events events;
  events.oLine = [this](const tString& line, bool last) { Line(line, last); };
  events.oStatus = [this](Status status, const tString& text) { Show(status, text); };
  events.oOther = [this](const tString& workId, const tString& data) { Other(workId, data); };
  events.oBreak = [this] { return fBreakWanted && !fBreakTaken.exchange(true); };
  return events;
}

void Desk::Line(const tString& line, bool last) {
  Guard guard(oLock);
  bool newSlip = !oReport.oLines.empty() && oReport.oLines.back().fLast;
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

void Desk::Tell(const Result& result) {
  fFinished = true;
  oReport.oResult = result;
  oReport.llMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - oBegin).count();
  const char* gap = oReport.oLines.empty() ? "" : "\n";
  oScreen.Live("");
  oScreen.Print(oOrder.fJson ? ForMachines(oReport) + "\n" : gap + ForPeople(oReport));
}

// Ends the process beside a thread that is inside the library: nothing is torn down, and the terminal module
// goes on. Without the lock (orderly is false) the report is in the other thread's hands: only the warning is
// left.
void Desk::Leave(bool orderly) {
  if (orderly && fFinished) _exit(ExitCode(oReport.oResult.oOutcome));
  oScreen.Remark(Say(Text::LeftAtOnce));
  if (orderly) Tell(Exchange(oOrder.oRequest.oId).Stop(Why::Left, Outcome::Unknown));
  _exit(ExitCode(Outcome::Unknown));
}

} // namespace zat::till
