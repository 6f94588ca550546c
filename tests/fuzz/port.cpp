// The framed port on a line that carries anything, at any moment.
#include <cstring>

#include "EFTPWork.h"
#include "PortSElc.h"
#include "fuzz.h"
#include "quiet.h"
#include "scripted.h"

namespace {

// Whether a call kept to its promises: the buffers of the port, and the time a port may take for one command.
void KeptInside(const PortSEtx_tag& port, const ScriptedLink& link, tLen length, tTicks since) {
  FUZZ_HOLDS(length <= port.lCmdMax);
  for (unsigned char byte : port.mbCmdSave)
    FUZZ_HOLDS(byte == 0);                             // it lies behind the buffer of what is received
  FUZZ_HOLDS(link.oNow - since <= 20 * 15000 + 70000); // its attempts, and a tick for each byte of the trial
}

void Receive(PortSEtx_tag& port, ScriptedLink& link, unsigned how) {
  const tTicks since = link.oNow;
  const auto end = static_cast<tSEtxCmdId>(how % 3 == 0 ? ePCISEetx : how % 3 == 1 ? ePCISEso : ePCISEeot);
  KeptInside(port, link, port.RecvDat(&port, end), since);
}

void ReceiveByLength(PortSEtx_tag& port, ScriptedLink& link, unsigned how) {
  const tTicks since = link.oNow;
  KeptInside(port, link, PortSElcRecvDatDoP(&port, ePCISEetx, ePCISEstx, how % 5, how & 8), since);
}

void WholeCommand(PortSEtx_tag& port, ScriptedLink& link, unsigned) {
  SqueezeT request, reply;
  request.PutData(abisTMtid, "123", 3);
  request.PutData(abisTRamt, "1000", 4);
  tPadsData pads{&request, &reply, eEFTPwidSale, nullptr};
  const tTicks since = link.oNow;
  const bool good = port.WorkCmd(&port, &pads);
  KeptInside(port, link, 0, since);
  FUZZ_HOLDS(!good || reply.GetData(reply.Find(abisTMtid)) == eDTpdata);
  for (unsigned char byte : port.mbCmd) FUZZ_HOLDS(byte == 0); // a track may have stood there
}

void Answering(PortSEtx_tag& port, ScriptedLink& link, unsigned) {
  SqueezeT request;
  tPadsData pads{&request, &request, eEFTPwidNone, nullptr};
  const tTicks since = link.oNow;
  KeptInside(port, link, port.RecvCmd(&port, ePCISEetx, port.ParsCmdOnly, &pads), since);
}

constexpr void (*kSteps[])(PortSEtx_tag&, ScriptedLink&, unsigned) = {Receive, ReceiveByLength, WholeCommand,
                                                                      Answering};

} // namespace

FUZZ_TARGET(port) {
  fuzz::Quiet();
  ScriptedLink link;
  PortSEtx_tag port{};
  const unsigned kind = in.Byte(), step = in.Byte();
  if (kind & 1)
    PortSEtxInit(&port, &link, nullptr, &ScriptedLink::SetUp);
  else
    EFTPWorkInit(&port, &link, nullptr, &ScriptedLink::SetUp, kind & 2);
  if (kind & 4) port.fDirtyAK = !port.fDirtyAK;
  if (kind & 8) port.lCmdSign = in.Below(4);
  if (kind & 16) port.lCmdMax = kind & 1 ? in.Word() % (zat::kCmdMax + 1) : port.lCmdMax;
  if (kind & 32) port.oMaxRecv = port.oMaxSend = in.Below(4);
  link.Arrive(in.Short());
  for (unsigned reactions = in.Below(8); reactions; --reactions) link.oReactions.push_back(in.Short());
  if (kind & 64) link.Arrive("\x06"); // acknowledged, whatever comes then
  link.Arrive(in.Rest());
  kSteps[step % std::size(kSteps)](port, link, step / std::size(kSteps));
  if (kind & 128) {
    port.SomeEot(&port, false);
    port.oPortWork.WriteLog = nullptr;
  }
  for (const tLen length : {tLen{0}, tLen{step}, port.lCmdMax - 1, port.lCmdMax, port.lCmdMax + 1, ~tLen{0}})
    for (const tBool set : {0, 1}) {
      if (!set && length > port.lCmdMax) continue; // what was received is in the buffer
      tLen secured = length;
      const bool done = port.SecureDat(&port, port.pbCmd, &secured, port.lCmdMax, set, step % 4);
      FUZZ_HOLDS(!done || port.lCmdSign == 0 || secured <= port.lCmdMax);
    }
}
