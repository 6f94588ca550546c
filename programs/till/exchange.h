// What one exchange with the terminal comes to. The blocks of the answer are fed in as they arrive, and at
// the end there is one result. The rule behind everything here: "approved" is said only when an approving
// response came and the exchange then ended well; where money may have moved unseen, the outcome is unknown.
#pragma once
#include <cstdint>

#include "EFTPWork.h"
#include "ztypes.h"

namespace zat::till {

enum class Outcome {
  Approved, // an approving response, and a good end
  Done,     // a good end of an operation that has no response of a bank: login, totals, end of day
  Declined, // the bank or the terminal said no
  Usage,    // the request itself is wrong: nothing was done
  Aborted,  // ended without a decision: broken off, cancelled at the terminal
  Refused,  // nothing has reached the terminal
  Unknown,  // it may have been carried out
};

// The ground of an outcome.
enum class Why {
  Response,      // the response code of the bank decides
  Refusal,       // a refusal of the terminal ("5X")
  NotLoggedIn,   // status "51"
  NoReference,   // status "54"
  Ended,         // a bad end without a word before
  GoodEnd,       // a good end of an operation that has no response
  Break,         // a bad end after a break request that the library took
  NoResponse,    // a good end of a payment without a response
  Broken,        // a response that cannot be read
  Contradiction, // an approving response and a bad end
  Endless,       // the library returns one empty answer after another
  Unfinished,    // an earlier exchange of the session has not ended
  BadRequest,    // no message can be made of the request
  ModuleMissing, // there is no terminal module to start
  Pause,         // the pause after the previous request is not over
  Lost,          // "XL", and so on: the reasons of the library
  Handle,
  State,
  Command,
  NoExchange,
  OtherId,
  Pipes,
  Nested,
  NoModule,
  NoLibrary, // no library could be loaded
  NoLink,    // the terminal's link could not be opened
  Left,      // the till did not wait for the end
  Strange,   // a result that no table has
};

// The response of the bank, block "60". Texts are UTF-8 without the blanks that fill their fields.
struct Response {
  uint64_t ulKopecks = 0;
  tString oOperation, oCurrency, oDateTime, oMerchant, oRrn, oCode, oAuth;
  tString oCard; // the number with all but its last four characters masked
  tString oCardType, oText, oAdditional;
};

// One text of a response: the name it has in documents (JSON) and its place.
struct ResponseField {
  const char* pccName;
  const char* const* ppccTag;
  tString Response::*poText;
};
extern const ResponseField moResponseFields[11];

struct Result {
  Outcome oOutcome = Outcome::Unknown;
  Why oWhy = Why::Strange;
  tString oCode; // of the bank, of the terminal, or the reason of the library ("X8")
  tString oText; // the words that came with the code, UTF-8
  bool fResponse = false;
  Response oResponse;
};

// One message of an answer.
struct Block {
  tEFTPWorkId oId = eEFTPwidNone; // the internal variant where the data make it one: the last print line ...
  bool fWhole = false;            // its data are complete and well-formed
  tString oData;                  // as they stand on the wire
  SqueezeT oFields;               // what could be read of them

  // Takes the message that stands in a buffer of the given size. False when there is no whole header.
  bool Read(const char* buffer, size_t size);

  // The value of a field in the bytes of the wire; "" when the message does not have it.
  tString Field(const char* tag);
};

class Exchange {
public:
  explicit Exchange(tEFTPWorkId asked) : oAsked(asked) {}

  void Take(Block& block);            // the next block of the answer
  void TakeBreak() { fBreak = true; } // the library took the break request of the till

  // The exchange is over, well or badly.
  Result End(bool good) const;

  // The exchange stops for another reason than the terminal's end; the caller knows what became of the money.
  Result Stop(Why why, Outcome outcome, const tString& code = tString(),
              const tString& text = tString()) const;

private:
  enum Verdict { eNone, eApproving, eDeclining, eBroken, eRefusal };

  void TakeResponse(Block& block);
  void TakeRefusal(Block& block);
  bool NeedsResponse() const;

  tEFTPWorkId oAsked;
  bool fBreak = false, fTooLate = false; // asked for, and declined by the terminal
  Verdict oVerdict = eNone;
  Result oSoFar; // ground, code, text and response as they are known
};

} // namespace zat::till
