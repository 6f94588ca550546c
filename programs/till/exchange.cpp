#include "exchange.h"

#include <algorithm>

#include "amount.h"
#include "charset.h"
#include "gabids.h"
#include "util.h"
#include "zat_ms.h"

namespace zat::till {
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
constexpr Outcome kOutcomes[2][5] = {
    /* bad  */ {Outcome::Aborted, Outcome::Unknown, Outcome::Declined, Outcome::Unknown, Outcome::Declined},
    /* good */ {Outcome::Done, Outcome::Approved, Outcome::Declined, Outcome::Unknown, Outcome::Declined}};

} // namespace

const ResponseField moResponseFields[11] = {{"operation", &abisEFcod, &Response::oOperation},
                                            {"currency", &abisTRccd, &Response::oCurrency},
                                            {"dateTime", &abisTRdtt, &Response::oDateTime},
                                            {"merchant", &abisTMmid, &Response::oMerchant},
                                            {"rrn", &abisTRrfn, &Response::oRrn},
                                            {"code", &abisEFrcd, &Response::oCode},
                                            {"authorisation", &abisTRacd, &Response::oAuth},
                                            {"card", &abisTRpex, &Response::oCard},
                                            {"cardType", &abisEFctp, &Response::oCardType},
                                            {"text", &abisEFmsg, &Response::oText},
                                            {"additional", &abisEFrad, &Response::oAdditional}};

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
    if (oVerdict != eNone) break;
    oVerdict = eRefusal;
    oSoFar.oWhy = block.oId == eEFTPwidRfnoLog ? Why::NotLoggedIn : Why::NoReference;
    break;
  default: break;
  }
}

// The last response holds: a terminal that sends several ends with the one that counts.
void Exchange::TakeResponse(Block& block) {
  Response response;
  bool whole = block.fWhole && ReadWireAmount(block.Field(abisTRamt), response.ulKopecks);
  for (const ResponseField& field : moResponseFields) {
    tString value = block.Field(*field.ppccTag);
    if (field.poText == &Response::oCard) value = MaskedCard(value);
    response.*field.poText = FromWire(WithoutFill(value));
  }
  oVerdict = !whole ? eBroken : response.oCode == kApproved ? eApproving : eDeclining;
  oSoFar.oWhy = whole ? Why::Response : Why::Broken;
  oSoFar.oCode = response.oCode;
  oSoFar.oText = response.oText;
  oSoFar.fResponse = whole;
  oSoFar.oResponse = response;
}

// A refusal speaks of the exchange itself; it does not take back what a response said.
void Exchange::TakeRefusal(Block& block) {
  if (oVerdict != eNone && oVerdict != eRefusal) return;
  oVerdict = eRefusal;
  oSoFar.oWhy = Why::Refusal;
  oSoFar.oCode = FromWire(block.Field(abisEFecd));
  oSoFar.oText = FromWire(block.Field(abisEFmsg));
}

// Operations that move money, or show one that did, are answered with a response.
bool Exchange::NeedsResponse() const {
  int group = oAsked >> 8;
  return group == eEFTPwidOpClass || group == eEFTPwidClClass || oAsked == eEFTPwidTransDt;
}

Result Exchange::End(bool good) const {
  Result result = oSoFar;
  result.oOutcome = kOutcomes[good][oVerdict];
  if (oVerdict == eNone) result.oWhy = good ? Why::GoodEnd : Why::Ended;
  if (oVerdict == eApproving && !good) result.oWhy = Why::Contradiction;
  if (oVerdict == eNone && good && NeedsResponse()) {
    result.oOutcome = Outcome::Unknown;
    result.oWhy = Why::NoResponse;
  }
  if (!good && fBreak && !fTooLate && (oVerdict == eNone || oVerdict == eRefusal)) {
    result.oOutcome = Outcome::Aborted;
    result.oWhy = Why::Break;
  }
  return result;
}

Result Exchange::Stop(Why why, Outcome outcome, const tString& code, const tString& text) const {
  Result result = oSoFar;
  result.oOutcome = outcome;
  result.oWhy = why;
  result.oCode = code;
  result.oText = text;
  return result;
}

} // namespace zat::till
