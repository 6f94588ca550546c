// A session with a terminal that is reached directly, over a serial line or TCP, without the library: the request goes
// out as one framed command that the terminal acknowledges, and every message of the answer comes back the same way.
//
//   LinkSession session;
//   tString why;
//   if (session.Open("tcp:127.0.0.1:9001", why)) Outcome outcome = session.Run(request, listener);
#pragma once
#include "EFTPLink.h"
#include "road.h"

namespace zat::till {

class LinkSession : public client::Road {
public:
  // Opens the link that the text names ("tcp:HOST:PORT", "serial:DEVICE[,...]"). False with the reason in why.
  bool Open(const tString& place, tString& why);

  // Runs a request to its result. Waits 30.3 s for each message of the answer, as the library does; a request for a break
  // goes out once, between two messages. The outcome is unknown once the request may have reached the terminal and the
  // end of the exchange has not come.
  Outcome Run(const client::Request& request, client::Listener& listener) override;
  tString Place() const override { return oPlace; }

private:
  static tBool TakeMessage(PortSEtx_tag* port, void* pads, tLen length, tSEtxCmdId* end);
  bool Send(tEFTPWorkId id, SqueezeT& parameters);
  bool Await(client::Listener& listener);
  Outcome Follow(client::Exchange& exchange, client::Listener& listener);

  tString oPlace;
  Link oLink;
  PortSEtx_tag oPort{};
  SqueezeT oParameters; // of the request; the terminal id serves a break request too
  tString oMessage;     // the message received last, without its frame
  bool fBreakAsked = false;
};

// A till at the end of a link; options.library and config are not looked at. Null with the reason in why.
std::unique_ptr<Till> TillByLink(const TillOptions& options, const tString& place, tString& why);

} // namespace zat::till
