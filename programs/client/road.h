// A way to the terminal: through the library (session.h), or another that a program of this project has.
#pragma once
#include "listener.h"

namespace zat::client {

class Road {
public:
  virtual ~Road() = default;

  // Runs a request to its outcome, which has neither receipt nor exception: the listener has them. Takes as long as the
  // terminal takes.
  virtual Outcome Run(const Request& request, Listener& listener) = 0;

  // Goes on with the request whose answer was not awaited to its end. Why::NoExchange when there is none, or when this
  // road cannot do it.
  virtual Outcome Resume(Listener& listener);

  // Begins anew; waits until the terminal has ended what it is at. False when it cannot.
  virtual bool Reopen() { return true; }

  // The text that names the place of a link. The way through a library has none: it is called by the library's path.
  virtual tString Place() const { return tString(); }
};

} // namespace zat::client
