#include "ledger.h"

#include <algorithm>
#include <map>
#include <thread>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "charset.h"
#include "entrytext.h"
#include "linksession.h"
#include "recordedroad.h"
#include "texts.h"

namespace zat::till {
namespace {

using client::Entries;
using client::Entry;
using client::Fate;
using client::Ground;
using client::Journal;
using client::JournalState;
using client::Ruling;

constexpr size_t kShown = 10; // entries that are over, when not all are wanted
constexpr auto kBusyPause = std::chrono::milliseconds(200);

// ---- what all three have in common ----

int Fail(const Order& order, Screen& screen, const tString& why) {
  Report report;
  report.oCommand = order.oCommand;
  report.oOutcome.verdict = Verdict::Refused;
  report.oMessage = why;
  if (order.fJson)
    screen.Print(ForMachines(report) + "\n");
  else
    screen.Remark(why);
  return ExitCode(Verdict::Refused);
}

int FailToRead(const Order& order, Screen& screen, const Journal& journal) {
  return Fail(order, screen, Say(Text::JournalUnreadable, journal.Name(), journal.Fault()));
}

void RemarkDamage(const Order& order, Screen& screen, const Journal& journal, const JournalState& state) {
  if (journal.WasMended())
    screen.Remark(Say(Text::JournalMended, journal.Name()));
  else if (state.fDamaged)
    screen.Remark(Say(Text::JournalDamaged, order.oTill.journal));
}

void PrintJson(Screen& screen, const nlohmann::json& object) {
  screen.Print(object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

// ---- asking ----

// A terminal as the journal knows it.
struct Terminal {
  tString oTid, oPlace;
  auto operator<=>(const Terminal&) const = default;
};
Terminal TerminalOf(const Entry& entry) { return {entry.oIntent.oTid, entry.oIntent.oRoad}; }

struct Answer {
  client::Told oTold;
  Outcome oOutcome;
  tString oWhy; // in words, why the answer is none
};

client::Told ToldBy(const Outcome& outcome, bool noReference) {
  const bool answered = outcome.verdict == Verdict::Approved || outcome.verdict == Verdict::Declined;
  if (answered && outcome.response) {
    const Response& response = *outcome.response;
    const time_t when = client::TerminalTime(response.dateTime);
    if (when == 0) return {};
    const auto kopecks = static_cast<uint64_t>(response.amount.inKopecks());
    return {client::Told::ePayment, kopecks, response.rrn, response.code, when};
  }
  return {outcome.verdict == Verdict::Declined && noReference ? client::Told::eNone : client::Told::eNothing,
          0, "", "", 0};
}

class Recovery {
public:
  Recovery(const Order& order, Screen& screen)
      : oOrder(order), oScreen(screen), oJournal(order.oTill.journal) {}

  int Work();

private:
  struct Found {
    Entry oEntry; // as it is now
    Ruling oRuling;
    tString oWhy;
    std::vector<ReceiptLine> oReceipt; // of a payment that was made, whose receipt was lost with its outcome
  };

  bool IsAsked(const Entry& entry) const { return oOrder.oTid.empty() || entry.oIntent.oTid == oOrder.oTid; }
  void AskAbout(const Entries& entries);
  Answer Ask(const Terminal& terminal, const tString& ref) const;
  Answer AskOnce(const Terminal& terminal, const tString& ref) const;
  void Close(const Entries& asked, const std::map<tString, Answer>& answers);
  Found CloseOne(const client::Question& question, const Entry& entry, const Answer& answer);
  void TellMachines(std::ptrdiff_t open, int code);
  void TellPeople(std::ptrdiff_t open);

  const Order& oOrder;
  Screen& oScreen;
  Journal oJournal;
  std::vector<Found> oFound;
};

// Where the journal says that the terminal is, unless that has moved: a link that is given stands for every recorded
// link, and the library of this order for one that is not there any more.
Answer Recovery::AskOnce(const Terminal& terminal, const tString& ref) const {
  TillOptions options = oOrder.oTill;
  options.terminal = terminal.oTid;
  options.journal.clear();
  std::unique_ptr<Till> till;
  Answer answer;
  if (client::IsLink(terminal.oPlace)) {
    const tString& place = oOrder.oLink.empty() ? terminal.oPlace : oOrder.oLink;
    till = TillByLink(options, place, answer.oWhy);
    if (!till) answer.oWhy = Say(Text::LinkClosed, place, answer.oWhy);
  } else {
    if (access(terminal.oPlace.c_str(), F_OK) == 0) options.library = terminal.oPlace;
    till = std::make_unique<Till>(options);
    answer.oWhy = Explain(till->loadFault(), options.library, till->loadDetail());
  }
  if (!answer.oWhy.empty()) return answer;
  bool noReference = false;
  Callbacks callbacks;
  callbacks.status = [&](Status status, const tString&) { noReference |= status == Status::NoReference; };
  answer.oOutcome = ref.empty() ? till->lastTransaction(callbacks) : till->transaction(ref, callbacks);
  answer.oTold = ToldBy(answer.oOutcome, noReference);
  answer.oWhy = Explain(answer.oOutcome);
  return answer;
}

// The module of the till that was killed may still be at work: its terminal id is free when it has ended, and only then
// its word is final.
Answer Recovery::Ask(const Terminal& terminal, const tString& ref) const {
  const auto limit = std::chrono::steady_clock::now() + oOrder.oTill.pause;
  Answer answer = AskOnce(terminal, ref);
  while (answer.oOutcome.why == Why::NoModule && std::chrono::steady_clock::now() < limit) {
    oScreen.Live(Say(Text::WaitsForModule));
    std::this_thread::sleep_for(kBusyPause);
    answer = AskOnce(terminal, ref);
  }
  return answer;
}

Recovery::Found Recovery::CloseOne(const client::Question& question, const Entry& entry,
                                   const Answer& answer) {
  Found found = {entry, Judge(question, entry, answer.oTold), "", {}};
  const client::Ending& ending = found.oRuling.oEnding;
  found.oWhy = Explain(found.oRuling.oGround);
  if (found.oRuling.oGround == Ground::NoAnswer) found.oWhy += " " + answer.oWhy;
  if (ending.oFate == Fate::Unknown) return found;
  if (!oJournal.Settle(entry.uNumber, ending)) {
    found.oWhy = Say(Text::JournalUnwritable, oJournal.Name(), oJournal.Fault());
    return found;
  }
  found.oEntry.oEnding = ending;
  found.oEntry.oTold = question.oNow;
  if (ending.oFate == Fate::Approved) found.oReceipt = answer.oOutcome.receipt;
  return found;
}

// The journal is read again after the answers: a payment that they are about has been begun before, and is in there.
// Those that became unknown only since are left for the next time, the answers are too old for them.
void Recovery::Close(const Entries& asked, const std::map<tString, Answer>& answers) {
  JournalState state;
  if (!oJournal.Read(state)) return;
  const Terminal terminal = TerminalOf(asked.front());
  std::erase_if(state.oEntries, [&](const Entry& entry) { return TerminalOf(entry) != terminal; });
  const client::Question question = {&state.oEntries, time(nullptr), !client::IsLink(terminal.oPlace)};
  for (const Entry& entry : state.oEntries) {
    const bool was = std::any_of(asked.begin(), asked.end(),
                                 [&](const Entry& other) { return other.uNumber == entry.uNumber; });
    if (!was || !entry.IsUnknown()) continue;
    const auto answer = answers.find(client::ReferenceOf(entry));
    oFound.push_back(CloseOne(question, entry, answer == answers.end() ? Answer() : answer->second));
  }
}

// The entries are of one terminal.
void Recovery::AskAbout(const Entries& entries) {
  std::map<tString, Answer> answers;
  for (const Entry& entry : entries) {
    const tString ref = client::ReferenceOf(entry);
    if (client::CanBeAsked(entry) && !answers.count(ref)) answers[ref] = Ask(TerminalOf(entry), ref);
  }
  Close(entries, answers);
}

int Recovery::Work() {
  JournalState state;
  if (!oJournal.Read(state)) return FailToRead(oOrder, oScreen, oJournal);
  std::map<Terminal, Entries> terminals;
  for (const Entry& entry : UnknownOf(state.oEntries))
    if (IsAsked(entry)) terminals[TerminalOf(entry)].push_back(entry);
  for (const auto& [terminal, entries] : terminals) AskAbout(entries);
  oScreen.Live("");
  RemarkDamage(oOrder, oScreen, oJournal, state);
  const auto open = std::count_if(oFound.begin(), oFound.end(), [](const Found& found) {
    return found.oEntry.oEnding.oFate == Fate::Unknown;
  });
  const int code = ExitCode(open ? Verdict::Unknown : Verdict::Done);
  if (oOrder.fJson)
    TellMachines(open, code);
  else
    TellPeople(open);
  return code;
}

void Recovery::TellMachines(std::ptrdiff_t open, int code) {
  nlohmann::json entries = nlohmann::json::array();
  for (const Found& found : oFound) {
    nlohmann::json object = JsonOf(found.oEntry);
    object.update({{"ground", NameOf(found.oRuling.oGround)},
                   {"message", found.oWhy},
                   {"receipt", JsonReceipt(found.oReceipt)}});
    entries.push_back(object);
  }
  PrintJson(oScreen, {{"command", oOrder.oCommand},
                      {"journal", oJournal.Name()},
                      {"unknown", open},
                      {"exitCode", code},
                      {"entries", entries}});
}

void Recovery::TellPeople(std::ptrdiff_t open) {
  tString out;
  for (const Found& found : oFound) {
    for (const ReceiptLine& line : found.oReceipt) out += line.text + (line.last ? "\n\n" : "\n");
    out += LineOf(found.oEntry, oScreen.Width()) + "       " + found.oWhy + "\n";
  }
  oScreen.Print(oFound.empty() ? tString(Say(Text::NothingUnknown)) + "\n" : out);
  if (open) oScreen.Remark(Say(Text::AdviceSettle));
}

} // namespace

int Recover(const Order& order, Screen& screen) { return Recovery(order, screen).Work(); }

int ShowJournal(const Order& order, Screen& screen) {
  Journal journal(order.oTill.journal);
  JournalState state;
  if (!journal.Read(state)) return FailToRead(order, screen, journal);
  Entries& entries = state.oEntries;
  if (!order.oTid.empty())
    std::erase_if(entries, [&](const Entry& entry) { return entry.oIntent.oTid != order.oTid; });
  const auto over = std::stable_partition(
      entries.begin(), entries.end(), [](const Entry& entry) { return entry.fRunning || entry.IsUnknown(); });
  const size_t open = static_cast<size_t>(over - entries.begin()), unknown = UnknownOf(entries).size();
  if (!order.fAll && entries.size() > open + kShown)
    entries.erase(over, entries.end() - static_cast<std::ptrdiff_t>(kShown));
  RemarkDamage(order, screen, journal, state);
  if (order.fJson) {
    nlohmann::json list = nlohmann::json::array();
    for (const Entry& entry : entries) list.push_back(JsonOf(entry));
    PrintJson(screen, {{"command", order.oCommand},
                       {"journal", journal.Name()},
                       {"damaged", state.fDamaged},
                       {"unknown", unknown},
                       {"entries", list}});
    return ExitCode(Verdict::Done);
  }
  tString out;
  for (const Entry& entry : entries) out += LineOf(entry, screen.Width());
  screen.Print(out.empty() ? tString(Say(Text::JournalEmpty)) + "\n" : out);
  return ExitCode(Verdict::Done);
}

int Settle(const Order& order, Screen& screen) {
  Journal journal(order.oTill.journal);
  JournalState state;
  if (!journal.Read(state)) return FailToRead(order, screen, journal);
  const auto found = std::find_if(state.oEntries.begin(), state.oEntries.end(), [&](const Entry& entry) {
    return entry.uNumber == order.uNumber && entry.IsUnknown();
  });
  if (found == state.oEntries.end()) return Fail(order, screen, Say(Text::NotOpen, order.uNumber));
  found->oEnding.oFate = order.fPaid ? Fate::Approved : Fate::NotMade;
  found->oEnding.oSource = client::Source::Person;
  found->oTold = time(nullptr);
  if (!journal.Settle(order.uNumber, found->oEnding))
    return Fail(order, screen, Say(Text::JournalUnwritable, journal.Name(), journal.Fault()));
  RemarkDamage(order, screen, journal, state);
  if (order.fJson)
    PrintJson(screen,
              {{"command", order.oCommand}, {"journal", journal.Name()}, {"entries", {JsonOf(*found)}}});
  else
    screen.Print(LineOf(*found, screen.Width()));
  return ExitCode(Verdict::Done);
}

} // namespace zat::till
