// One session with the payment library, driven through its three functions and nothing else. Knows nothing of
// a command line: receipt lines and status come as events, and a result at the end.
//
//   Session session(library, "");
//   Result result = session.Run({eEFTPwidSale, "1", data}, events);
#pragma once
#include "events.h"
#include "library.h"

namespace zat::till {

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
  static int Idle(void* self);

  Library& oLibrary;
  void* pvHandle;
  bool fExchange = false; // the library may have an exchange open
  bool fBreakAsked = false;
  const Events* poEvents = nullptr; // during Run
};

} // namespace zat::till
