// The log told as exchanges.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "scratch.h"
#include "shell.h"

namespace {

using nlohmann::json, testing::AllOf, testing::HasSubstr, testing::Not;

// One line of a log: its time, its process (one digit), its text.
std::string Line(const char* time, char process, const std::string& text) {
  return std::string("2026-11-20 ") + time + " {0000000" + process + "} : " + text + "\r\n";
}
std::string Begin(const char* time, char process, const char* id = "10") {
  return Line(time, process, std::string("[MicroS] TimeoutAfter-") + id + ": 0, 0");
}
std::string Write(const char* time, char process, const std::string& text) {
  return Line(time, process, "[MicroS] WriteBlock: " + text);
}
std::string Read(const char* time, char process, const std::string& text) {
  return Line(time, process, "[MicroS] ReadBlock: " + text);
}
std::string Sale(char tid) { return std::string("10000000000") + tid + "0C000000001200"; }
std::string Answer(char tid, const char* code) {
  return std::string("60000000000") + tid +
         "610"
         "000000001200"
         "643"
         "20261120140359"
         "900000000000001"
         "632613000001" +
         code + "000001\x1B************7899=****\x1BVISA\x1B\xCE\xC4\xCE\x1B";
}
const std::string kGood = "#0000000000700", kBad = "#1000000000700";

json Told(const std::string& log, const std::string& options = "") {
  Scratch scratch;
  scratch.Put("zat_comm.log", log);
  const Result run = Shell("zat_tool log " + (scratch / "") + " --json " + options);
  EXPECT_EQ(run.iExit, 0) << run.oOut;
  return json::parse(run.oOut, nullptr, false);
}

TEST(Log, HowExchangesEnd) {
  const std::string t = "14.03.59", b = Begin("14.03.59", '1'), sale = b + Write("14.03.59", '1', Sale('7'));
  const auto read = [](const std::string& text) { return Read("14.04.03", '1', text); };
  const auto line = [](const std::string& text) { return Line("14.04.30", '1', text); };
  struct {
    std::string log;
    const char *result, *reason;
  } rows[] = {
      {sale + read("5-3") + read(Answer('7', "00")) + read(kGood), "approved", "00"},
      {sale + read(Answer('7', "51")) + read(kBad), "declined", "51"},
      {sale + read("5X000000000719M1No link to the terminal") + read(kBad), "refused",
       "M1 No link to the terminal"},
      {sale + read("34000000000700") + read(kBad), "brokenOff", ""},
      {sale + read(Answer('7', "00")) + read(kBad), "unknown", "00"},
      {sale + read(Answer('7', "00")), "unknown", "00"},
      {sale, "unknown", ""},
      {sale + Line("14.04.00", '1', "[MicroS] No any response with TO=30s!"), "unknown",
       "the terminal module died"},
      {sale + line("[MicroS] No any response with TO=30s!"), "unknown", "no answer within 30.3 s"},
      {b + line("[MicroS] No HELLO response with TO=30s!"), "notStarted", "no greeting"},
      {b + line("[MicroS] Already lock: /x/cid7.lck"), "notStarted", "in use by another till: /x/cid7.lck"},
      {b + line("[tryflock] open '/x/cid7.lck': EACCES, Permission denied"), "notStarted",
       "EACCES, Permission"},
      {b + line("[MicroS] Started: /x/zat_mm 8#5 - 0000000007 <Handle: (nil)>"), "notStarted",
       "could not be started"},
      {line("[MicroS] Not excerpt REQTO==8!"), "tooEarly", "8!"},
      {Begin("14.03.59", '1', "30") + Write("14.03.59", '1', "30000000000700") + read(kGood), "done", ""},
      {read(Answer('7', "00")) + read(kGood), "approved", ""},
      // A damaged line, bytes that are no text, half a line at the end.
      {sale + read(std::string("60\xFF\x01\r\n\x1B[31m")) + read("#0") + "2026-11-20 14.0", "unknown", ""},
  };
  for (const auto& row : rows) {
    const json told = Told(row.log);
    ASSERT_EQ(told.size(), 1u) << row.log << told.dump(1);
    EXPECT_EQ(told[0]["result"], row.result) << row.log << told.dump(1);
    EXPECT_THAT(told[0]["reason"].get<std::string>(), HasSubstr(row.reason));
  }
}

TEST(Log, TellsProcessesAndSessionsApart) {
  const auto in = [](const char* handle) {
    return Line("14.03.59", '3', std::string("[eftp_do] in: ") + handle + " 0x1");
  };
  const json told = Told(
      Begin("14.03.59", '1') + Begin("14.03.59", '2') + Write("14.03.59", '2', Sale('8')) +
      Write("14.03.59", '1', Sale('7')) + Read("14.04.03", '1', Answer('7', "00")) +
      Read("14.04.03", '2', Answer('8', "05")) + Read("14.04.03", '1', kGood) + Read("14.04.03", '2', kBad) +
      // two sessions of one process, one of which is never answered
      in("0xA0") + Begin("14.03.59", '3') + Write("14.03.59", '3', Sale('5')) + in("0xB0") +
      Begin("14.03.59", '3') + Write("14.03.59", '3', Sale('6')) + in("0xA0") +
      Line("14.04.50", '3', "[MicroS] No any response with TO=30s!") + in("0xB0") +
      Read("14.04.51", '3', Answer('6', "00")) + Read("14.04.51", '3', kGood));
  std::string said;
  for (const auto& one : told)
    said += one["terminalId"].get<std::string>().substr(9) + ' ' + one["result"].get<std::string>() + ", ";
  EXPECT_EQ(said, "7 approved, 8 declined, 5 unknown, 6 approved, ");
}

TEST(Log, FiltersAndText) {
  Scratch scratch;
  scratch.Put("zat_com2.log", Begin("10.00.00", '1') + Write("10.00.00", '1', Sale('7')));
  scratch.Put("zat_comm.log", Read("10.00.20", '1', Answer('7', "00")) + Read("10.00.20", '1', kGood) +
                                  Begin("14.03.59", '1') + Write("14.03.59", '1', Sale('8')) +
                                  Read("14.04.00", '1', Answer('8', "51")) + Read("14.04.00", '1', kBad));
  const std::string log = "zat_tool log " + (scratch / "") + " ";
  const std::string all = Shell(log).oOut;
  EXPECT_THAT(all, AllOf(HasSubstr("terminal 7  sale 12.00  approved  20 s  process 1\n"),
                         HasSubstr("... 20 s without a line"), HasSubstr("TR.PEX=************7899=****"),
                         HasSubstr("declined (51 ОДО)"), Not(HasSubstr("\x1B"))));
  for (const char* options :
       {"--failed", "--tid 8", "--tid 0000000008", "-n 1", "--since '2026-11-20 12:00'"}) {
    const std::string some = Shell(log + "-s " + options).oOut;
    EXPECT_THAT(some, AllOf(HasSubstr("terminal 8"), Not(HasSubstr("terminal 7")))) << options;
  }
  EXPECT_THAT(Shell("LC_ALL=C " + log).oOut, HasSubstr("declined (51 ?"));
  EXPECT_THAT(Shell("LC_ALL=ru_RU.CP1251 " + log).oOut, HasSubstr("(51 \xCE\xC4\xCE)"));
  // A reader that goes away is nothing to complain about.
  std::string much;
  for (int i = 0; i < 600; ++i) much += scratch.Get("zat_comm.log");
  EXPECT_THAT(Shell("zat_tool log " + scratch.Put("much.log", much) + " | head -n 1").oOut,
              testing::EndsWith("in the log)\n"));
  EXPECT_THAT(Shell("zat_tool log /nonexistent").oOut, HasSubstr("cannot read /nonexistent: No such file"));
  EXPECT_EQ(Shell("zat_tool log /etc/hostname").iExit, 1);
  EXPECT_EQ(Shell(log + "--since yesterday").iExit, 2);
}

// What the terminal says is text on the page, whatever it says.
TEST(Log, Page) {
  Scratch scratch;
  scratch.Put("zat_comm.log", Begin("14.03.59", '1') + Write("14.03.59", '1', Sale('7')) +
                                  Read("14.04.30", '1', "5X00000000071AM1<script>x</script>&\"\xC4\xE0") +
                                  Read("14.04.30", '1', kBad));
  EXPECT_EQ(Shell("zat_tool log " + (scratch / "") + " --html " + (scratch / "page.html")).oOut, "");
  const std::string page = scratch.Get("page.html");
  EXPECT_THAT(page,
              AllOf(HasSubstr("M1 &lt;script&gt;x&lt;/script&gt;&amp;&quot;Да"), Not(HasSubstr("<script")),
                    HasSubstr("<rect class=\"refused\""), HasSubstr("31 s without a line"),
                    HasSubstr("1 exchanges"), testing::EndsWith("</html>\n")));
  EXPECT_EQ(Shell("zat_tool log " + (scratch / "") + " --html /dev/full/x").iExit, 2);
}

// What ended before the log was moved, and what began in the new one, is told while it happens.
TEST(Log, FollowsAcrossTheMove) {
  Scratch scratch;
  const std::string log =
      scratch.Put("zat_comm.log", Begin("14.03.59", '1') + Write("14.03.59", '1', Sale('7')));
  scratch.Put("more", Read("14.04.00", '1', Answer('7', "00")) + Read("14.04.00", '1', kGood));
  scratch.Put("next",
              Begin("14.05.00", '2') + Write("14.05.00", '2', Sale('8')) + Read("14.05.00", '2', kBad));
  const Result run =
      Shell("cd " + (scratch / "") +
            "; zat_tool log -f --json zat_comm.log > out & tool=$!\n"
            "told() { for i in $(seq 200); do grep -q \"$1\" out && return; sleep 0.05; done; echo no $1; }\n"
            "told unknown; cat more >> zat_comm.log; mv zat_comm.log zat_com2.log; cat next > zat_comm.log\n"
            "told approved; told refused; kill $tool; wc -l < out");
  EXPECT_EQ(run.oOut, "3\n");
}

} // namespace
