// The log told as exchanges: which request a till sent, what the terminal module answered, how it ended.
//
// The lines of several processes are mixed, and one process may have several sessions. A line belongs to its process;
// in it, to the session that the last call was for ("[eftp_do] in: <handle> ...", log level H) or whose terminal id the
// message names; else to the exchange that went on last.
#pragma once
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "dissect.h"
#include "logfile.h"
#include "zat_client.h"

namespace zat::tool {

// How an exchange ended. Failures are all from eResDeclined on.
//   X(constant, name, text)
#define EXCHANGE_RESULTS(X)                                                                                  \
  X(eResApproved, "approved", "approved")                                                                    \
  X(eResDone, "done", "done")                                                                                \
  X(eResRunning, "running", "still running")                                                                 \
  X(eResDeclined, "declined", "declined")                                                                    \
  X(eResBroken, "brokenOff", "broken off")                                                                   \
  X(eResRefused, "refused", "refused")                                                                       \
  X(eResNotStarted, "notStarted", "not started")                                                             \
  X(eResEarly, "tooEarly", "too early")                                                                      \
  X(eResUnknown, "unknown", "OUTCOME UNKNOWN")

enum tExchangeResult : uint8_t {
#define EXCHANGE_CONSTANT(constant, name, text) constant,
  EXCHANGE_RESULTS(EXCHANGE_CONSTANT)
#undef EXCHANGE_CONSTANT
};

const char* ResultName(tExchangeResult oResult); // for machines
const char* ResultText(tExchangeResult oResult); // for people

// What happened at one moment.
enum tEventKind : uint8_t {
  eEvStart,
  eEvRequest,
  eEvStatus,
  eEvAnswer,
  eEvPrint,
  eEvBreak,
  eEvTrouble,
  eEvEnd
};
const char* EventName(tEventKind oKind);

struct tEvent {
  time_t oWhen;
  tEventKind oKind;
  tString oText; // UTF-8, printable, without card numbers; empty when the message says it all
  std::optional<tDissected> oMessage; // its values unmasked: only through FieldText
};

struct tExchange {
  time_t oBegin = 0, oLast = 0;
  uint32_t ulProcess = 0;
  tString oHandle;         // of the session; empty below log level H
  tString oTid;            // 10 characters; empty when no line names it
  tString oWorkId;         // of the request, two characters
  bool fBeginning = false; // its first line is there
  bool fSent = false;      // the request went to the module
  bool fEnded = false;     // the module's end block came
  bool fLost = false;      // the library gave up waiting
  bool fEarly = false;     // refused because the pause after the previous request was not over
  bool fClosed = false;    // no line can be added any more
  std::deque<tEvent> oEvents;

  tExchangeResult Result(time_t oNow) const;
  // What a person should know beside the result: a refusal's text, the lock that was taken. UTF-8, may be empty.
  tString Reason() const;
  // The amount of the request; nothing for requests without one.
  std::optional<zat::Amount> Amount() const;
};

// The operation's name for people: "sale".
tString OperationText(const tExchange& oExchange);

// A field's value for people: masked, UTF-8, printable.
tString FieldText(const tFoundField& oField);

// Terminal ids are told apart without leading zeros, as client ids are.
tString WithoutZeros(tString oTid);

// Puts lines together. Exchanges come out in the order of their beginnings.
class Exchanges {
public:
  void Take(const tRecord& oRecord);

  // Those that nothing will be added to any more: ended, given up, or silent for longer than any wait lasts. All of
  // them when fAll is set.
  std::vector<std::shared_ptr<tExchange>> TakeReady(time_t oNow, bool fAll);

private:
  struct tProcess {
    std::vector<std::shared_ptr<tExchange>> oOpen;
    std::shared_ptr<tExchange> oNow; // the one that lines belong to
    tString oHandle;                 // session of the last call
    tString oHeader;                 // of the request in that call, before its exchange has begun
  };
  std::shared_ptr<tExchange> Begin(tProcess& oProcess, const tRecord& oRecord, time_t oWhen, bool fBeginning);
  std::shared_ptr<tExchange> OwnerOf(tProcess& oProcess, const tString& oTid) const;
  void Add(tProcess& oProcess, time_t oWhen, tEventKind oKind, const tString& oText);
  void TakeMessage(tProcess& oProcess, const tRecord& oRecord, time_t oWhen, tEventKind oKind,
                   std::string_view oBytes);
  void TakeDayLine(tProcess& oProcess, time_t oWhen, std::string_view oText);
  void TakeCall(tProcess& oProcess, std::string_view oText);
  void TakeStarted(tProcess& oProcess, time_t oWhen, std::string_view oText);
  void TakeLine(tProcess& oProcess, const tRecord& oRecord, time_t oWhen);
  void Close(tProcess& oProcess, const std::shared_ptr<tExchange>& oExchange);

  std::map<uint32_t, tProcess> oProcesses;
  std::deque<std::shared_ptr<tExchange>> oAll;
};

// "2026-11-21 14.03.59" as a time of this machine's zone; -1 for anything else.
time_t LogTime(std::string_view oWhen);

} // namespace zat::tool
