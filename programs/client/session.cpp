#include "session.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include <unistd.h>

#include "charset.h"

namespace zat::client {

// What one call of eftp_do brought.
struct Session::Answer {
  enum Kind {
    eMore,    // a block, the exchange goes on
    eGood,    // the end, nothing to complain of
    eBad,     // the end, unsuccessful
    ePause,   // not accepted yet: too early after the previous request
    eStopped, // a reason of the library
  };
  char mcBuffer[ZAT_MS_BUFFER];
  Kind oKind = eMore;
  Why oWhy = Why::Ended;
  tString oCode, oText;

  ~Answer() { explicit_bzero(mcBuffer, sizeof mcBuffer); } // a data answer may hold a card

  // Makes out what the result and the buffer say; opening is set for a call that carried a request.
  void Read(int result, bool opening);
  void ReadOld(int result, const Block& block, bool opening);
  void Paused() {
    oKind = ePause;
    oCode = "I3";
    oWhy = Why::Pause;
  }
};

namespace {

constexpr size_t kReasonWidth = 2;
constexpr int kEmptyAnswers = 100; // then the library has nothing to say and never will
constexpr auto kPauseStep = std::chrono::milliseconds(50);
constexpr int kNoOldResult = ZAT_MS_MORE; // a number that is never looked up

// The reasons of the library: the mark in the answer, the old-style result for the same.
struct ReasonRow {
  const char* pccCode;
  int iOld;
  Why oWhy;
};
constexpr ReasonRow kReasons[] = {
    {ZAT_MS_LOST, ZAT_MS_OLD_LOST, Why::Lost},
    {ZAT_MS_NO_HANDLE, kNoOldResult, Why::Handle},
    {ZAT_MS_STATE, ZAT_MS_OLD_STATE, Why::State},
    {ZAT_MS_COMMAND, ZAT_MS_OLD_COMMAND, Why::Command},
    {ZAT_MS_NO_EXCHANGE, ZAT_MS_OLD_NO_EXCHANGE, Why::NoExchange},
    {ZAT_MS_OTHER_ID, ZAT_MS_OLD_OTHER_ID, Why::OtherId},
    {ZAT_MS_PIPES, ZAT_MS_OLD_PIPES, Why::Pipes},
    {ZAT_MS_NESTED, ZAT_MS_OLD_NESTED, Why::Nested},
    {ZAT_MS_NO_MODULE, ZAT_MS_OLD_NO_MODULE, Why::NoModule},
    {ZAT_MS_END_BAD, ZAT_MS_OLD_END_BAD, Why::Ended},
    {ZAT_MS_BAD_HANDLE, kNoOldResult, Why::Handle},
};

const ReasonRow* FindReason(const tString& code) {
  for (const ReasonRow& row : kReasons)
    if (code == row.pccCode) return &row;
  return nullptr;
}

const ReasonRow* FindOldReason(int result) {
  for (const ReasonRow& row : kReasons)
    if (result == row.iOld) return &row;
  return nullptr;
}

bool Untouched(const char* buffer) {
  return std::all_of(buffer, buffer + ZAT_MS_BUFFER, [](char c) { return c == 0; });
}

// The refusal because the pause is not over is written into the answer first, and with new-style results the
// shorter "XA" block is laid over its beginning. What sticks out behind tells it from the end of an exchange,
// which writes nothing but the "XA" block into a buffer of zeros.
constexpr std::string_view kPauseData = "I3Timeout violation between inquiries from cash desk";

bool IsPauseRefusal(const char* buffer, size_t shown) {
  return shown < kPauseData.size() &&
         memcmp(buffer + ZAT_MS_HEADER + shown, kPauseData.data() + shown, kPauseData.size() - shown) == 0;
}

// The last session that was left with its exchange open, for tools that look for lost memory: this is meant.
void* pvLeftOpen;

} // namespace

void Session::Answer::Read(int result, bool opening) {
  oKind = eMore;
  oWhy = Why::Ended;
  if (result == ZAT_MS_MORE) return;
  Block block;
  bool refusal = block.Read(mcBuffer, sizeof mcBuffer) && block.oId == eEFTPwidRubad;
  if (result != ZAT_MS_END) return ReadOld(result, block, opening);
  if (Untouched(mcBuffer)) {
    oKind = eGood;
    return;
  }
  oCode = FromWire(block.oData.substr(0, kReasonWidth));
  oText = refusal ? FromWire(block.oData.substr(std::min(kReasonWidth, block.oData.size()))) : tString();
  const ReasonRow* row = refusal ? FindReason(oCode) : nullptr;
  oWhy = row ? row->oWhy : Why::Strange;
  oKind = oWhy == Why::Ended ? eBad : eStopped;
  if (oKind == eBad && opening && IsPauseRefusal(mcBuffer, block.oData.size())) Paused();
}

// Old-style results name the reason by a number and leave the buffer alone, but for the refusal of the pause.
void Session::Answer::ReadOld(int result, const Block& block, bool opening) {
  const ReasonRow* row = FindOldReason(result);
  oWhy = row ? row->oWhy : Why::Strange;
  oCode = row ? row->pccCode : std::to_string(result);
  oText.clear();
  oKind = oWhy == Why::Ended ? eBad : eStopped;
  if (oKind == eBad && opening && block.oData == kPauseData) Paused();
}

Session::Session(std::unique_ptr<Library> library, const tString& config)
    : poLibrary(std::move(library)), oConfig(config) {
  Create();
}

void Session::Create() { pvHandle = poLibrary->procCreate(oConfig.empty() ? nullptr : oConfig.data()); }

bool Session::Reopen() {
  if (pvHandle) poLibrary->procDestroy(pvHandle);
  fExchange = false;
  Create();
  return IsOpen();
}

Session::~Session() {
  if (!pvHandle) return;
  if (fExchange) {
    poLibrary->Keep();
    pvLeftOpen = pvHandle;
  } else {
    poLibrary->procDestroy(pvHandle);
  }
}

Outcome Session::Run(const Request& request, Listener& listener) {
  Exchange exchange(request.oId);
  if (!pvHandle) return exchange.Stop(Why::Handle, Verdict::Refused, ZAT_MS_NO_HANDLE);
  if (fExchange) return exchange.Stop(Why::Unfinished, Verdict::Refused);
  if (!CanBeSent(request))
    return exchange.Stop(Why::BadRequest, Verdict::BadRequest, "",
                         "the data have a length that cannot be sent");

  oExchange = exchange;
  poListener = &listener;
  fBreakAsked = false;
  bool module = HasModule();
  Answer answer;
  Open(request, answer);
  bool opening = answer.oKind != Answer::eMore;
  Collect(answer);
  bool missing = opening && answer.oWhy == Why::Lost && !module && !HasModule();
  if (missing) fExchange = false; // with whom
  return missing ? oExchange.Stop(Why::ModuleMissing, Verdict::Refused, answer.oCode, answer.oText)
                 : Finish(answer, opening);
}

Outcome Session::Resume(Listener& listener) {
  if (!fExchange) return Road::Resume(listener);
  poListener = &listener;
  Answer answer;
  Call(nullptr, answer);
  Collect(answer);
  return Finish(answer, false);
}

// Sends the request and takes the first answer. The library refuses a request that comes too early without
// having done anything, so it can be offered again until the pause is over.
void Session::Open(const Request& request, Answer& answer) {
  tString message;
  EFTPMakeHeader(message, request.oId, &request.oTid, &request.oData);
  auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(request.iPauseLimit);
  poListener->Tell(Status::Connecting);
  Call(&message, answer);
  while (answer.oKind == Answer::ePause && std::chrono::steady_clock::now() < limit && !BreakWanted()) {
    poListener->Tell(Status::Pause);
    std::this_thread::sleep_for(kPauseStep);
    Call(&message, answer);
  }
  explicit_bzero(message.data(), message.size()); // it may hold a track 2
}

// One call of the library. The answer buffer is cleared before, so that what it holds after is of this call.
void Session::Call(tString* message, Answer& answer) {
  memset(answer.mcBuffer, 0, sizeof answer.mcBuffer);
  if (message) fExchange = true;
  char* request = message ? message->data() : nullptr;
  int result = poLibrary->procDo(pvHandle, request, answer.mcBuffer, Idle, this);
  answer.Read(result, message != nullptr);
  // After these the library has no exchange open.
  bool over = answer.oKind == Answer::eGood || answer.oKind == Answer::eBad ||
              answer.oKind == Answer::ePause || answer.oWhy == Why::NoModule ||
              answer.oWhy == Why::NoExchange;
  if (over) fExchange = false;
}

// Follows the exchange to its end, block by block.
void Session::Collect(Answer& answer) {
  int empty = 0;
  while (answer.oKind == Answer::eMore) {
    Block block;
    if (block.Read(answer.mcBuffer, sizeof answer.mcBuffer)) {
      empty = 0;
      oExchange.Take(block);
      poListener->Tell(block);
    } else if (++empty == kEmptyAnswers) {
      answer.oKind = Answer::eStopped;
      answer.oWhy = Why::Endless;
      return;
    }
    Call(nullptr, answer);
  }
}

// Nothing was sent only when the very first call was refused, and for a reason that leaves no doubt.
Outcome Session::Finish(const Answer& answer, bool opening) {
  if (fBreakAsked) oExchange.TakeBreak();
  switch (answer.oKind) {
  case Answer::eGood: return oExchange.End(true);
  case Answer::eBad: return oExchange.End(false);
  case Answer::ePause:
    return fBreakAsked ? oExchange.End(false) : oExchange.Stop(Why::Pause, Verdict::Refused, answer.oCode);
  default: break;
  }
  bool sent = !opening || answer.oWhy == Why::Lost || answer.oWhy == Why::Strange;
  return oExchange.Stop(answer.oWhy, sent ? Verdict::Unknown : Verdict::Refused, answer.oCode, answer.oText);
}

bool Session::HasModule() const { return access(poLibrary->ModulePath().c_str(), X_OK) == 0; }

bool Session::BreakWanted() {
  if (!fBreakAsked && poListener->WantsBreak()) fBreakAsked = true;
  return fBreakAsked;
}

// The library's idle callback. The library sends a break request for every answer that is not 0: one will do.
int Session::Idle(void* pvSelf) {
  Session* self = static_cast<Session*>(pvSelf);
  return !self->fBreakAsked && self->BreakWanted();
}

} // namespace zat::client
