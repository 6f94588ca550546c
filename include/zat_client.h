// zat_client.h - card payments for a till in C++: the typed client of libzat_ms.so.
//
//   zat::Till till;                                                  // the installed library, terminal 1
//   zat::Outcome outcome = till.sale(zat::Amount{1250, 0});          // 1250.00; returns when it is over
//   for (const zat::ReceiptLine& line : outcome.receipt) print(line.text);
//   if (outcome.verdict == zat::Verdict::Approved) handOver(outcome.response->rrn);
//   if (outcome.verdict == zat::Verdict::Unknown) askBeforePayingAgain();
//
// C++17, and of headers only the standard library's. Link with libzat_client.a (CMake: find_package(zat_ms), target
// zat_ms::zat_client). The program need not be linked with libzat_ms.so: a Till loads it.
//
// Texts are UTF-8, whatever the protocol has. Amounts are whole kopecks from end to end.
//
// Errors are values. Nothing here throws but Amount's constructors (std::out_of_range, an amount that cannot be) and
// memory exhaustion (std::bad_alloc). A library that is missing is an outcome too: see Till.
//
// Threads. The library works for one thread at a time: all calls of a process, of whatever Till, must be made one at
// a time. Till::breakOff is the exception, it may be called from anywhere.
#ifndef ZAT_CLIENT_H
#define ZAT_CLIENT_H

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace zat {

// ---- amounts --------------------------------------------------------------------------------------------------

// What is wrong with a written amount.
enum class AmountFault {
  None,
  NotANumber, // anything but digits with at most one point or comma between digits
  Negative,
  Decimals, // more than two digits behind the point
  TooLarge, // above 9999999999.99
};

// A sum of money: 0.00 to 9999999999.99 roubles, held as a whole number of kopecks.
class Amount {
public:
  static constexpr std::int64_t kMaxKopecks = 999'999'999'999;

  // Nothing: 0.00.
  constexpr Amount() noexcept = default;

  // Roubles (0 to 9999999999) and kopecks (0 to 99). Throws std::out_of_range for anything else.
  constexpr Amount(std::int64_t roubles, int kopecks)
      : llKopecks(InRange(roubles, kMaxKopecks / 100) * 100 + InRange(kopecks, 99)) {}

  // 12.5 has no place here: it is not the number that it looks like.
  template<class R, class K,
           std::enable_if_t<std::is_floating_point_v<R> || std::is_floating_point_v<K>, int> = 0>
  Amount(R, K) = delete;

  // Kopecks alone, 0 to kMaxKopecks. Throws std::out_of_range for anything else.
  static constexpr Amount ofKopecks(std::int64_t kopecks) {
    Amount amount;
    amount.llKopecks = InRange(kopecks, kMaxKopecks);
    return amount;
  }

  // Reads "1250", "1250.5", "1250.50" or "1250,50". Digits and one point or comma with one or two digits behind it;
  // no blanks, signs or groups. Empty for any other text, with the reason in *fault unless that is null (None with
  // an amount).
  static std::optional<Amount> parse(std::string_view text, AmountFault* fault = nullptr);

  constexpr std::int64_t roubles() const noexcept { return llKopecks / 100; }
  constexpr int kopecks() const noexcept { return static_cast<int>(llKopecks % 100); }
  constexpr std::int64_t inKopecks() const noexcept { return llKopecks; }

  // "1250.50", always two decimals and a point. parse reads it back.
  std::string text() const;

  friend constexpr bool operator==(Amount a, Amount b) noexcept { return a.llKopecks == b.llKopecks; }
  friend constexpr bool operator!=(Amount a, Amount b) noexcept { return a.llKopecks != b.llKopecks; }
  friend constexpr bool operator<(Amount a, Amount b) noexcept { return a.llKopecks < b.llKopecks; }
  friend constexpr bool operator>(Amount a, Amount b) noexcept { return b < a; }
  friend constexpr bool operator<=(Amount a, Amount b) noexcept { return !(b < a); }
  friend constexpr bool operator>=(Amount a, Amount b) noexcept { return !(a < b); }

private:
  static constexpr std::int64_t InRange(std::int64_t value, std::int64_t max) {
    return value >= 0 && value <= max ? value : throw std::out_of_range("zat::Amount");
  }

  std::int64_t llKopecks = 0;
};

// ---- what a request comes to ----------------------------------------------------------------------------------

// The seven ways out. A till must know them all; the first two are the good ones.
//
// Never repeat an operation that came to Unknown before it is cleared up: the card holder would pay twice. When it is
// so because of Why::Lost, Till::resume may still bring the answer. After Till::reopen the terminal can be asked with
// Till::transaction or Till::lastTransaction.
enum class Verdict {
  Approved,   // the bank approved and the exchange ended well: the money has moved
  Done,       // a good end of an operation without a bank's response: login, totals, end of day
  Declined,   // the bank or the terminal said no: nothing was paid
  Aborted,    // ended without a decision, broken off or cancelled at the terminal: nothing was paid
  Refused,    // the library or the client refused: nothing has reached the terminal
  BadRequest, // the request itself is wrong (Outcome::text says where): nothing has reached the terminal
  Unknown,    // the operation may have been carried out
};

// Why it came so.
enum class Why {
  Response,      // the bank's response code decides: Outcome::code and text
  Refusal,       // the terminal refused: Outcome::code and text
  NotLoggedIn,   // the terminal is not logged in: Till::login
  NoReference,   // the terminal has no operation with this reference number
  Ended,         // a bad end without a word before: cancelled at the terminal
  GoodEnd,       // a good end of an operation that has no response
  Break,         // broken off at the till's request
  NoResponse,    // unknown: a good end of a payment, but no response came
  Broken,        // unknown: a response that cannot be read
  Contradiction, // unknown: an approving response, and then a bad end
  Endless,       // unknown: the library returns one empty answer after another
  Unfinished,    // refused: an earlier operation has not ended. Till::resume or Till::reopen
  BadRequest,    // no message can be made of the request
  ModuleMissing, // refused: the terminal module zat_mm is not beside the library, or is not executable
  Pause,         // refused: the pause after the previous request is not over (TillOptions::pause)
  Lost,          // unknown: the terminal module died or fell silent ("XL")
  Handle,        // the library could not make a session, or does not know it any more ("X1", "XB")
  State,         // the library's session refuses requests ("X2")
  Command,       // the library does not know the operation ("X3")
  NoExchange,    // the library says that no exchange is open ("X4")
  OtherId,       // an exchange with another terminal id is open ("X5")
  Pipes,         // the pipes to the terminal module cannot be made ("X6")
  Nested,        // the library is at work already: a call from inside a callback ("X7")
  NoModule,      // the module could not be started: another till uses this terminal id, or an update is being
                 // installed ("X8")
  NoLibrary,     // refused: the library could not be loaded, see Till::loadFault
  NoJournal,     // refused: the payment could not be recorded first, see TillOptions::journal
  Strange,       // unknown: a result of the library that has no meaning
};

// The names of the enumerators for logs and documents, those of the JSON of zat_till: "approved", "lost"; "usage" for
// BadRequest. Never null.
const char* name(Verdict verdict) noexcept;
const char* name(Why why) noexcept;

// The bank's response. Texts without the blanks that fill their fields; empty when the response does not have them.
struct Response {
  Amount amount;
  std::string operation;     // the kind of operation, one character
  std::string currency;      // "643"
  std::string dateTime;      // of the terminal, YYYYMMDDhhmmss
  std::string merchant;      // merchant id
  std::string rrn;           // reference number: what reverse, voidPayment and transaction ask for
  std::string code;          // "00" approves
  std::string authorisation; // authorisation code
  std::string card;          // number of the card, all but its last four digits masked
  std::string cardType;
  std::string text; // for people
  std::string additional;
};

struct ReceiptLine {
  std::string text;
  bool last = false; // of its slip; a receipt may have several slips
};

// What an operation came to. A plain value: keep it, copy it, pass it on.
struct Outcome {
  Verdict verdict = Verdict::Unknown;
  Why why = Why::Strange;
  std::string code; // of the bank, of the terminal, or the library's reason ("X8"); often empty
  std::string text; // the words that came with the code, or what is wrong with the request; often empty
  std::optional<Response> response; // also of a declined operation
  std::vector<ReceiptLine> receipt;

  // The first exception that a callback let out; null when none did. The operation went on without that callback's
  // help and this is its outcome all the same.
  std::exception_ptr thrown;

  // What is wrong with the journal (TillOptions::journal), in English; empty: nothing is. The outcome is true all the same.
  std::string journal;

  // True for Approved and Done.
  bool good() const noexcept { return verdict == Verdict::Approved || verdict == Verdict::Done; }
};

// ---- what happens meanwhile -----------------------------------------------------------------------------------

// How the terminal is getting on.
enum class Status {
  Connecting, // the request is on its way, nothing has come back yet
  Pause,      // the pause after the previous request is being waited out
  Ok,
  NotLoggedIn,
  Pin,    // the card holder is asked for the PIN
  Online, // the bank is being asked
  NoReference,
  Hold,
  Confirm, // the terminal has a text to confirm
  Info,    // the terminal has a message
  Break,   // the terminal breaks off
  NoBreak, // it is too late to break off, the operation goes on
};

const char* name(Status status) noexcept;

// What a till may want to hear while an operation runs. Every member may be empty. They are called on the thread that
// runs the operation, they may not start another one on any Till, and they should not throw (see Outcome::thrown).
struct Callbacks {
  // A line of the receipt as it arrives. The same lines come with the outcome.
  std::function<void(const std::string& text, bool last)> line;

  // A change of status, with the terminal's text where it sends one.
  std::function<void(Status status, const std::string& text)> status;

  // Any other block of the answer: its two characters and its data. Card data in it are masked.
  std::function<void(const std::string& workId, const std::string& data)> block;

  // Called about once a millisecond while the library waits: true asks the terminal to break off, once in an
  // operation. The terminal decides: it may go on and approve. Not called any more after that, and only where
  // BREAK=1 stands in section [TILL] of micromgl.cfg.
  std::function<bool()> idle;
};

// ---- the till -------------------------------------------------------------------------------------------------

// The library where the packages put it.
inline constexpr char kInstalledLibrary[] = "/opt/zat_ms/BIN/libzat_ms.so";

struct TillOptions {
  // Path of libzat_ms.so; a bare name means the current directory.
  std::string library = kInstalledLibrary;

  // Handed on to the terminal module as it stands; "": it needs none.
  std::string config;

  // Terminal id, 1 to 10 Latin letters and digits. Tills that work at the same time need different ones.
  std::string terminal = "1";

  // How long the pause between two requests of a session is waited for; 0: too early a request is refused at once.
  std::chrono::seconds pause{60};

  // A file in which every payment is recorded: what is wanted before it goes out, what became of it after, so that a
  // program that is killed in between leaves an entry whose outcome is unknown. "zat_till journal --journal FILE" lists
  // them, "zat_till recover" asks the terminal. Several tills may share one. It holds amounts, times and reference
  // numbers, never a card number. A payment that cannot be recorded is refused. "": nothing is recorded.
  std::string journal;
};

// What kept a Till from having a session.
enum class LoadFault {
  None,
  Missing,    // there is no such file
  Unreadable, // not a shared object, another machine's, or a library that it needs is absent
  Foreign,    // a shared object without the three functions
  NoSession,  // the library could not make a session
};

// Track 2 of a card that the till itself has read, sentinels allowed. The bytes stay the caller's: wipe them after.
struct Track2 {
  std::string_view text;
};

namespace client {
class Road;
}

// One terminal of a shop: a session of the library. Every operation returns when it is over, which takes as long as the
// card holder and the bank take.
//
// One operation at a time: an operation that a callback starts on the same Till is answered with Why::Unfinished.
class Till {
public:
  // Loads the library and makes a session. Does not fail: without a library every operation is answered with
  // Verdict::Refused, Why::NoLibrary (or Handle), and loadFault tells at once. No process is started yet.
  explicit Till(TillOptions options = {});
  Till(std::string library, std::string config);

  // For programs of this project that reach a terminal in another way. options.library and config are not looked at.
  Till(TillOptions options, std::unique_ptr<client::Road> road);

  // Ends the session. Returns at once: where an operation has not ended (Why::Lost) the session is left as it is, the
  // terminal goes on by itself, and the library and the module's process entry stay until the process ends.
  ~Till();
  Till(const Till&) = delete;
  Till& operator=(const Till&) = delete;

  // What kept the Till from having a session, and the loader's words for it (or the function that is missing).
  LoadFault loadFault() const noexcept;
  const std::string& loadDetail() const noexcept;

  // ---- payments: Approved, Declined, Aborted, Refused, BadRequest, Unknown. Amounts are above zero.

  // Takes a payment. With a track 2 the card is the one that the till has read.
  Outcome sale(Amount amount, const Callbacks& callbacks = {});
  Outcome sale(Amount amount, Track2 card, const Callbacks& callbacks = {});

  // Gives money back to a card, without an earlier operation.
  Outcome refund(Amount amount, const Callbacks& callbacks = {});
  Outcome refund(Amount amount, Track2 card, const Callbacks& callbacks = {});

  // Reserves an amount on a card.
  Outcome preauthorise(Amount amount, const Callbacks& callbacks = {});
  Outcome preauthorise(Amount amount, Track2 card, const Callbacks& callbacks = {});

  // Reverses a sale of today: its reference number (Response::rrn, 1 to 12 Latin letters and digits) and its amount.
  Outcome reverse(std::string_view rrn, Amount amount, const Callbacks& callbacks = {});

  // Gives a part of a sale of today back.
  Outcome reversePart(std::string_view rrn, Amount amount, Amount part, const Callbacks& callbacks = {});

  // Voids an operation that is not closed yet.
  Outcome voidPayment(std::string_view rrn, const Callbacks& callbacks = {});

  // ---- questions about payments. Approved or Declined: the terminal has the operation, and the response is what the
  // bank said then. Declined with Why::NoReference: it has none.

  Outcome transaction(std::string_view rrn, const Callbacks& callbacks = {});

  // The last one of the day, whichever that is: only a reference number that the till has not seen yet, with the amount
  // that it asked for, says that a lost payment was made.
  Outcome lastTransaction(const Callbacks& callbacks = {});

  // ---- service: Done where the others are Approved.

  Outcome login(const Callbacks& callbacks = {});
  Outcome totals(const Callbacks& callbacks = {});
  Outcome endOfDay(const Callbacks& callbacks = {});

  // ---- anything else: a work id of two printable ASCII characters, and the data of the message as the wire has them
  // (texts in Windows-1251; at most 2034 bytes, and not exactly 255, a length that the protocol cannot carry).
  Outcome raw(std::string_view workId, std::string_view data, const Callbacks& callbacks = {});

  // Goes on waiting for the answer of an operation that came to Unknown with Why::Lost, up to 30 s for each block: the
  // outcome is that of the operation, Lost again when nothing comes. The receipt begins where the last outcome's ended.
  // Why::NoExchange when nothing is left to wait for; that answer says nothing about money.
  Outcome resume(const Callbacks& callbacks = {});

  // Begins a new session, in which operations can be asked for again; loadFault of it. Waits without a limit until the
  // terminal module of an operation that has not ended is gone, since two of them cannot serve one terminal (at once
  // when it died, which is the usual reason for Why::Lost). Does nothing while an operation runs.
  LoadFault reopen();

  // Asks to break off the operation that is running now; without one it does nothing. From any thread and from a signal
  // handler. Heard where Callbacks::idle would be called; also ends the wait for the pause.
  void breakOff() noexcept;

private:
  struct Impl;
  std::unique_ptr<Impl> poImpl;
};

} // namespace zat

#endif // ZAT_CLIENT_H
