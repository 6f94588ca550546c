#include "exchanges.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

#include "amount.h"
#include "cards.h"
#include "gabids.h"
#include "text.h"

namespace zat::tool {

namespace {

constexpr int kLongestWait = 31; // seconds in which a module must have said something
constexpr int kSettle = 1;       // seconds after an end block in which the last lines of an exchange come
constexpr char kUnknownTid[] = "??????????";

struct tResultRow {
  const char *pccName, *pccText;
};
constexpr tResultRow kResults[] = {
#define EXCHANGE_ROW(constant, name, text) {name, text},
    EXCHANGE_RESULTS(EXCHANGE_ROW)
#undef EXCHANGE_ROW
};

constexpr const char* kEvents[] = {"start", "request", "status",  "answer",
                                   "print", "break",   "trouble", "end"};

tString Printable(std::string_view bytes) {
  tString text(bytes);
  MaskCards(text);
  return ToScreen(text);
}

bool IsPayment(const tString& id) { return !id.empty() && (id[0] == '1' || id[0] == '8'); }

const tFoundField* FieldOf(const tDissected& message, const char* tag) {
  for (const tFoundField& field : message.oFields)
    if (field.pccTag == tag) return &field;
  return nullptr;
}

tString ValueOf(const tDissected& message, const char* tag) {
  const tFoundField* field = FieldOf(message, tag);
  return field ? FieldText(*field) : "";
}

// The last message with this work id that the module sent.
const tDissected* LastMessage(const tExchange& exchange, const char* id) {
  for (auto at = exchange.oEvents.rbegin(); at != exchange.oEvents.rend(); ++at)
    if (at->oMessage && at->oKind != eEvRequest && at->oMessage->oWireId == id) return &*at->oMessage;
  return nullptr;
}

tString LastTrouble(const tExchange& exchange) {
  for (auto at = exchange.oEvents.rbegin(); at != exchange.oEvents.rend(); ++at)
    if (at->oKind == eEvTrouble) return at->oText;
  return "";
}

// Nothing more will come. A log whose clock is far ahead is no log of now either.
bool Silent(const tExchange& exchange, time_t now) {
  const time_t silence = now - exchange.oLast;
  return silence > kLongestWait || silence < -kLongestWait;
}

tExchangeResult EndedResult(const tExchange& exchange) {
  const tDissected *answer = LastMessage(exchange, "60"), *broken = LastMessage(exchange, "34");
  const bool good = LastMessage(exchange, "#0") != nullptr;
  const tString code = answer ? ValueOf(*answer, abisEFrcd) : "";
  // An approval and a bad end contradict each other, and a damaged answer says nothing: somebody has to ask.
  if (code == "00") return good ? eResApproved : eResUnknown;
  if (answer) return code.empty() ? eResUnknown : eResDeclined;
  if (good) return IsPayment(exchange.oWorkId) ? eResUnknown : eResDone;
  return broken ? eResBroken : eResRefused;
}

// ---- lines ------------------------------------------------------------------------------------------------

// What a line of the launcher or the exchange means. The text of the line behind the title is added when fRest is set.
struct tLineRow {
  std::string_view oTitle;
  tEventKind oKind;
  const char* pccText;
  bool fRest, fLost;
};
constexpr tLineRow kLines[] = {
    {"[MicroS] B: ", eEvStart, "terminal module ", true, false},
    {"[MicroS] Installed: ", eEvStart, "update installed: ", true, false},
    {"[MicroS] New updater: ", eEvStart, "new updater tried: ", true, false},
    {"[MicroS] Already lock: ", eEvTrouble, "the terminal id is in use by another till: ", true, false},
    {"[MicroS] Open UP: 0", eEvTrouble, "no pipes: too many files open?", false, false},
    {"[MicroS] UP is: 0", eEvTrouble, "the pipes are not ready", false, false},
    {"[MicroS] No HELLO", eEvTrouble, "no greeting within 30 s: the terminal module did not start properly",
     false, true},
    {"[MicroS] Not excerpt REQTO==", eEvTrouble,
     "the pause after the previous request is not over, seconds: ", true, false},
};

bool TakeTitle(std::string_view& text, std::string_view title) {
  if (!text.starts_with(title)) return false;
  text.remove_prefix(title.size());
  return true;
}

// The system's refusals are logged as "[who] what 'name': ENOENT, No such file or directory".
bool IsSystemFault(std::string_view text) {
  const size_t name = text.find("': E");
  return text.starts_with('[') && name != text.npos && text.find(", ", name) != text.npos;
}

// The header of a request, which level H logs in hexadecimal.
tString HeaderOf(std::string_view hex) {
  const auto bytes = FromHex(tString(hex));
  return bytes && bytes->size() == kHeadSize ? *bytes : "";
}

} // namespace

const char* ResultName(tExchangeResult oResult) { return kResults[oResult].pccName; }
const char* ResultText(tExchangeResult oResult) { return kResults[oResult].pccText; }
const char* EventName(tEventKind oKind) { return kEvents[oKind]; }

tString WithoutZeros(tString oTid) {
  const size_t first = oTid.find_first_not_of('0');
  if (oTid.empty()) return oTid;
  return first == oTid.npos ? "0" : oTid.substr(first);
}

time_t LogTime(std::string_view oWhen) {
  static tString lastText; // almost every line has the time of the one before
  static time_t last = -1;
  if (oWhen == lastText) return last;
  struct tm when = {};
  const tString text(oWhen);
  if (!strptime(text.c_str(), "%Y-%m-%d %H.%M.%S", &when)) return -1;
  when.tm_isdst = -1;
  lastText = text;
  return last = mktime(&when);
}

tString FieldText(const tFoundField& oField) {
  if (oField.fAbsent) return "";
  tString value = oField.oValue;
  MaskValue(oField.pccTag, value);
  value.erase(value.find_last_not_of(' ') + 1);
  return ToScreen(value);
}

// ---- one exchange -----------------------------------------------------------------------------------------

tExchangeResult tExchange::Result(time_t oNow) const {
  const bool trouble = !LastTrouble(*this).empty();
  if (fEnded) return EndedResult(*this);
  if (!fLost && !(trouble && !fSent) && !Silent(*this, oNow)) return eResRunning;
  if (fSent) return eResUnknown;
  return fEarly ? eResEarly : eResNotStarted;
}

tString tExchange::Reason() const {
  const tDissected* refusal = LastMessage(*this, "5X");
  const tDissected* answer = LastMessage(*this, "60");
  if (tString trouble = LastTrouble(*this); !trouble.empty()) return trouble;
  tString reason;
  if (refusal)
    reason = ValueOf(*refusal, abisEFecd) + " " + ValueOf(*refusal, abisEFmsg);
  else if (answer)
    reason = ValueOf(*answer, abisEFrcd) + " " + ValueOf(*answer, abisEFmsg);
  return reason == " " ? "" : reason;
}

std::optional<zat::Amount> tExchange::Amount() const {
  for (const tEvent& event : oEvents) {
    const tFoundField* field =
        event.oMessage && event.oKind == eEvRequest ? FieldOf(*event.oMessage, abisTRamt) : nullptr;
    zat::Amount amount;
    if (field && client::ReadWireAmount(field->oValue, amount)) return amount;
  }
  return std::nullopt;
}

tString OperationText(const tExchange& oExchange) {
  if (oExchange.oWorkId.size() != 2) return "request unknown";
  const tEFTPWorkIdName* row =
      EFTPWorkIdName(static_cast<int>(EFTPWId(oExchange.oWorkId[0], oExchange.oWorkId[1])));
  return row ? row->pccText : fmt::format("request {}", Printable(oExchange.oWorkId));
}

// ---- putting lines together -------------------------------------------------------------------------------

std::shared_ptr<tExchange> Exchanges::Begin(tProcess& oProcess, const tRecord& oRecord, time_t oWhen,
                                            bool fBeginning) {
  // One session has one exchange: what it began before has been given up. Sessions show at level H only.
  if (oProcess.oNow && oProcess.oNow->oHandle == oProcess.oHandle) Close(oProcess, oProcess.oNow);
  auto exchange = std::make_shared<tExchange>();
  exchange->oBegin = exchange->oLast = oWhen;
  exchange->ulProcess = oRecord.ulProcess;
  exchange->oHandle = oProcess.oHandle;
  exchange->fBeginning = fBeginning;
  if (!oProcess.oHeader.empty()) {
    exchange->oWorkId = oProcess.oHeader.substr(kHeadId, kHeadTid);
    exchange->oTid = oProcess.oHeader.substr(kHeadTid, kTidSize);
  }
  oProcess.oHeader.clear();
  oProcess.oOpen.push_back(exchange);
  oAll.push_back(exchange);
  return oProcess.oNow = exchange;
}

void Exchanges::Close(tProcess& oProcess, const std::shared_ptr<tExchange>& oExchange) {
  oExchange->fClosed = true;
  std::erase(oProcess.oOpen, oExchange);
  if (oProcess.oNow == oExchange) oProcess.oNow = nullptr;
}

// The exchange that a message belongs to, by the terminal id in it.
std::shared_ptr<tExchange> Exchanges::OwnerOf(tProcess& oProcess, const tString& oTid) const {
  const auto fits = [&](const std::shared_ptr<tExchange>& one) {
    return one && !one->fEnded && (one->oTid.empty() || oTid == kUnknownTid || one->oTid == oTid);
  };
  if (fits(oProcess.oNow)) return oProcess.oNow;
  const auto found = std::find_if(oProcess.oOpen.begin(), oProcess.oOpen.end(), fits);
  if (found != oProcess.oOpen.end()) return *found;
  return oProcess.oNow && !oProcess.oNow->fEnded ? oProcess.oNow : nullptr; // a damaged line
}

// A message, or the two characters "5-3" of a status without data.
void Exchanges::TakeMessage(tProcess& oProcess, const tRecord& oRecord, time_t oWhen, tEventKind oKind,
                            std::string_view oBytes) {
  const bool brief = oBytes.size() == 3 && oBytes[1] == '-';
  tDissected message = Dissect(tString(brief ? "" : oBytes));
  if (brief) {
    message.oWireId = {oBytes[0], oBytes[2]};
    message.oId = static_cast<tEFTPWorkId>(EFTPWId(oBytes[0], oBytes[2]));
    message.oFault.reset();
    oKind = eEvStatus;
  }
  auto exchange = OwnerOf(oProcess, brief || message.oTid.empty() ? kUnknownTid : message.oTid);
  if (!exchange) {
    exchange = Begin(oProcess, oRecord, oWhen, false);
    exchange->fSent = true; // whatever came before is not in the log any more
  }
  oProcess.oNow = exchange;
  if (exchange->oTid.empty() && message.oTid != kUnknownTid) exchange->oTid = message.oTid;
  if (oKind == eEvRequest && exchange->oWorkId.empty()) exchange->oWorkId = message.oWireId;
  if (oKind == eEvRequest) exchange->fSent = true;
  if (oKind == eEvAnswer && message.oWireId.starts_with('#')) {
    exchange->fEnded = true;
    oKind = eEvEnd;
  }
  exchange->oLast = oWhen;
  exchange->oEvents.push_back({oWhen, oKind, "", std::move(message)});
}

void Exchanges::Add(tProcess& oProcess, time_t oWhen, tEventKind oKind, const tString& oText) {
  if (!oProcess.oNow) return;
  oProcess.oNow->oLast = oWhen;
  oProcess.oNow->oEvents.push_back({oWhen, oKind, oText, std::nullopt});
}

// The lines of the till's calls, which only level H has.
void Exchanges::TakeCall(tProcess& oProcess, std::string_view oText) {
  if (TakeTitle(oText, "in: ")) {
    oProcess.oHandle = oText.substr(0, oText.find(' '));
    oProcess.oHeader.clear();
    const auto mine = [&](const auto& one) { return one->oHandle == oProcess.oHandle && !one->fEnded; };
    const auto found = std::find_if(oProcess.oOpen.begin(), oProcess.oOpen.end(), mine);
    oProcess.oNow = found == oProcess.oOpen.end() ? nullptr : *found;
  } else if (TakeTitle(oText, "ReqHdr: ")) {
    oProcess.oHeader = HeaderOf(oText);
  } else if (TakeTitle(oText, "out: ") && oProcess.oNow) {
    const auto exchange = oProcess.oNow;
    if (exchange->fEnded || (!exchange->fSent && !exchange->fLost)) Close(oProcess, exchange);
  } else if (oText.starts_with("skip: ") && oProcess.oNow && oProcess.oNow->fEarly) {
    Close(oProcess, oProcess.oNow);
  }
}

void Exchanges::TakeStarted(tProcess& oProcess, time_t oWhen, std::string_view oText) {
  constexpr std::string_view kHandle = " <Handle: ";
  const size_t end = oText.rfind(kHandle);
  if (end == oText.npos || !oProcess.oNow) return;
  if (oText.substr(end + kHandle.size()).starts_with("(nil)"))
    Add(oProcess, oWhen, eEvTrouble,
        "the terminal module could not be started: " + Printable(oText.substr(0, end)));
  const std::string_view words = oText.substr(0, end);
  const std::string_view tid = words.substr(words.rfind(' ') + 1);
  if (oProcess.oNow->oTid.empty() && tid.size() == kTidSize) oProcess.oNow->oTid = tid;
}

void Exchanges::TakeLine(tProcess& oProcess, const tRecord& oRecord, time_t oWhen) {
  std::string_view text = oRecord.oText;
  const auto exchange = oProcess.oNow;
  if (TakeTitle(text, "[MicroS] TimeoutAfter-")) {
    auto begun = Begin(oProcess, oRecord, oWhen, true);
    if (begun->oWorkId.empty()) begun->oWorkId = text.substr(0, text.find(':'));
  } else if (TakeTitle(text, "[MicroS] Started: ")) {
    TakeStarted(oProcess, oWhen, text);
  } else if (TakeTitle(text, "[MicroS] Last Print Line N: ")) {
    Add(oProcess, oWhen, eEvPrint,
        fmt::format("slip of {} lines (the log keeps no receipts)", Printable(text)));
  } else if (TakeTitle(text, "[MicroS] No any response")) {
    const bool waited = exchange && oWhen - exchange->oLast >= kLongestWait - 2;
    if (exchange) exchange->fLost = true;
    Add(oProcess, oWhen, eEvTrouble,
        waited ? "no answer within 30.3 s: the terminal or its line is silent" : "the terminal module died");
  } else if (IsSystemFault(text)) {
    Add(oProcess, oWhen, eEvTrouble, Printable(text));
  } else {
    for (const tLineRow& row : kLines) {
      if (!TakeTitle(text, row.oTitle)) continue;
      if (row.oTitle.starts_with("[MicroS] Not excerpt"))
        Begin(oProcess, oRecord, oWhen, true)->fEarly = true;
      Add(oProcess, oWhen, row.oKind, row.pccText + (row.fRest ? Printable(text) : ""));
      if (row.fLost && oProcess.oNow) oProcess.oNow->fLost = true;
      break;
    }
  }
}

// The last lines of an end of day, which the log has newest first: told in the order in which they were printed.
void Exchanges::TakeDayLine(tProcess& oProcess, time_t oWhen, std::string_view oText) {
  if (!oProcess.oNow) return;
  auto& events = oProcess.oNow->oEvents;
  const auto end =
      std::find_if(events.rbegin(), events.rend(), [](const tEvent& e) { return e.oKind == eEvEnd; });
  const tDissected line = Dissect(tString(MessageOf(oText)));
  events.insert(end.base(), {oWhen, eEvPrint, ValueOf(line, abisEFpln), std::nullopt});
}

void Exchanges::Take(const tRecord& oRecord) {
  const time_t when = LogTime(oRecord.oWhen);
  if (oRecord.oWhen.empty() || when < 0) return;
  tProcess& process = oProcesses[oRecord.ulProcess];
  std::string_view text = oRecord.oText;
  if (TakeTitle(text, "[MicroS] WriteBlock: "))
    TakeMessage(process, oRecord, when, eEvRequest, text);
  else if (TakeTitle(text, "[MicroS] ReadBlock: "))
    TakeMessage(process, oRecord, when, eEvAnswer, text);
  else if (TakeTitle(text, "[MicroS] WriteBreak: "))
    TakeMessage(process, oRecord, when, eEvBreak, text);
  else if (text.starts_with("[MicroS] : FinDay PL "))
    TakeDayLine(process, when, text);
  else if (TakeTitle(text, "[eftp_do] "))
    TakeCall(process, text);
  else if (text.starts_with("[eftp_destroy]") && process.oNow)
    Close(process, process.oNow);
  else
    TakeLine(process, oRecord, when);
}

std::vector<std::shared_ptr<tExchange>> Exchanges::TakeReady(time_t oNow, bool fAll) {
  std::vector<std::shared_ptr<tExchange>> ready;
  std::erase_if(oAll, [&](const std::shared_ptr<tExchange>& one) {
    const bool settled = one->fEnded && oNow - one->oLast > kSettle;
    const bool done = fAll || one->fClosed || settled || Silent(*one, oNow);
    if (done) ready.push_back(one);
    return done;
  });
  for (const auto& one : ready) Close(oProcesses[one->ulProcess], one);
  std::erase_if(oProcesses,
                [&](const auto& one) { return one.second.oOpen.empty() && one.second.oHandle.empty(); });
  return ready;
}

} // namespace zat::tool
