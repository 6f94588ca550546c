// A way to the terminal with a journal: what may move money is recorded before it goes that way, and its outcome after.
#pragma once
#include "journal.h"
#include "road.h"

namespace zat::client {

class RecordedRoad : public Road {
public:
  // The road is not null. journal: the file's name. place: where the road leads, the path of a library or what Place of
  // a link says.
  RecordedRoad(std::unique_ptr<Road> road, const tString& journal, const tString& place);

  // As the road does, but a payment whose intent cannot be brought to the disk is refused with Why::NoJournal and the
  // reason in the outcome's text. Outcome::journal tells what else is wrong with the journal.
  Outcome Run(const Request& request, Listener& listener) override;

  // As the road does; what the answer says is recorded as the outcome of the request before.
  Outcome Resume(Listener& listener) override;
  bool Reopen() override { return poRoad->Reopen(); }
  tString Place() const override { return poRoad->Place(); }

private:
  Outcome RunRecorded(const Request& request, Listener& listener);
  Outcome Follow(Listener& listener, const std::function<Outcome()>& run);

  // The entry of the request whose outcome the road will tell; 0: that is not recorded.
  struct Recorded {
    uint32_t uNumber = 0;
    bool fPayment = false;
  };

  std::unique_ptr<Road> poRoad;
  Journal oJournal;
  tString oPlace; // as the journal has it
  Recorded oAt;
};

// The journal that belongs to an installation, by the path of its library: till.jnl in the installation's root.
tString JournalOf(const tString& library);

// A time of the terminal, YYYYMMDDhhmmss, local; 0 for anything else.
time_t TerminalTime(const tString& text);

// The place of a terminal, as the journal has it, is a link.
bool IsLink(const tString& place);

// A terminal id as the journal has it: without leading zeros, which the wire puts in front of every one.
tString TerminalInJournal(const tString& tid);

} // namespace zat::client
