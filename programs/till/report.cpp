#include "report.h"

#include <nlohmann/json.hpp>

#include "amount.h"
#include "texts.h"

namespace zat::till {
namespace {

// The one table of outcomes and exit codes.
struct ExitRow {
  Outcome oOutcome;
  int iExit;
  const char* pccName;
  Text oTitle, oMeaning;
};
constexpr ExitRow kExits[] = {
    {Outcome::Approved, 0, "approved", Text::Approved, Text::ExitApproved},
    {Outcome::Done, 0, "done", Text::Done, Text::ExitDone},
    {Outcome::Declined, 1, "declined", Text::Declined, Text::ExitDeclined},
    {Outcome::Usage, 2, "usage", Text::BadUsage, Text::ExitUsage},
    {Outcome::Aborted, 3, "aborted", Text::Aborted, Text::ExitAborted},
    {Outcome::Refused, 4, "refused", Text::Refused, Text::ExitRefused},
    {Outcome::Unknown, 5, "unknown", Text::Unknown, Text::ExitUnknown},
};

struct WhyRow {
  Why oWhy;
  const char* pccName;
  Text oText; // its places are the code and the text
};
constexpr WhyRow kWhys[] = {
    {Why::Response, "response", Text::WhyResponse},
    {Why::Refusal, "refusal", Text::WhyRefusal},
    {Why::NotLoggedIn, "notLoggedIn", Text::StNotLoggedIn},
    {Why::NoReference, "noReference", Text::StNoReference},
    {Why::Ended, "ended", Text::WhyEnded},
    {Why::GoodEnd, "goodEnd", Text::WhyGoodEnd},
    {Why::Break, "break", Text::WhyBreak},
    {Why::NoResponse, "noResponse", Text::WhyNoResponse},
    {Why::Broken, "damagedResponse", Text::WhyBroken},
    {Why::Contradiction, "contradiction", Text::WhyContradiction},
    {Why::Endless, "endless", Text::WhyEndless},
    {Why::Unfinished, "unfinished", Text::WhyUnfinished},
    {Why::BadRequest, "badRequest", Text::WhyBadRequest},
    {Why::ModuleMissing, "moduleMissing", Text::WhyModuleMissing},
    {Why::Pause, "pause", Text::WhyPause},
    {Why::Lost, "lost", Text::WhyLost},
    {Why::Handle, "handle", Text::WhyHandle},
    {Why::State, "state", Text::WhyState},
    {Why::Command, "command", Text::WhyCommand},
    {Why::NoExchange, "noExchange", Text::WhyNoExchange},
    {Why::OtherId, "otherTid", Text::WhyOtherId},
    {Why::Pipes, "pipes", Text::WhyPipes},
    {Why::Nested, "nested", Text::WhyNested},
    {Why::NoModule, "noModule", Text::WhyNoModule},
    {Why::NoLibrary, "noLibrary", Text::LibNoSession},
    {Why::NoLink, "noLink", Text::LinkClosed},
    {Why::Left, "left", Text::WhyLeft},
    {Why::Strange, "strange", Text::WhyStrange},
};

struct StatusNameRow {
  Status oStatus;
  const char* pccName;
  Text oText; // its place is the terminal's text
};
constexpr StatusNameRow kStatuses[] = {
    {Status::Connecting, "connecting", Text::Connecting},
    {Status::Pause, "pause", Text::StPause},
    {Status::Ok, "ok", Text::StOk},
    {Status::NotLoggedIn, "notLoggedIn", Text::StNotLoggedIn},
    {Status::Pin, "pin", Text::StPin},
    {Status::Online, "online", Text::StOnline},
    {Status::NoReference, "noReference", Text::StNoReference},
    {Status::Hold, "hold", Text::StHold},
    {Status::Confirm, "confirm", Text::StConfirm},
    {Status::Info, "info", Text::StInfo},
    {Status::Break, "break", Text::StBreak},
    {Status::NoBreak, "noBreak", Text::StNoBreak},
};

// Every table above has a row for each enumerator.
template<class Row, size_t N, class Key> const Row& Find(const Row (&table)[N], Key Row::*key, Key value) {
  for (const Row& row : table)
    if (row.*key == value) return row;
  return table[N - 1];
}

const ExitRow& Exit(Outcome outcome) { return Find(kExits, &ExitRow::oOutcome, outcome); }

void AddField(tString& out, Text name, const tString& value) {
  if (!value.empty()) out += fmt::format("  {}: {}\n", Say(name), value);
}

tString Ground(const Report& report) {
  return report.oMessage.empty() ? Explain(report.oResult) : report.oMessage;
}

nlohmann::json JsonResponse(const Response& response) {
  nlohmann::json object = {{"amount", ShowAmount(response.ulKopecks)}};
  for (const ResponseField& field : moResponseFields)
    if (const tString& value = response.*field.poText; !value.empty()) object[field.pccName] = value;
  return object;
}

nlohmann::json JsonOthers(const std::vector<Report::Other>& others) {
  nlohmann::json list = nlohmann::json::array();
  for (const Report::Other& other : others)
    list.push_back({{"workId", other.oWorkId}, {"data", other.oData}});
  return list;
}

// One list of lines for each slip.
nlohmann::json JsonReceipt(const std::vector<Report::Line>& lines) {
  nlohmann::json slips = nlohmann::json::array();
  bool open = false;
  for (const Report::Line& line : lines) {
    if (!open) slips.push_back(nlohmann::json::array());
    slips.back().push_back(line.oText);
    open = !line.fLast;
  }
  return slips;
}

} // namespace

int ExitCode(Outcome outcome) { return Exit(outcome).iExit; }

tString ExitCodesHelp() {
  tString out;
  for (const ExitRow& row : kExits) out += fmt::format("  {}  {}\n", row.iExit, Say(row.oMeaning));
  return out;
}

tString Explain(const Result& result) {
  tString words = Say(Find(kWhys, &WhyRow::oWhy, result.oWhy).oText, result.oCode, result.oText);
  return words.substr(0, words.find_last_not_of(' ') + 1);
}

tString ForPeople(const Report& report) {
  const Result& result = report.oResult;
  const Response& response = result.oResponse;
  tString out = tString(Say(Exit(result.oOutcome).oTitle)) + "\n";
  bool good = ExitCode(result.oOutcome) == 0;
  if (!good || !report.oMessage.empty()) out += "  " + Ground(report) + "\n";
  if (result.fResponse) {
    AddField(out, Text::ShAmount, ShowAmount(response.ulKopecks));
    AddField(out, Text::ShRrn, response.oRrn);
    AddField(out, Text::ShAuth, response.oAuth);
    AddField(out, Text::ShCard, response.oCard);
  }
  if (good) AddField(out, Text::ShMessage, response.oText);
  if (good && result.fResponse && report.ulKopecks && report.ulKopecks != response.ulKopecks)
    out += Say(Text::OtherAmount, ShowAmount(response.ulKopecks), ShowAmount(report.ulKopecks)) + "\n";
  if (result.oOutcome == Outcome::Unknown) out += "  " + tString(Say(Text::AdviceUnknown)) + "\n";
  return out;
}

tString ForMachines(const Report& report) {
  const Result& result = report.oResult;
  nlohmann::json object = {{"outcome", Exit(result.oOutcome).pccName},
                           {"exitCode", ExitCode(result.oOutcome)},
                           {"message", Ground(report)}};
  if (!report.oCommand.empty()) object.update({{"command", report.oCommand}});
  if (!report.oWorkId.empty()) {
    object.update({{"workId", report.oWorkId},
                   {"tid", report.oTid},
                   {"why", Find(kWhys, &WhyRow::oWhy, result.oWhy).pccName},
                   {"code", result.oCode},
                   {"text", result.oText},
                   {"breakAsked", report.fBreak},
                   {"elapsedMs", report.llMs},
                   {"receipt", JsonReceipt(report.oLines)},
                   {"otherBlocks", JsonOthers(report.oOthers)}});
    nlohmann::json& statuses = object["statuses"] = nlohmann::json::array();
    for (Status status : report.oStatuses)
      statuses.push_back(Find(kStatuses, &StatusNameRow::oStatus, status).pccName);
  }
  if (report.ulKopecks) object["amount"] = ShowAmount(report.ulKopecks);
  if (result.fResponse) object["response"] = JsonResponse(result.oResponse);
  return object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

tString Describe(Status status, const tString& text) {
  return Say(Find(kStatuses, &StatusNameRow::oStatus, status).oText, text);
}

} // namespace zat::till
