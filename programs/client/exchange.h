// What one exchange with the terminal comes to. The blocks of the answer are fed in as they arrive, and at
// the end there is one result. The rule behind everything here: "approved" is said only when an approving
// response came and the exchange then ended well; where money may have moved unseen, the outcome is unknown.
#pragma once
#include "request.h"

namespace zat::client {

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
  Outcome End(bool good) const;

  // The exchange stops for another reason than the terminal's end; the caller knows what became of the money.
  Outcome Stop(Why why, Verdict verdict, const tString& code = tString(),
               const tString& text = tString()) const;

private:
  enum Said { eNone, eApproving, eDeclining, eBroken, eRefusal };

  void TakeResponse(Block& block);
  void TakeRefusal(Block& block);

  tEFTPWorkId oAsked;
  bool fBreak = false, fTooLate = false; // asked for, and declined by the terminal
  Said oSaid = eNone;
  Outcome oSoFar; // ground, code, text and response as they are known
};

} // namespace zat::client
