// The till's ears during one request: what the terminal says goes to the callbacks, and the receipt is kept.
#pragma once
#include <atomic>

#include "exchange.h"

namespace zat::client {

class Listener {
public:
  // Both must outlive the listener. breakOff: set by whoever wants to break off.
  Listener(const Callbacks& callbacks, const std::atomic<bool>& breakOff)
      : oCallbacks(callbacks), fBreakOff(breakOff) {}

  // Tells what a block of the answer says, or how things stand.
  void Tell(Block& block);
  void Tell(Status status, const tString& text = tString());

  // From now on `seen` (null: nobody) is shown every block before the callbacks hear of it.
  void ShowTo(std::function<void(Block&)> seen) { procSeen = std::move(seen); }

  // Asks the till whether to break off.
  bool WantsBreak();

  // Moves what was heard into the outcome of the request.
  void GiveTo(Outcome& outcome);

private:
  template<class Call> void Guard(Call call);

  const Callbacks& oCallbacks;
  const std::atomic<bool>& fBreakOff;
  std::vector<ReceiptLine> oReceipt;
  std::exception_ptr oThrown;
  std::function<void(Block&)> procSeen;
};

} // namespace zat::client
