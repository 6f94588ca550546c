// The pipes that a till hands to its module on the command line.
#pragma once
#include "deadline.h"
#include "upipes.h"
#include "wire.h"
#include <sys/types.h>

namespace zat {

class tPipeWire : public tWire {
public:
  tPipeWire();

  // Takes the till's pipes from their export text. False unless it names two open pipes.
  bool Open(const char* pccExport);

  bool Greets() const override { return true; }
  bool Send(const tString& oMsg) override;
  tString Frame(const tString& oMsg) const override;
  bool SendRaw(const tString& oBytes) override;
  tGot Recv(tString& oMsg, int iMs) override;

private:
  bool Orphaned() const;
  bool WaitRoom(const tDeadline& oEnd) const;

  UnnamedPipes oUP;
  pid_t iTill;
};

} // namespace zat
