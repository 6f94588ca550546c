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
};

} // namespace zat::client
