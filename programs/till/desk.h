// The cash desk at work: one order from loading the library to the exit code, with everything that the user
// sees and hears meanwhile.
#pragma once
#include <atomic>
#include <chrono>
#include <mutex>

#include "command.h"
#include "screen.h"

namespace zat::till {

class Desk {
public:
  Desk(const Order& order, Screen& screen);

  // Carries the order out and returns the exit code.
  int Work();

private:
  Outcome Carry();
  Outcome CarryByLink();
  void LookForUnknown();
  Outcome Ask(Till& till);
  Callbacks MakeCallbacks();
  void Line(const tString& line, bool last);
  void Show(Status status, const tString& text);
  void Other(const tString& workId, const tString& data);
  void Press(int count);
  void Tick();
  void Tell(const Outcome& outcome);
  [[noreturn]] void Leave(bool orderly);

  typedef std::chrono::steady_clock Clock;

  const Order& oOrder;
  Screen& oScreen;
  Clock::time_point oBegin = Clock::now();

  // The thread that runs the request and the one that watches both print and report, under this lock.
  std::mutex oLock;
  Report oReport;
  tString oStatus;            // words of the live line
  Clock::time_point oPressed; // when a break was asked for
  bool fHinted = false;       // that the break has no effect was said
  bool fFinished = false;     // the outcome is known and told

  std::atomic<bool> fBreakWanted = false, fBreakTaken = false;
};

} // namespace zat::till
