// One session with the payment library, driven through its three functions and nothing else.
//
//   Session session(Library::Load(path, fault, detail), "");
//   Outcome outcome = session.Run({eEFTPwidSale, "1", data}, listener);
#pragma once
#include "library.h"
#include "road.h"

namespace zat::client {

class Session : public Road {
public:
  // Opens a session in the library, which is not null. config is handed on to the terminal module.
  Session(std::unique_ptr<Library> library, const tString& config);

  // Ends the session. Where an exchange was left open nothing is ended and the library stays in memory:
  // ending it would wait for a module that may never answer.
  ~Session() override;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // The library made a session.
  bool IsOpen() const { return pvHandle != nullptr; }

  Outcome Run(const Request& request, Listener& listener) override;
  Outcome Resume(Listener& listener) override;
  bool Reopen() override;

private:
  struct Answer;

  bool HasModule() const;
  void Open(const Request& request, Answer& answer);
  void Call(tString* message, Answer& answer);
  void Collect(Answer& answer);
  Outcome Finish(const Answer& answer, bool opening);
  bool BreakWanted();
  static int Idle(void* self);

  void Create();

  std::unique_ptr<Library> poLibrary;
  tString oConfig;
  void* pvHandle = nullptr;
  Exchange oExchange{eEFTPwidNone}; // the last one
  bool fExchange = false;           // the library may have it open
  bool fBreakAsked = false;
  Listener* poListener = nullptr; // during Run and Resume
};

} // namespace zat::client
