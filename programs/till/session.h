// One session with the payment library, driven through its three functions and nothing else. Knows nothing of
// a command line: receipt lines and status come as events, and a result at the end.
//
//   Session session(library, "");
//   Result result = session.Run({eEFTPwidSale, "1", data}, events);
#pragma once
#include <functional>

#include "exchange.h"
#include "library.h"

namespace zat::till {

// How the terminal module is getting on. The enumerators from Ok on are blocks of the answer.
enum class Status {
  Connecting, // the request is on its way, nothing has come back yet
  Pause,      // the pause after the previous request is being waited out
  Ok,         // "50"
  NotLoggedIn,
  Pin,
  Online,
  NoReference,
  Hold,
  Confirm, // "5M", with the terminal's text
  Info,    // "36", with its text
  Break,   // "34": broken off
  NoBreak, // "34": it is too late for that, the operation goes on
};

// What the owner of a session wants to hear. Every member may be empty. They are called on the thread that
// runs the request and must not throw.
struct Events {
  // A line of the receipt, UTF-8; last is set on the last line of a slip (a receipt may have several slips).
  std::function<void(const tString& line, bool last)> oLine;

  // A change of status, with the terminal's text (UTF-8) where it sends one.
  std::function<void(Status status, const tString& text)> oStatus;

  // Any other block of the answer: its two characters and its data, UTF-8. Card data in it are masked.
  std::function<void(const tString& workId, const tString& data)> oOther;

  // Asked about once a millisecond while the library waits, if its settings let it: true asks the terminal to
  // break off. The answer true is acted upon once in an exchange.
  std::function<bool()> oBreak;
};

struct Request {
  tEFTPWorkId oId = eEFTPwidNone;
  tString oTid;         // up to 10 characters; the wire has zeros on its left
  tString oData;        // as the wire has them: at most kMaxData bytes, and not 255
  int iPauseLimit = 60; // seconds that a pause between two requests is waited for; 0: refuse at once
};

constexpr size_t kMaxData = ZAT_MS_BUFFER - ZAT_MS_HEADER;
constexpr size_t kImpossibleData = 255; // a header with this length stands for a message without data

class Session {
public:
  // Opens a session in the library, which must outlive it. config is handed on to the terminal module.
  Session(Library& library, const tString& config);

  // Ends the session. Where an exchange was left open nothing is ended and the library stays in memory:
  // ending it would wait for a module that may never answer.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // The library made a session.
  bool IsOpen() const { return pvHandle != nullptr; }

  // Runs a request to its result. Takes as long as the terminal takes.
  Result Run(const Request& request, const Events& events);

private:
  struct Answer;

  bool HasModule() const;
  void Open(const Request& request, Answer& answer);
  void Call(tString* message, Answer& answer);
  void Collect(Exchange& exchange, Answer& answer);
  Result Finish(Exchange& exchange, const Answer& answer, bool opening) const;
  bool BreakWanted();
  void Tell(Block& block) const;
  void Tell(Status status, const tString& text = tString()) const;
  static int Idle(void* self);

  Library& oLibrary;
  void* pvHandle;
  bool fExchange = false; // the library may have an exchange open
  bool fBreakAsked = false;
  const Events* poEvents = nullptr; // during Run
};

} // namespace zat::till
