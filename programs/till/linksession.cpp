#include "linksession.h"

#include "gabids.h"
#include "util.h"

namespace zat::till {

using client::Block;
using client::Exchange;

namespace {

constexpr tTicks kConnectMs = 5000;
constexpr tTicks kMessageMs = 30300;
constexpr tTicks kLookMs = 20; // how often the wish for a break is looked at
constexpr int kEndGroup = '#';

} // namespace

bool LinkSession::Open(const tString& place, tString& why) {
  oPlace = place;
  tLinkPlace where;
  bool open = LinkPlaceFromText(place, where, why) && oLink.Open(where, kConnectMs, why);
  if (open && !EFTPWorkInit(&oPort, &oLink, nullptr, &EFTPLinkSetUp, true)) {
    why = "the port cannot be set up";
    open = false;
  }
  oPort.ParsCmd = &TakeMessage;
  oPort.pvExtra = this;
  return open;
}

// Parses a received frame, and keeps the message for the one who follows the exchange: the port wipes its buffer.
tBool LinkSession::TakeMessage(PortSEtx_tag* port, void* pads, tLen length, tSEtxCmdId* end) {
  if (!EFTPParsCmd(port, pads, length, end)) return false;
  tLen frame = port->lCmdBeg + port->lCmdEnd + port->lCmdSign;
  static_cast<LinkSession*>(port->pvExtra)
      ->oMessage.assign(reinterpret_cast<const char*>(port->pbCmd) + port->lCmdBeg, length - frame);
  return true;
}

// One command out and acknowledged. The answer is not awaited here: a card holder takes longer than the port's period.
bool LinkSession::Send(tEFTPWorkId id, SqueezeT& parameters) {
  tPadsData pads{&parameters, nullptr, id, nullptr};
  tLen length = oPort.MakeCmd(&oPort, &pads);
  bool sent = length != 0 && oPort.SendCmd(&oPort, length);
  ClearCmd(&oPort, false); // the copy that the port would keep may hold a track 2
  return sent;
}

Outcome LinkSession::Run(const client::Request& request, client::Listener& listener) {
  Exchange exchange(request.oId);
  tString id;
  AppendStrPad(id, request.oTid.c_str(), 10, '0', false);
  oParameters = SqueezeT();
  fBreakAsked = false;
  tEFTPWorkId parsed = request.oId;
  bool made = client::CanBeSent(request) &&
              EFTPParsData(&oParameters, parsed, reinterpret_cast<const unsigned char*>(request.oData.data()),
                           request.oData.size()) &&
              oParameters.PutData(abisTMtid, id.data(), id.size()).ss_get();
  if (!made) return exchange.Stop(Why::BadRequest, Verdict::BadRequest);
  listener.Tell(Status::Connecting);
  bool sent = Send(request.oId, oParameters);
  // Without an acknowledgement the terminal may have got the request all the same: only its ACK may be lost.
  return sent ? Follow(exchange, listener) : exchange.Stop(Why::Lost, Verdict::Unknown);
}

// Waits for the next message; asks for a break once when the owner wants one. False when none came in time.
bool LinkSession::Await(client::Listener& listener) {
  tTicks begin = TicksGet();
  while (oLink.IsOpen() && !TicksEnd(begin, kMessageMs)) {
    if (oLink.WaitIn(kLookMs)) {
      SqueezeT reply;
      tPadsData pads{nullptr, &reply, eEFTPwidNone, nullptr};
      return oPort.WorkAck(&oPort, &pads);
    }
    if (!fBreakAsked && listener.WantsBreak()) {
      fBreakAsked = true;
      Send(eEFTPwidBrkReq, oParameters); // not acknowledged: the payment simply goes on
    }
  }
  return false;
}

// Follows the exchange to its end, message by message.
Outcome LinkSession::Follow(Exchange& exchange, client::Listener& listener) {
  while (Await(listener)) {
    Block block;
    if (!block.Read(oMessage.data(), oMessage.size())) break;
    if (block.oId >> 8 == kEndGroup) {
      if (fBreakAsked) exchange.TakeBreak();
      return exchange.End(block.oId == eEFTPwidEndOk);
    }
    exchange.Take(block);
    listener.Tell(block);
  }
  return exchange.Stop(Why::Lost, Verdict::Unknown);
}

std::unique_ptr<Till> TillByLink(const TillOptions& options, const tString& place, tString& why) {
  auto session = std::make_unique<LinkSession>();
  return session->Open(place, why) ? std::make_unique<Till>(options, std::move(session)) : nullptr;
}

} // namespace zat::till
