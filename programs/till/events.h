// What a session asks for and what it tells its owner, whichever way it reaches the terminal.
#pragma once
#include <functional>

#include "exchange.h"
#include "zat_ms.h"

namespace zat::till {

// How the terminal module is getting on. The enumerators from Ok on are blocks of the answer.
enum class Status {
  Connecting, // the request is on its way, nothing has come back yet
  Pause,      // the pause after the previous request is being waited out
  Ok,         // "50"
  NotLoggedIn,
  Pin,
  Online,
  NoReference,
  Hold,
  Confirm, // "5M", with the terminal's text
  Info,    // "36", with its text
  Break,   // "34": broken off
  NoBreak, // "34": it is too late for that, the operation goes on
};

// What the owner of a session wants to hear. Every member may be empty. They are called on the thread that
// runs the request and must not throw.
struct Events {
  // A line of the receipt, UTF-8; last is set on the last line of a slip (a receipt may have several slips).
  std::function<void(const tString& line, bool last)> oLine;

  // A change of status, with the terminal's text (UTF-8) where it sends one.
  std::function<void(Status status, const tString& text)> oStatus;

  // Any other block of the answer: its two characters and its data, UTF-8. Card data in it are masked.
  std::function<void(const tString& workId, const tString& data)> oOther;

  // Asked about once a millisecond while the library waits, if its settings let it: true asks the terminal to
  // break off. The answer true is acted upon once in an exchange.
  std::function<bool()> oBreak;
};

struct Request {
  tEFTPWorkId oId = eEFTPwidNone;
  tString oTid;         // up to 10 characters; the wire has zeros on its left
  tString oData;        // as the wire has them: at most kMaxData bytes, and not 255
  int iPauseLimit = 60; // seconds that a pause between two requests is waited for; 0: refuse at once
};

// False when no message can be made of the request: nothing of it reaches the terminal then.
bool CanBeSent(const Request& request);

// Tells the owner of a session what a block of the answer says, or how things stand.
void Tell(const Events& events, Block& block);
void Tell(const Events& events, Status status, const tString& text = tString());

constexpr size_t kMaxData = ZAT_MS_BUFFER - ZAT_MS_HEADER;
constexpr size_t kImpossibleData = 255; // a header with this length stands for a message without data

} // namespace zat::till
