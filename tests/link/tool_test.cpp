// zat_tool as its users run it.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include "scratch.h"

namespace {

using testing::AllOf, testing::HasSubstr, testing::Not;

struct Result {
  std::string oOut; // standard output and error
  int iExit;
};

// Runs a shell command line in which zat_tool is the program just built.
Result Shell(const std::string& line) {
  FILE* pipe = popen(("PATH=" ZAT_INSTALLATION "/BIN:$PATH; { " + line + "; } 2>&1").c_str(), "r");
  std::string out;
  for (int c; (c = fgetc(pipe)) != EOF;) out += static_cast<char>(c);
  return {out, WEXITSTATUS(pclose(pipe))};
}

const std::string kSale = "1000000012340C000000125000";
const std::string kFrame =
    "10 02 31 30 30 30 30 30 30 30 31 32 33 34 30 43 30 30 30 30 30 30 31 32 35 30 30 30 10 03 70";

TEST(Tool, DecodesEveryFormAndWayOfWriting) {
  Scratch scratch;
  const std::string file = scratch.Put("message", kSale + "\n"), sale = "10 TM.TID=1234 TR.AMT=125000 ";
  const std::pair<std::string, const char*> rows[] = {
      {"decode " + kSale, "message"},
      {"decode --file " + file, "message"},
      {"decode - < " + file, "message"},
      {"decode '" + kFrame + "'", "frame"},
      {"decode '\\x10\\x02" + kSale + "\\x10\\x03\\x70'", "frame"},
      {"encode " + sale + "--form block --as raw | zat_tool decode", "block"},
      {"encode " + sale + "--form block | tr -d ' ' | zat_tool decode", "block"},
      {"encode eEFTPwidSale TM.TID=1234 TR.AMT=125000 | zat_tool decode --as hex", "message"},
  };
  for (const auto& [args, form] : rows) {
    const Result run = Shell("zat_tool " + args + " --json");
    const auto json = nlohmann::json::parse(run.oOut, nullptr, false);
    ASSERT_TRUE(json.is_object()) << args << "\n" << run.oOut;
    EXPECT_EQ(run.iExit, 0) << args;
    EXPECT_EQ(json["form"], form) << args;
    EXPECT_EQ(json["name"], "eEFTPwidSale");
    EXPECT_EQ(json["terminalId"], "0000001234");
    EXPECT_EQ(json["fields"][0]["tag"], "TR.AMT");
    EXPECT_EQ(json["fields"][0]["value"], "000000125000");
    EXPECT_TRUE(json["fault"].is_null());
  }
}

TEST(Tool, CardDataAreMaskedUnlessAsked) {
  const std::string response =
      "zat_tool encode 60 TM.TID=1 EF.COD=0 TR.AMT=1 TR.CCD=643 TR.DTT=20261121120000 TM.MID=7 TR.RFN=1 "
      "EF.RCD=00 TR.PEX=4000001234567899=2512 EF.MSG=4000001234567899 | zat_tool decode";
  EXPECT_THAT(Shell(response).oOut, AllOf(HasSubstr("************7899=****"), HasSubstr("TR.ACD"),
                                          HasSubstr("(absent)"), Not(HasSubstr("400000"))));
  EXPECT_THAT(Shell(response + " --json").oOut, Not(HasSubstr("400000")));
  EXPECT_THAT(Shell(response + " --unmasked").oOut, HasSubstr("4000001234567899=2512"));
  const Result sale = Shell("zat_tool encode 10 TR.AMT=1 'TR.S.TR2=4000001234567899=2512' | zat_tool decode");
  EXPECT_THAT(sale.oOut, AllOf(HasSubstr("??????????"), HasSubstr("*****"), Not(HasSubstr("7899"))));
}

TEST(Tool, FindsThePlaceOfTheFirstFaultAndSaysWhatCannotBeDone) {
  struct {
    const char* args;
    int exit;
    const char* says;
  } rows[] = {
      {"decode '1900000012340C1234        '", 0, "void"}, // digits and blanks may be a message
      {"decode '31 39 30'", 1, "void"},
      {"decode 1", 1, "fault at 1: a header has 14 bytes"},
      {"decode 35000000123400", 1, "fault at 0: no message has this work id"},
      {"decode '100000001234\?\?'", 1, "fault at 12: no data length"},
      {"decode 100000001234050000", 1, "fault at 18: 5 data bytes announced, 4 there"},
      {"decode 1900000012340512345", 1, "fault at 14: TR.RFN: 12 bytes wanted, 5 left"},
      {"decode 2100000012340212", 1, "fault at 14: 2 bytes too many"},
      {"decode 3600000012340311x", 1, "fault at 16: the data do not fit this message"},
      {"decode '17 02 00 31 30 18'", 1, "fault at 5: a header has 14 bytes"},
      {"decode '\\x17\\x0E\\x0021000000123400\\x18'", 1, "fault at 17: no end byte 0x17"},
      {"decode '\\x17\\x0E\\x0021000000123400'", 1, "fault at 17: the block announces 14 bytes"},
      {"decode '\\x10\\x0221000000123400\\x10\\x04'", 1, "fault at 16: no end sequence"},
      {"decode '\\x10\\x0221000000123400\\x10\\x03'", 1, "fault at 18: no LRC"},
      {"decode '\\x10\\x0221000000123400\\x10\\x03\\x07x'", 1, "fault at 19: bytes behind"},
      {"", 2, "subcommand"},
      {"decode --file /nonexistent", 2, "cannot read"},
      {"encode 10", 1, "TR.AMT is missing"},
      {"encode 10 TR.AMT=1 TR.S.TR2=12345678901234567890123456789012345678", 1, "more than 37"},
      {"encode 22 EF.FIN=$(printf '%02100d' 1) --form frame", 1, "too many"},
      {"encode 35", 2, "no message"},
      {"encode 10 TR.AMT", 2, "TAG=VALUE"},
      {"encode 10 XX.YYY=1", 2, "no such tag"},
      {"encode 10 EF.MSG=1", 2, "no part of this message"},
      {"encode 5X EF.ECD=X1 EF.MSG=漢", 2, "code page"},
      {"encode 10 TR.AMT=1 --form envelope", 2, "envelope"},
      {"tags", 0, "TR.AMT     abisTRamt"},
  };
  for (const auto& row : rows) {
    const Result run = Shell(std::string("zat_tool ") + row.args);
    EXPECT_EQ(run.iExit, row.exit) << row.args;
    EXPECT_THAT(run.oOut, HasSubstr(row.says)) << row.args;
  }
  EXPECT_EQ(nlohmann::json::parse(Shell("zat_tool tags --json").oOut).size(), 75u);
  EXPECT_EQ(nlohmann::json::parse(Shell("zat_tool messages --json").oOut).size(), 19u);
}

// ---- docs/protocol.md ----

const std::string kProtocol = [] {
  std::ifstream in(ZAT_SOURCE_DIR "/docs/protocol.md");
  return std::string(std::istreambuf_iterator<char>(in), {});
}();

TEST(ProtocolDocument, HoldsTheListThatTheToolPrints) {
  EXPECT_THAT(kProtocol, HasSubstr("<!-- zat_tool messages --markdown -->\n" +
                                   Shell("zat_tool messages --markdown").oOut + "<!-- end of the list -->"));
}

// Every "$ command" of a console block prints what stands below it.
TEST(ProtocolDocument, ExamplesAreTrue) {
  std::istringstream lines(kProtocol);
  std::string command, want, line;
  int count = 0;
  for (bool inside = false; std::getline(lines, line);) {
    const bool fence = line.starts_with("```"), prompt = inside && line.starts_with("$ ");
    if ((fence || prompt) && !command.empty()) {
      EXPECT_EQ(Shell(command).oOut, want) << command;
      ++count;
    }
    if (fence) inside = line == "```console";
    if (fence || prompt)
      command = prompt ? line.substr(2) : "", want = "";
    else
      want += line + "\n";
  }
  EXPECT_GE(count, 7);
}

} // namespace
