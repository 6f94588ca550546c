#include "report.h"

#include <nlohmann/json.hpp>

#include "texts.h"

namespace zat::till {
namespace {

// The one table of verdicts and exit codes.
struct ExitRow {
  Verdict oVerdict;
  int iExit;
  Text oTitle, oMeaning;
};
constexpr ExitRow kExits[] = {
    {Verdict::Approved, 0, Text::Approved, Text::ExitApproved},
    {Verdict::Done, 0, Text::Done, Text::ExitDone},
    {Verdict::Declined, 1, Text::Declined, Text::ExitDeclined},
    {Verdict::BadRequest, 2, Text::BadUsage, Text::ExitUsage},
    {Verdict::Aborted, 3, Text::Aborted, Text::ExitAborted},
    {Verdict::Refused, 4, Text::Refused, Text::ExitRefused},
    {Verdict::Unknown, 5, Text::Unknown, Text::ExitUnknown},
};

struct WhyRow {
  Why oWhy;
  Text oText; // its places are the code and the text
};
constexpr WhyRow kWhys[] = {
    {Why::Response, Text::WhyResponse},
    {Why::Refusal, Text::WhyRefusal},
    {Why::NotLoggedIn, Text::StNotLoggedIn},
    {Why::NoReference, Text::StNoReference},
    {Why::Ended, Text::WhyEnded},
    {Why::GoodEnd, Text::WhyGoodEnd},
    {Why::Break, Text::WhyBreak},
    {Why::NoResponse, Text::WhyNoResponse},
    {Why::Broken, Text::WhyBroken},
    {Why::Contradiction, Text::WhyContradiction},
    {Why::Endless, Text::WhyEndless},
    {Why::Unfinished, Text::WhyUnfinished},
    {Why::BadRequest, Text::WhyBadRequest},
    {Why::ModuleMissing, Text::WhyModuleMissing},
    {Why::Pause, Text::WhyPause},
    {Why::Lost, Text::WhyLost},
    {Why::Handle, Text::WhyHandle},
    {Why::State, Text::WhyState},
    {Why::Command, Text::WhyCommand},
    {Why::NoExchange, Text::WhyNoExchange},
    {Why::OtherId, Text::WhyOtherId},
    {Why::Pipes, Text::WhyPipes},
    {Why::Nested, Text::WhyNested},
    {Why::NoModule, Text::WhyNoModule},
    {Why::NoLibrary, Text::LibNoSession},
    {Why::NoJournal, Text::WhyNoJournal},
    {Why::Strange, Text::WhyStrange},
};

struct StatusRow {
  Status oStatus;
  Text oText; // its place is the terminal's text
};
constexpr StatusRow kStatuses[] = {
    {Status::Connecting, Text::Connecting},
    {Status::Pause, Text::StPause},
    {Status::Ok, Text::StOk},
    {Status::NotLoggedIn, Text::StNotLoggedIn},
    {Status::Pin, Text::StPin},
    {Status::Online, Text::StOnline},
    {Status::NoReference, Text::StNoReference},
    {Status::Hold, Text::StHold},
    {Status::Confirm, Text::StConfirm},
    {Status::Info, Text::StInfo},
    {Status::Break, Text::StBreak},
    {Status::NoBreak, Text::StNoBreak},
};

// Every table above has a row for each enumerator.
template<class Row, size_t N, class Key> const Row& Find(const Row (&table)[N], Key Row::*key, Key value) {
  for (const Row& row : table)
    if (row.*key == value) return row;
  return table[N - 1];
}

const ExitRow& Exit(Verdict verdict) { return Find(kExits, &ExitRow::oVerdict, verdict); }

void AddField(tString& out, Text name, const tString& value) {
  if (!value.empty()) out += fmt::format("  {}: {}\n", Say(name), value);
}

tString Ground(const Report& report) {
  return report.oMessage.empty() ? Explain(report.oOutcome) : report.oMessage;
}

// The texts of a response under the names that they have in JSON.
struct ResponseRow {
  const char* pccName;
  tString Response::*poText;
};
constexpr ResponseRow kResponse[] = {{"operation", &Response::operation},
                                     {"currency", &Response::currency},
                                     {"dateTime", &Response::dateTime},
                                     {"merchant", &Response::merchant},
                                     {"rrn", &Response::rrn},
                                     {"code", &Response::code},
                                     {"authorisation", &Response::authorisation},
                                     {"card", &Response::card},
                                     {"cardType", &Response::cardType},
                                     {"text", &Response::text},
                                     {"additional", &Response::additional}};

nlohmann::json JsonResponse(const Response& response) {
  nlohmann::json object = {{"amount", response.amount.text()}};
  for (const ResponseRow& row : kResponse)
    if (const tString& value = response.*row.poText; !value.empty()) object[row.pccName] = value;
  return object;
}

nlohmann::json JsonOthers(const std::vector<Report::Other>& others) {
  nlohmann::json list = nlohmann::json::array();
  for (const Report::Other& other : others)
    list.push_back({{"workId", other.oWorkId}, {"data", other.oData}});
  return list;
}

} // namespace

nlohmann::json JsonReceipt(const std::vector<ReceiptLine>& lines) {
  nlohmann::json slips = nlohmann::json::array();
  bool open = false;
  for (const ReceiptLine& line : lines) {
    if (!open) slips.push_back(nlohmann::json::array());
    slips.back().push_back(line.text);
    open = !line.last;
  }
  return slips;
}

int ExitCode(Verdict verdict) { return Exit(verdict).iExit; }

tString ExitCodesHelp() {
  tString out;
  for (const ExitRow& row : kExits) out += fmt::format("  {}  {}\n", row.iExit, Say(row.oMeaning));
  return out;
}

tString Explain(const Outcome& outcome) {
  tString words = Say(Find(kWhys, &WhyRow::oWhy, outcome.why).oText, outcome.code, outcome.text);
  return words.substr(0, words.find_last_not_of(' ') + 1);
}

tString Explain(LoadFault fault, const tString& library, const tString& detail) {
  switch (fault) {
  case LoadFault::None: break;
  case LoadFault::Missing: return Say(Text::LibMissing, library);
  case LoadFault::Unreadable: return Say(Text::LibUnreadable, library, detail);
  case LoadFault::Foreign: return Say(Text::LibForeign, library, detail);
  case LoadFault::NoSession: return Say(Text::LibNoSession);
  }
  return "";
}

tString ForPeople(const Report& report) {
  const Outcome& outcome = report.oOutcome;
  const Response* response = outcome.response ? &*outcome.response : nullptr;
  tString out = tString(Say(Exit(outcome.verdict).oTitle)) + "\n";
  if (!outcome.good() || !report.oMessage.empty()) out += "  " + Ground(report) + "\n";
  if (response) {
    AddField(out, Text::ShAmount, response->amount.text());
    AddField(out, Text::ShRrn, response->rrn);
    AddField(out, Text::ShAuth, response->authorisation);
    AddField(out, Text::ShCard, response->card);
  }
  if (outcome.good() && response) {
    AddField(out, Text::ShMessage, response->text);
    if (report.oAmount != Amount() && report.oAmount != response->amount)
      out += Say(Text::OtherAmount, response->amount.text(), report.oAmount.text()) + "\n";
  }
  if (outcome.verdict == Verdict::Unknown) {
    out += "  " + tString(Say(Text::AdviceUnknown)) + "\n";
    if (report.fRecorded) out += "  " + tString(Say(Text::AdviceRecover)) + "\n";
  }
  return out;
}

tString ForMachines(const Report& report) {
  const Outcome& outcome = report.oOutcome;
  nlohmann::json object = {{"outcome", name(outcome.verdict)},
                           {"exitCode", ExitCode(outcome.verdict)},
                           {"message", Ground(report)}};
  if (!report.oCommand.empty()) object.update({{"command", report.oCommand}});
  if (!report.oWorkId.empty()) {
    object.update({{"workId", report.oWorkId},
                   {"tid", report.oTid},
                   {"why", report.oWhy.empty() ? name(outcome.why) : report.oWhy},
                   {"code", outcome.code},
                   {"text", outcome.text},
                   {"breakAsked", report.fBreak},
                   {"elapsedMs", report.llMs},
                   {"receipt", JsonReceipt(report.oLines)},
                   {"otherBlocks", JsonOthers(report.oOthers)}});
    nlohmann::json& statuses = object["statuses"] = nlohmann::json::array();
    for (Status status : report.oStatuses) statuses.push_back(name(status));
  }
  if (report.oAmount != Amount()) object["amount"] = report.oAmount.text();
  if (outcome.response) object["response"] = JsonResponse(*outcome.response);
  if (!outcome.journal.empty()) object["journal"] = outcome.journal;
  for (const client::Entry& entry : report.oUnknown) object["unresolved"].push_back(JsonOf(entry));
  return object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

tString Describe(Status status, const tString& text) {
  return Say(Find(kStatuses, &StatusRow::oStatus, status).oText, text);
}

} // namespace zat::till
