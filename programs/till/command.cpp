#include "command.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <iostream>
#include <sstream>

#include <CLI/CLI.hpp>
#include <termios.h>
#include <unistd.h>

#include "charset.h"
#include "ledger.h"
#include "recordedroad.h"
#include "request.h"
#include "texts.h"
#include "util.h"

namespace zat::till {
namespace {

constexpr char kLibrary[] = "libzat_ms.so";
constexpr char kFromInput[] = "-";
constexpr char kPaid[] = "paid", kNotPaid[] = "not-paid";
constexpr size_t kTrack2Width = 37;
constexpr int kCardDigits = 13; // so many digits in a word may be a card number
constexpr int kMaxWait = 3600;

// What a command takes, a set of bits.
enum Takes : int { eNothing = 0, eAmount = 1, eRrn = 2, eTrack2 = 4, eRaw = 8, eAll = 16, eEntry = 32 };

typedef Outcome (*procAsk_t)(Till& till, const Order& order, const Callbacks& callbacks);
typedef int (*procWork_t)(const Order& order, Screen& screen);
typedef Outcome (Till::*procPay_t)(Amount amount, const Callbacks& callbacks);
typedef Outcome (Till::*procPayBy_t)(Amount amount, Track2 card, const Callbacks& callbacks);

// A payment by the card that the till has read, or by one that the terminal will read.
template<procPay_t Pay, procPayBy_t PayBy>
Outcome AskPayment(Till& till, const Order& order, const Callbacks& callbacks) {
  return order.oTrack2 ? (till.*PayBy)(order.oAmount, Track2{*order.oTrack2}, callbacks)
                       : (till.*Pay)(order.oAmount, callbacks);
}

struct CommandRow {
  const char* pccName;
  tEFTPWorkId oId;
  int iTakes;
  Text oHelp;
  const char* pccExample;
  procAsk_t procAsk;
  procWork_t procWork = nullptr; // in place of procAsk
};
constexpr CommandRow kCommands[] = {
    {"sale", eEFTPwidSale, eAmount | eTrack2, Text::CmdSale, "zat_till sale 1250.00",
     AskPayment<&Till::sale, &Till::sale>},
    {"refund", eEFTPwidCredit, eAmount | eTrack2, Text::CmdRefund, "zat_till refund 99,90 --tid 12",
     AskPayment<&Till::refund, &Till::refund>},
    {"preauth", eEFTPwidPreA, eAmount | eTrack2, Text::CmdPreauth, "zat_till preauth 5000 --json",
     AskPayment<&Till::preauthorise, &Till::preauthorise>},
    {"reverse", eEFTPwidRevSale, eRrn | eAmount, Text::CmdReverse, "zat_till reverse 123456789012 1250.00",
     [](Till& t, const Order& o, const Callbacks& c) { return t.reverse(o.oRrn, o.oAmount, c); }},
    {"void", eEFTPwidVoid, eRrn, Text::CmdVoid, "zat_till void 123456789012",
     [](Till& t, const Order& o, const Callbacks& c) { return t.voidPayment(o.oRrn, c); }},
    {"login", eEFTPwidLogin, eNothing, Text::CmdLogin, "zat_till login",
     [](Till& t, const Order&, const Callbacks& c) { return t.login(c); }},
    {"totals", eEFTPwidFinAmount, eNothing, Text::CmdTotals, "zat_till totals",
     [](Till& t, const Order&, const Callbacks& c) { return t.totals(c); }},
    {"end-of-day", eEFTPwidFinDay, eNothing, Text::CmdEndOfDay, "zat_till end-of-day",
     [](Till& t, const Order&, const Callbacks& c) { return t.endOfDay(c); }},
    {"raw", eEFTPwidNone, eRaw, Text::CmdRaw, "zat_till raw 20 123456789012",
     [](Till& t, const Order& o, const Callbacks& c) { return t.raw(o.oWorkId, o.oData, c); }},
    {"journal", eEFTPwidNone, eAll, Text::CmdJournal, "zat_till journal", nullptr, ShowJournal},
    {"recover", eEFTPwidNone, eNothing, Text::CmdRecover, "zat_till recover", nullptr, Recover},
    {"settle", eEFTPwidNone, eEntry, Text::CmdSettle, "zat_till settle 17 not-paid", nullptr, Settle},
};

bool Has(const CommandRow& command, Takes what) { return (command.iTakes & what) != 0; }

tString WorkIdOf(const CommandRow& command) {
  return {static_cast<char>(command.oId >> 8), static_cast<char>(command.oId)};
}

// A word of the user for a complaint about it. A card number in the wrong place is not shown again.
tString Shown(tString word) {
  tString digits = word;
  if (MaskDigit(digits, 0, -1, '*') >= kCardDigits) word = digits;
  return word;
}

// ---- checks: each gives the complaint, or "" ----

constexpr std::pair<AmountFault, Text> kAmountFaults[] = {{AmountFault::NotANumber, Text::BadAmount},
                                                          {AmountFault::Negative, Text::NegativeAmount},
                                                          {AmountFault::Decimals, Text::AmountDecimals},
                                                          {AmountFault::TooLarge, Text::AmountTooLong}};

tString CheckAmount(const tString& text, Amount& amount) {
  AmountFault fault;
  amount = Amount::parse(text, &fault).value_or(Amount());
  for (auto [known, complaint] : kAmountFaults)
    if (fault == known) return Say(complaint, Shown(text));
  return amount == Amount() ? Say(Text::AmountZero, Shown(text)) : "";
}

// A line of the standard input. A card reader types like a keyboard: what it types must not stay on the screen.
tString HiddenLine() {
  termios before = {};
  bool terminal = tcgetattr(STDIN_FILENO, &before) == 0;
  termios hidden = before;
  hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  if (terminal) tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  tString line;
  std::getline(std::cin, line);
  if (terminal) tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
  return line;
}

tString CheckTrack2(tString& track) {
  if (track == kFromInput) track = HiddenLine();
  track.erase(track.find_last_not_of("\r\n") + 1);
  return ShrinkTrack2(track) == 0 && track.size() <= kTrack2Width ? "" : Say(Text::BadTrack2);
}

tString CheckWait(const tString& text, std::chrono::seconds& pause) {
  int seconds = 0;
  const char* end = text.data() + text.size();
  auto [stop, fault] = std::from_chars(text.data(), end, seconds);
  bool good = fault == std::errc() && stop == end && seconds >= 0 && seconds <= kMaxWait;
  pause = std::chrono::seconds(seconds);
  return good ? "" : Say(Text::BadWait, Shown(text));
}

tString CheckRaw(const Options& options, const tString& charset, Order& order) {
  if (!client::IsWorkId(options.oWorkId)) return Say(Text::BadWorkId, Shown(options.oWorkId));
  order.oWorkId = options.oWorkId;
  client::Charset toWire(client::kCp1251, charset);
  if (!toWire.Fits(options.oData)) return Say(Text::BadData);
  order.oData = toWire(options.oData);
  if (order.oData.size() > client::kMaxData) return Say(Text::DataTooLong, order.oData.size());
  return order.oData.size() == client::kImpossibleData ? Say(Text::Data255) : "";
}

tString CheckEntry(const Options& options, Order& order) {
  const char* end = options.oNumber.data() + options.oNumber.size();
  auto [stop, fault] = std::from_chars(options.oNumber.data(), end, order.uNumber);
  if (fault != std::errc() || stop != end) return Say(Text::BadNumber, Shown(options.oNumber));
  order.fPaid = options.oFate == kPaid;
  return order.fPaid || options.oFate == kNotPaid ? "" : Say(Text::BadFate, Shown(options.oFate));
}

// The directory of this program, with a slash at its end.
tString ProgramDirectory() {
  char path[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) return "./";
  const tString program(path, static_cast<size_t>(length));
  return program.substr(0, program.rfind('/') + 1);
}

tString MakeOrder(const CommandRow& command, const Options& options, const tString& charset, Order& order) {
  order.oTill.library = options.oLib.empty() ? ProgramDirectory() + kLibrary : options.oLib;
  order.oTill.config = options.oConfig;
  order.oTill.terminal = options.oTid.value_or("1");
  order.oCommand = command.pccName;
  order.oWorkId = WorkIdOf(command);
  order.oRrn = options.oRrn;
  order.oTrack2 = options.oTrack2;
  order.oLink = options.oLink;
  order.fJson = options.fJson;
  order.fRaw = Has(command, eRaw);
  order.procAsk = command.procAsk;
  order.procWork = command.procWork;
  order.fAll = options.fAll;
  if (!options.fNoJournal || order.procWork)
    order.oTill.journal =
        options.oJournal.empty() ? client::JournalOf(order.oTill.library) : options.oJournal;
  if (options.oTid) order.oTid = client::TerminalInJournal(*options.oTid);

  tString complaint = CheckWait(options.oWait, order.oTill.pause);
  if (complaint.empty() && !client::IsTid(order.oTill.terminal))
    complaint = Say(Text::BadTid, Shown(order.oTill.terminal));
  if (complaint.empty() && Has(command, eAmount)) complaint = CheckAmount(options.oAmount, order.oAmount);
  if (complaint.empty() && Has(command, eRrn) && !client::IsReference(options.oRrn))
    complaint = Say(Text::BadRrn, Shown(options.oRrn));
  if (complaint.empty() && order.oTrack2) complaint = CheckTrack2(*order.oTrack2);
  if (complaint.empty() && Has(command, eEntry)) complaint = CheckEntry(options, order);
  return complaint.empty() && Has(command, eRaw) ? CheckRaw(options, charset, order) : complaint;
}

// ---- the command line ----

// Help lines in the columns of a narrow terminal, in any language; commands with what they take.
class Layout : public CLI::Formatter {
public:
  Layout() {
    label("Usage", Say(Text::Usage));
    label("Positionals", Say(Text::Arguments));
    label("SUBCOMMAND", "COMMAND");
    for (const char* silent : {"TEXT", "REQUIRED"}) label(silent, "");
    column_width(kColumn);
  }
  std::string make_option_desc(const CLI::Option* option) const override {
    return Fold(option->get_description(), kWidth - kColumn);
  }
  std::string make_subcommand(const CLI::App* sub) const override {
    std::string name = sub->get_name();
    for (const CLI::Option* option : sub->get_options())
      if (option->get_positional()) name += " " + make_option_usage(option);
    std::ostringstream out;
    CLI::detail::format_help(out, name, sub->get_description(), kColumn);
    return out.str();
  }

private:
  static constexpr size_t kColumn = 26, kWidth = 80;

  // Breaks a UTF-8 text at blanks into lines of so many characters.
  static std::string Fold(std::string text, size_t width) {
    size_t shown = 0, blank = std::string::npos;
    for (size_t at = 0; at < text.size(); ++at) {
      shown += client::IsFirstByte(text[at]);
      if (shown > width && blank != std::string::npos) {
        text[blank] = '\n';
        shown = client::Characters(text.substr(blank + 1, at - blank));
        blank = std::string::npos;
      }
      if (text[at] == ' ') blank = at;
    }
    return text;
  }
};

void AddOptions(CLI::App& app, Options& options) {
  app.add_option("--lib", options.oLib, Say(Text::OptLib))->type_name("FILE");
  app.add_option("--link", options.oLink, Say(Text::OptLink))->type_name("PLACE");
  app.add_option("--config", options.oConfig, Say(Text::OptConfig))->type_name("PATH");
  app.add_option("--tid", options.oTid, Say(Text::OptTid))->type_name("ID");
  app.add_option("--journal", options.oJournal, Say(Text::OptJournal))->type_name("FILE");
  app.add_flag("--no-journal", options.fNoJournal, Say(Text::OptNoJournal));
  app.add_option("--wait", options.oWait, Say(Text::OptWait))->type_name("SECONDS");
  app.add_flag("--json", options.fJson, Say(Text::OptJson));
}

void AddCommand(CLI::App& app, const CommandRow& command, Options& options) {
  CLI::App* sub = app.add_subcommand(command.pccName, Say(command.oHelp));
  if (Has(command, eRrn)) sub->add_option("RRN", options.oRrn, Say(Text::ArgRrn))->required();
  if (Has(command, eAmount)) sub->add_option("AMOUNT", options.oAmount, Say(Text::ArgAmount))->required();
  if (Has(command, eRaw)) {
    sub->add_option("WORKID", options.oWorkId, Say(Text::ArgWorkId))->required();
    sub->add_option("DATA", options.oData, Say(Text::ArgData));
  }
  if (Has(command, eTrack2))
    sub->add_option("--track2", options.oTrack2, Say(Text::OptTrack2))->type_name("TRACK");
  if (Has(command, eEntry)) {
    sub->add_option("NUMBER", options.oNumber, Say(Text::ArgNumber))->required();
    sub->add_option("FATE", options.oFate, Say(Text::ArgFate))->required();
  }
  if (Has(command, eAll)) sub->add_flag("--all", options.fAll, Say(Text::OptAll));
  AddOptions(*sub, options);
  sub->set_help_flag("-h,--help", Say(Text::OptHelp));
  sub->footer(tString(Say(Text::Examples)) + ":\n  " + command.pccExample);
}

tString Footer() {
  tString out = tString(Say(Text::Examples)) + ":\n";
  for (const CommandRow& command : kCommands) out += tString("  ") + command.pccExample + "\n";
  return out + "\n" + Say(Text::ExitCodes) + ":\n" + ExitCodesHelp();
}

void SetUp(CLI::App& app, Options& options) {
  app.formatter(std::make_shared<Layout>());
  app.option_defaults()->group(Say(Text::Options));
  app.set_help_flag("-h,--help", Say(Text::OptHelp));
  app.set_version_flag("--version", ZAT_TILL_VERSION, Say(Text::OptVersion));
  app.require_subcommand(1);
  app.footer(Footer());
  AddOptions(app, options);
  for (const CommandRow& command : kCommands) AddCommand(app, command, options);
  for (CLI::App* sub : app.get_subcommands({})) sub->group(Say(Text::Commands));
}

// The part of a complaint of the parser that the user wrote or must write.
tString Complaint(const CLI::ParseError& fault, const CLI::App& app) {
  tString words = fault.what();
  for (const tString& left : app.remaining(true)) return Say(Text::NotUnderstood, Shown(left));
  if (fault.get_exit_code() != static_cast<int>(CLI::ExitCodes::RequiredError))
    return Say(Text::NotUnderstood, words);
  words = words.substr(0, words.find(" is required"));
  return Say(Text::Missing, words.find(' ') == words.npos ? words : "COMMAND");
}

// An amount with a minus looks like an option to the parser.
const char* NegativeAmount(int argc, char** argv) {
  for (int i = 1; i < argc && strcmp(argv[i], "--") != 0; ++i)
    if (argv[i][0] == '-' && argv[i][1] >= '0' && argv[i][1] <= '9') return argv[i];
  return nullptr;
}

void HideTrack2(int argc, char** argv) {
  constexpr std::string_view option = "--track2";
  for (int i = 1; i < argc; ++i) {
    std::string_view word = argv[i];
    char* secret = word.starts_with("--track2=")    ? argv[i] + option.size() + 1
                   : word == option && i + 1 < argc ? argv[i + 1]
                                                    : nullptr;
    if (secret && strcmp(secret, kFromInput) != 0) memset(secret, 'x', strlen(secret));
  }
}

Parsed Wrong(const tString& text) { return {std::nullopt, Verdict::BadRequest, text, false}; }

Parsed Parse(int argc, char** argv, const tString& charset) {
  Options options;
  CLI::App app(tString(Say(Text::About)) + "\n", "zat_till");
  SetUp(app, options);
  if (const char* amount = NegativeAmount(argc, argv)) return Wrong(Say(Text::NegativeAmount, amount));
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return {std::nullopt, Verdict::Done, app.help(), false};
  } catch (const CLI::CallForVersion&) {
    return {std::nullopt, Verdict::Done, "zat_till " ZAT_TILL_VERSION "\n", false};
  } catch (const CLI::ParseError& fault) { return Wrong(Complaint(fault, app) + " " + Say(Text::SeeHelp)); }
  Order order;
  tString name = app.get_subcommands().front()->get_name();
  const CommandRow* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                           [&](const CommandRow& row) { return name == row.pccName; });
  tString complaint = MakeOrder(*command, options, charset, order);
  if (options.oTrack2) explicit_bzero(options.oTrack2->data(), options.oTrack2->size());
  if (!complaint.empty()) return Wrong(complaint);
  return {order, Verdict::Done, "", order.fJson};
}

} // namespace

tString CommandOf(const tString& workId) {
  for (const CommandRow& row : kCommands)
    if (row.oId != eEFTPwidNone && workId == WorkIdOf(row)) return row.pccName;
  return workId;
}

Parsed ParseCommandLine(int argc, char** argv, const tString& charset) {
  Parsed parsed = Parse(argc, argv, charset);
  HideTrack2(argc, argv);
  // Whoever asked for JSON gets it for wrong arguments too.
  parsed.fJson = std::any_of(argv, argv + argc, [](const char* word) { return strcmp(word, "--json") == 0; });
  return parsed;
}

} // namespace zat::till
