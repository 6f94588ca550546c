#include "events.h"

#include "charset.h"
#include "gabids.h"
#include "util.h"

namespace zat::till {

namespace {

constexpr size_t kTidWidth = 10;
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

bool CanBeSent(const Request& request) {
  return request.oTid.size() <= kTidWidth && request.oData.size() <= kMaxData &&
         request.oData.size() != kImpossibleData;
}

void Tell(const Events& events, Status status, const tString& text) {
  if (events.oStatus) events.oStatus(status, text);
}

void Tell(const Events& events, Block& block) {
  if (IsLine(block.oId) && events.oLine)
    events.oLine(FromWire(WithoutEndOfLine(block.Field(abisEFpln))), block.oId == eEFTPwidPrLast);
  else if (const StatusRow* row = FindStatus(block.oId))
    Tell(events, row->oStatus, row->ppccText ? FromWire(block.Field(*row->ppccText)) : tString());
  else if (!IsVerdict(block.oId) && events.oOther)
    events.oOther({static_cast<char>(block.oId >> 8), static_cast<char>(block.oId)}, FromWire(Masked(block)));
}

} // namespace zat::till
