#include "listener.h"

#include <cxxabi.h>

#include "charset.h"
#include "gabids.h"
#include "util.h"

namespace zat::client {

namespace {

constexpr int kDataAt = 5; // in a data answer, behind its last flag (1) and its type (4)

// Blocks that are shown as a status, and the field that holds their text.
struct StatusRow {
  tEFTPWorkId oId;
  Status oStatus;
  const char* const* ppccText;
};
constexpr StatusRow kStatuses[] = {
    {eEFTPwidRfok, Status::Ok, nullptr},
    {eEFTPwidRfnoLog, Status::NotLoggedIn, nullptr},
    {eEFTPwidRpinrq, Status::Pin, nullptr},
    {eEFTPwidRonlrq, Status::Online, nullptr},
    {eEFTPwidRfnoRef, Status::NoReference, nullptr},
    {eEFTPwidRhldrq, Status::Hold, nullptr},
    {eEFTPwidRmsgcon, Status::Confirm, &abisEFmcn},
    {eEFTPwidMsgInfo, Status::Info, &abisEFidt},
    {eEFTPwidRespInfo, Status::Info, &abisEFidt},
    {eEFTPwidBrkNow, Status::Break, nullptr},
    {eEFTPwidBrkRes, Status::NoBreak, nullptr},
};

const StatusRow* FindStatus(tEFTPWorkId id) {
  for (const StatusRow& row : kStatuses)
    if (row.oId == id) return &row;
  return nullptr;
}

bool IsLine(tEFTPWorkId id) { return id == eEFTPwidPrLine || id == eEFTPwidPrLast; }

bool IsVerdict(tEFTPWorkId id) {
  return id == eEFTPwidRespons || id == eEFTPwidRespLast || id == eEFTPwidRubad;
}

// The data of a block; those of a data answer may be a card that was read for the till.
tString Masked(Block& block) {
  tString data = block.oData;
  if (block.oId == eEFTPwidDtaRes || block.oId == eEFTPwidDtaResLst) MaskDigit(data, kDataAt, -1, '*');
  return data;
}

// Some terminals close a line of the receipt themselves.
tString WithoutEndOfLine(const tString& line) { return line.substr(0, line.find_last_not_of("\r\n") + 1); }

} // namespace

// An exception must neither leave through the library nor cost the outcome of a payment that runs: it is kept for the
// till. The end of a cancelled thread passes, the runtime insists on it.
template<class Call> void Listener::Guard(Call call) {
  try {
    call();
  } catch (const abi::__forced_unwind&) { throw; } catch (...) {
    if (!oThrown) oThrown = std::current_exception();
  }
}

void Listener::Tell(Status status, const tString& text) {
  if (oCallbacks.status) Guard([&] { oCallbacks.status(status, text); });
}

void Listener::Tell(Block& block) {
  if (procSeen) Guard([&] { procSeen(block); });
  if (IsLine(block.oId)) {
    oReceipt.push_back({FromWire(WithoutEndOfLine(block.Field(abisEFpln))), block.oId == eEFTPwidPrLast});
    if (oCallbacks.line) Guard([&] { oCallbacks.line(oReceipt.back().text, oReceipt.back().last); });
  } else if (const StatusRow* row = FindStatus(block.oId)) {
    Tell(row->oStatus, row->ppccText ? FromWire(block.Field(*row->ppccText)) : tString());
  } else if (!IsVerdict(block.oId) && oCallbacks.block) {
    const tString workId = {static_cast<char>(block.oId >> 8), static_cast<char>(block.oId)};
    Guard([&] { oCallbacks.block(workId, FromWire(Masked(block))); });
  }
}

bool Listener::WantsBreak() {
  bool wanted = fBreakOff;
  if (!wanted && oCallbacks.idle) Guard([&] { wanted = oCallbacks.idle(); });
  return wanted;
}

void Listener::GiveTo(Outcome& outcome) {
  outcome.receipt = std::move(oReceipt);
  outcome.thrown = oThrown;
}

} // namespace zat::client
