// The journal of payments beside the installation: whether tills can write it, and what nobody knows yet.
#include <algorithm>

#include <fmt/format.h>
#include <unistd.h>

#include "doctor.h"
#include "journal.h"
#include "recordedroad.h"
#include "timeline.h"

namespace zat::tool {

namespace {

void CheckUnknown(Findings& found, const client::Entries& entries) {
  const auto unknown = [](const client::Entry& entry) { return entry.IsUnknown(); };
  const auto first = std::find_if(entries.begin(), entries.end(), unknown);
  const auto count = std::count_if(first, entries.end(), unknown);
  if (count == 0)
    return found.Ok("journal", fmt::format("every outcome is known, of {} entries", entries.size()));
  const tString since =
      first->fKnown ? "since " + TimeText(first->oWhen) : "one of them lost in a damaged file";
  found.Warn("journal", fmt::format("outcome unknown: {}, {}", count, since),
             "zat_till recover asks the terminal for them");
}

} // namespace

void CheckJournal(Findings& oFound) {
  const tString name = client::JournalOf(oFound.oRoot + "BIN/libzat_ms.so");
  if (access(name.c_str(), F_OK) != 0)
    return oFound.Ok("journal", "no payment was recorded yet");
  client::JournalState state;
  client::Journal journal(name);
  if (!journal.Read(state))
    return oFound.Problem("journal", fmt::format("{} cannot be read: {}", name, journal.Fault()),
                          "give it to the till's user with chown: without it payments are refused");
  if (access(name.c_str(), W_OK) != 0)
    oFound.Problem("journal", name + " cannot be written",
                   "give it to the till's user with chown: payments are refused");
  if (state.fDamaged)
    oFound.Warn("journal", name + " is damaged",
                "nothing: the next payment writes it anew and keeps this one as till.jnl.bad");
  CheckUnknown(oFound, state.oEntries);
}

} // namespace zat::tool
