// The road between the terminal and one till: pipes or a framed link. Whole messages go over it, and, when a fault
// asks for it, bytes that are no message.
#pragma once
#include "ztypes.h"

namespace zat {

enum tGot : int {
  eGmessage, // a message came
  eGnothing, // the time is over
  eGgone,    // the till is gone, or has hung up: nothing will come any more
};

class tWire {
public:
  virtual ~tWire() = default;

  // Whether the till expects a greeting before it sends its request.
  virtual bool Greets() const = 0;

  // One whole message. False when it could not be handed over: the till is gone or does not take it.
  virtual bool Send(const tString& oMsg) = 0;

  // The bytes that Send would put on the wire.
  virtual tString Frame(const tString& oMsg) const = 0;

  // Bytes as they are, without waiting for any answer to them. False as for Send.
  virtual bool SendRaw(const tString& oBytes) = 0;

  // Waits at most iMs milliseconds (0: looks once) for a message of the till.
  virtual tGot Recv(tString& oMsg, int iMs) = 0;
};

} // namespace zat
