// A till in C++: takes one payment.  till_cpp AMOUNT [LIBRARY], for example till_cpp 1250.00; Ctrl-C breaks it off.
// Ends with 0 when it is paid, 1 when it is not, and 5 when nobody knows.
#include <csignal>
#include <iostream>
#include <zat_client.h>

namespace {

enum { kPaid, kNotPaid, kUnknown = 5 };

zat::Till* poRunning = nullptr;

// Never pay again before an unknown outcome is cleared up. First the answer may only be late; then the terminal says
// what it did last, which a cashier compares with the payment in question.
zat::Outcome clearUp(zat::Till& till, zat::Outcome outcome) {
  if (outcome.why == zat::Why::Lost) outcome = till.resume();
  if (outcome.verdict != zat::Verdict::Unknown) return outcome;
  till.reopen();
  zat::Outcome last = till.lastTransaction();
  std::cout << "UNKNOWN. The last payment that the terminal knows: ";
  if (last.response)
    std::cout << last.response->amount.text() << ", reference number " << last.response->rrn << ", "
              << last.response->dateTime << "\n";
  else
    std::cout << "it cannot say (" << name(last.why) << " " << last.text << ")\n";
  return outcome;
}

} // namespace

int main(int argc, char** argv) {
  zat::TillOptions options;
  if (argc > 2) options.library = argv[2];
  std::optional<zat::Amount> amount = argc > 1 ? zat::Amount::parse(argv[1]) : std::nullopt;
  if (!amount) {
    std::cerr << "usage: till_cpp AMOUNT [LIBRARY]\n";
    return kNotPaid;
  }
  zat::Till till(options);
  poRunning = &till;
  std::signal(SIGINT, [](int) { poRunning->breakOff(); });

  zat::Callbacks callbacks;
  callbacks.line = [](const std::string& text, bool) { std::cout << text << std::endl; };
  callbacks.status = [](zat::Status status, const std::string& text) {
    std::cerr << "[" << name(status) << " " << text << "]\n";
  };
  zat::Outcome outcome = till.sale(*amount, callbacks);
  if (outcome.verdict == zat::Verdict::Unknown) outcome = clearUp(till, outcome);
  std::cout << name(outcome.verdict) << ": " << name(outcome.why) << " " << outcome.code << " "
            << outcome.text << "\n";
  return outcome.good() ? kPaid : outcome.verdict == zat::Verdict::Unknown ? kUnknown : kNotPaid;
}
