// A framed link: every message in a frame with a check byte, acknowledged by the other side.
#pragma once
#include "EFTPLink.h"
#include "faults.h"
#include "wire.h"

namespace zat {

class tLinkWire : public tWire {
public:
  // Takes an open link; the link and the faults must outlive the wire.
  tLinkWire(Link& oLink, const tFaults& oFaults);

  // Sets the port up. False: nothing can be sent or received.
  bool Open();

  bool Greets() const override { return false; }
  bool Send(const tString& oMsg) override;
  tString Frame(const tString& oMsg) const override;
  bool SendRaw(const tString& oBytes) override;
  tGot Recv(tString& oMsg, int iMs) override;

private:
  // The port's slots; pvExtra of the port is the wire.
  static tLen MakeFrame(PortSEtx_tag* poPort, void*);
  static tBool Check(PortSEtx_tag* poPort, unsigned char* pb, tLen* plLen, tLen lMax, tBool fSet, tLen lOfs);
  static tBool TakeMessage(PortSEtx_tag* poPort, void* pvMsg, tLen lLen);

  bool FrameBegins();

  Link& oLink;
  PortSEtx_tag oPort{};
  const tString* poOut = nullptr; // the message being sent
  long lNaks, lBadChecks;         // faults still to come
};

} // namespace zat
