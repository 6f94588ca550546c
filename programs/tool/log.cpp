// zat_tool log: what the tills and their terminals said to each other, exchange by exchange.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "command.h"
#include "loghtml.h"
#include "place.h"
#include "text.h"
#include "timeline.h"
#include "utilf.h"

namespace zat::tool {

namespace {

constexpr int kPollMs = 250;

struct tOptions {
  tString oPlace; // a log, an installation, "-"; empty: the installation of this program
  tString oSince, oTid, oHtml;
  size_t lLast = 0; // 0: all
  bool fFailed = false, fFollow = false, fJson = false, fShort = false;
};

// ---- what is wanted ---------------------------------------------------------------------------------------

// "90m", "2h", "3d": so long ago. -1 for anything else.
time_t Ago(const tString& text, time_t now) {
  constexpr struct {
    char cUnit;
    time_t oSeconds;
  } kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
  time_t count = 0;
  const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), count);
  for (const auto& unit : kUnits)
    if (fault == std::errc() && end + 1 == text.data() + text.size() && *end == unit.cUnit && count >= 0 &&
        count < 100000)
      return now - count * unit.oSeconds;
  return -1;
}

// "14:30" (today), "2026-11-21", "2026-11-21 14:30", "2026-11-21 14:30:05" (also with 'T'), or as above.
time_t SinceTime(tString text, time_t now) {
  if (const time_t ago = Ago(text, now); ago >= 0) return ago;
  std::replace(text.begin(), text.end(), 'T', ' ');
  for (const char* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d", "%H:%M:%S", "%H:%M"}) {
    struct tm when = {};
    if (format[1] == 'H') localtime_r(&now, &when);
    when.tm_sec = 0;
    const char* end = strptime(text.c_str(), format, &when);
    when.tm_isdst = -1;
    if (end && *end == '\0') return mktime(&when);
  }
  return -1;
}

struct tFilter {
  time_t oSince = 0;
  tString oTid;
  bool fFailed = false;

  bool operator()(const tExchange& one, time_t now) const {
    return one.oLast >= oSince && (oTid.empty() || WithoutZeros(one.oTid) == oTid) &&
           (!fFailed || one.Result(now) >= eResDeclined);
  }
};

// ---- showing ----------------------------------------------------------------------------------------------

typedef std::vector<std::shared_ptr<tExchange>> tList;

tList Wanted(tList all, const tFilter& filter, size_t last, time_t now) {
  std::erase_if(all, [&](const auto& one) { return !filter(*one, now); });
  if (last && all.size() > last) all.erase(all.begin(), all.end() - static_cast<ptrdiff_t>(last));
  return all;
}

tString Dump(const nlohmann::ordered_json& json, int indent) {
  return json.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

void Show(const tList& list, const tOptions& options, time_t now, Output& out) {
  auto json = nlohmann::ordered_json::array();
  for (const auto& one : list) {
    if (options.fJson && options.fFollow)
      out.Text(Dump(ExchangeJson(*one, now), -1));
    else if (options.fJson)
      json.push_back(ExchangeJson(*one, now));
    else
      PrintExchange(*one, now, options.fShort, out);
  }
  if (options.fJson && !options.fFollow) out.Text(Dump(json, 2));
}

int CannotRead(const tString& name) {
  const bool missing = errno == ENOENT;
  Complain(fmt::format("cannot read {}: {}{}", name, strerror(errno),
                       missing ? " (a till writes it; without micromgl.cfg there is none)" : ""));
  return eExitUsage;
}

int Cut(Output& out) {
  if (out.Flush()) return eExitGood;
  Complain(fmt::format("cannot write the standard output: {}", strerror(errno)));
  return eExitUsage;
}

int WritePage(const tList& list, const tString& log, const tString& file, time_t now) {
  const tString page = LogPage(list, "MicroS: " + ToScreen(log), now);
  std::ofstream out(file, std::ios::binary);
  out << page;
  out.close();
  if (out) return eExitGood;
  Complain(fmt::format("cannot write {}: {}", file, strerror(errno)));
  return eExitUsage;
}

// ---- the two ways of reading ------------------------------------------------------------------------------

tString Named(const tString& name) { return name == "-" ? "the standard input" : name; }

int ShowWhole(const tString& name, const tOptions& options, const tFilter& filter) {
  tString text;
  LogReader reader(name, true);
  if (!(name == "-" ? ReadWhole(name, text) : reader.Read(text))) return CannotRead(name);
  Exchanges exchanges;
  bool isLog = false;
  ForEachRecord(text, [&](const tRecord& record) {
    isLog = isLog || !record.oWhen.empty();
    exchanges.Take(record);
  });
  if (!isLog) {
    Complain(Named(name) + (text.empty() ? " is empty" : " is no log of MicroS"));
    if (!text.empty()) return eExitFault;
  }
  const time_t now = time(nullptr);
  const tList all = exchanges.TakeReady(now, true), list = Wanted(all, filter, options.lLast, now);
  if (!options.oHtml.empty()) return WritePage(list, name, options.oHtml, now);
  Output out;
  Show(list, options, now, out);
  if (list.empty() && isLog && !options.fJson)
    Complain(all.empty() ? "no exchange in this log (with LOGLEVEL = L it has faults only)"
                         : "no exchange that was asked for");
  return Cut(out);
}

// Shows exchanges when they are over, for ever.
int Follow(const tString& name, const tOptions& options, const tFilter& filter) {
  LogReader reader(name, true);
  Exchanges exchanges;
  Output out;
  tString text;
  bool first = true;
  for (;;) {
    if (!reader.Read(text) && first) return CannotRead(name);
    const size_t whole = WholeLines(text);
    ForEachRecord(std::string_view(text).substr(0, whole),
                  [&](const tRecord& record) { exchanges.Take(record); });
    text.erase(0, whole);
    const time_t now = time(nullptr);
    Show(Wanted(exchanges.TakeReady(now, false), filter, first ? options.lLast : 0, now), options, now, out);
    if (const int exit = Cut(out)) return exit;
    first = false;
    YieldMS(kPollMs);
  }
}

int Log(const tOptions& options) {
  tFilter filter;
  filter.oTid = WithoutZeros(options.oTid);
  filter.fFailed = options.fFailed;
  if (!options.oSince.empty()) filter.oSince = SinceTime(options.oSince, time(nullptr));
  if (filter.oSince < 0) {
    Complain(fmt::format("--since {}: no time; see zat_tool log --help", options.oSince));
    return eExitUsage;
  }
  const tString name = LogOfPlace(options.oPlace);
  if (options.fFollow && name == "-") {
    Complain("-f wants a log with a name");
    return eExitUsage;
  }
  return options.fFollow ? Follow(name, options, filter) : ShowWhole(name, options, filter);
}

} // namespace

void AddLog(CLI::App& oApp, int* piExit) {
  CLI::App* cmd = oApp.add_subcommand("log", "Tell the log as exchanges: request, status, answer, result.");
  auto options = std::make_shared<tOptions>();
  cmd->add_option("place", options->oPlace,
                  "A log, an installation's directory, or - for the standard input; else the log of the\n"
                  "installation that this program lies in. The backup (zat_com2.log) is read first");
  cmd->add_option("--since", options->oSince,
                  "Only what went on since then: 14:30, 2026-11-21, '2026-11-21 14:30', 90m, 2h, 3d");
  cmd->add_option("--tid", options->oTid, "Only this terminal");
  cmd->add_option("-n,--last", options->lLast, "Only the last N exchanges")->type_name("N");
  cmd->add_flag("--failed", options->fFailed, "Only what did not end well");
  cmd->add_flag("-s,--short", options->fShort, "One line for each exchange");
  cmd->add_option("--html", options->oHtml, "Write a page for a browser to this file instead")
      ->type_name("FILE");
  cmd->add_flag("-f,--follow", options->fFollow,
                "Go on with each exchange that ends, also when the log is moved")
      ->excludes("--html");
  cmd->add_flag("--json", options->fJson, "A JSON array; with -f one object in each line");
  cmd->footer(
      "Card data are masked. Times are whole seconds, as in the log; a pause of 5 s and more is shown.\n"
      "OUTCOME UNKNOWN: the request went out and no end came; ask the terminal (transaction data, 20)\n"
      "before the customer pays again.\n\n"
      "Exit status: 0 done, 1 the file is no log, 2 it cannot be read, or wrong arguments.\n\n"
      "  zat_tool log --failed --since 2h\n"
      "  zat_tool log /opt/zat_ms --tid 7 --last 3\n"
      "  zat_tool log -f --json | jq -c '[.begin, .operation, .result]'");
  cmd->callback([options, piExit] { *piExit = Log(*options); });
}

} // namespace zat::tool
