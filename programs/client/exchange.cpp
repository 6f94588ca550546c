#include "exchange.h"

#include <algorithm>

#include "amount.h"
#include "charset.h"
#include "gabids.h"
#include "util.h"

namespace zat::client {
namespace {

constexpr char kApproved[] = "00";
constexpr int kCardDigitsShown = 4;

constexpr size_t kIdAt = 0, kLengthAt = 12, kLengthWidth = 2;
static_assert(kLengthAt + kLengthWidth == ZAT_MS_HEADER);

// A message with this length in its header travels without its data, see EFTPMakeHeader.
constexpr uint64_t kLengthAlone = 255;

tString WithoutFill(const tString& text) {
  size_t begin = std::min(text.find_first_not_of(' '), text.size());
  return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

// Only the last digits of the card number stay, and nothing of what follows the number.
tString MaskedCard(tString card) {
  MaskPEX(card, kCardDigitsShown, '*');
  return card.substr(0, card.find('='));
}

// Bad ends and good ends, by what the terminal said before.
//                       none              approving          declining          broken            refusal
constexpr Verdict kVerdicts[2][5] = {
    /* bad  */ {Verdict::Aborted, Verdict::Unknown, Verdict::Declined, Verdict::Unknown, Verdict::Declined},
    /* good */ {Verdict::Done, Verdict::Approved, Verdict::Declined, Verdict::Unknown, Verdict::Declined}};

// The texts of a response and where they stand in it.
struct ResponseRow {
  const char* const* ppccTag;
  tString Response::*poText;
};
constexpr ResponseRow kResponse[] = {
    {&abisEFcod, &Response::operation},     {&abisTRccd, &Response::currency},
    {&abisTRdtt, &Response::dateTime},      {&abisTMmid, &Response::merchant},
    {&abisTRrfn, &Response::rrn},           {&abisEFrcd, &Response::code},
    {&abisTRacd, &Response::authorisation}, {&abisTRpex, &Response::card},
    {&abisEFctp, &Response::cardType},      {&abisEFmsg, &Response::text},
    {&abisEFrad, &Response::additional}};

} // namespace

bool Block::Read(const char* buffer, size_t size) {
  if (size < ZAT_MS_HEADER || buffer[kIdAt] == 0) return false;
  oId = static_cast<tEFTPWorkId>(EFTPWId(buffer[kIdAt], buffer[kIdAt + 1]));
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(buffer);
  uint64_t length = EFTPParsDLen(bytes + kLengthAt, kLengthWidth, nullptr);
  if (length == kLengthAlone) length = 0;
  length = std::min<uint64_t>(length, size - ZAT_MS_HEADER);
  oData.assign(buffer + ZAT_MS_HEADER, length);
  fWhole = EFTPParsData(&oFields, oId, bytes + ZAT_MS_HEADER, length);
  return true;
}

tString Block::Field(const char* tag) {
  tString value;
  return oFields.GetData(oFields.Find(tag), &value) == eDTpdata ? value : tString();
}

void Exchange::Take(Block& block) {
  switch (block.oId) {
  case eEFTPwidRespons:
  case eEFTPwidRespLast: TakeResponse(block); break;
  case eEFTPwidRubad: TakeRefusal(block); break;
  case eEFTPwidBrkRes: fTooLate = true; break;
  case eEFTPwidRfnoLog:
  case eEFTPwidRfnoRef:
    if (oSaid != eNone) break;
    oSaid = eRefusal;
    oSoFar.why = block.oId == eEFTPwidRfnoLog ? Why::NotLoggedIn : Why::NoReference;
    break;
  default: break;
  }
}

// The last response holds: a terminal that sends several ends with the one that counts.
void Exchange::TakeResponse(Block& block) {
  Response response;
  bool whole = block.fWhole && ReadWireAmount(block.Field(abisTRamt), response.amount);
  for (const ResponseRow& row : kResponse) {
    tString value = block.Field(*row.ppccTag);
    if (row.poText == &Response::card) value = MaskedCard(value);
    response.*row.poText = FromWire(WithoutFill(value));
  }
  oSaid = !whole ? eBroken : response.code == kApproved ? eApproving : eDeclining;
  oSoFar.why = whole ? Why::Response : Why::Broken;
  oSoFar.code = response.code;
  oSoFar.text = response.text;
  oSoFar.response.reset();
  if (whole) oSoFar.response = std::move(response);
}

// A refusal speaks of the exchange itself; it does not take back what a response said.
void Exchange::TakeRefusal(Block& block) {
  if (oSaid != eNone && oSaid != eRefusal) return;
  oSaid = eRefusal;
  oSoFar.why = Why::Refusal;
  oSoFar.code = FromWire(block.Field(abisEFecd));
  oSoFar.text = FromWire(block.Field(abisEFmsg));
}

Outcome Exchange::End(bool good) const {
  Outcome outcome = oSoFar;
  outcome.verdict = kVerdicts[good][oSaid];
  if (oSaid == eNone) outcome.why = good ? Why::GoodEnd : Why::Ended;
  if (oSaid == eApproving && !good) outcome.why = Why::Contradiction;
  if (oSaid == eNone && good && NeedsResponse(oAsked)) {
    outcome.verdict = Verdict::Unknown;
    outcome.why = Why::NoResponse;
  }
  if (!good && fBreak && !fTooLate && (oSaid == eNone || oSaid == eRefusal)) {
    outcome.verdict = Verdict::Aborted;
    outcome.why = Why::Break;
  }
  return outcome;
}

Outcome Exchange::Stop(Why why, Verdict verdict, const tString& code, const tString& text) const {
  Outcome outcome = oSoFar;
  outcome.verdict = verdict;
  outcome.why = why;
  outcome.code = code;
  outcome.text = text;
  return outcome;
}

} // namespace zat::client
