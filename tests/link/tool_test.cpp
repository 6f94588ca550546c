// zat_tool as its users run it.
#include <array>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include "scratch.h"

namespace {

using testing::AllOf, testing::HasSubstr, testing::Not;

struct Result {
  int iExit = -1;
  std::string oOut; // standard output and error
};

// Runs a shell command line in which zat_tool is the program just built.
Result Shell(const std::string& line) {
  Result run;
  FILE* pipe = popen(("PATH=" ZAT_INSTALLATION "/BIN:$PATH; { " + line + "; } 2>&1").c_str(), "r");
  if (!pipe) return run;
  std::array<char, 4096> piece;
  for (size_t count; (count = fread(piece.data(), 1, piece.size(), pipe)) > 0;)
    run.oOut.append(piece.data(), count);
  const int status = pclose(pipe);
  if (WIFEXITED(status)) run.iExit = WEXITSTATUS(status);
  return run;
}

const std::string kSale = "1000000012340C000000125000";
const std::string kFrame =
    "10 02 31 30 30 30 30 30 30 30 31 32 33 34 30 43 30 30 30 30 30 30 31 32 35 30 30 30 10 03 70";

TEST(Tool, DecodesEveryFormAndWayOfWriting) {
  Scratch scratch;
  const std::string file = scratch.Put("message", kSale + "\n");
  struct {
    std::string args;
    const char* form;
  } rows[] = {
      {"decode " + kSale, "message"},
      {"decode --file " + file, "message"},
      {"decode < " + file, "message"},
      {"decode - < " + file, "message"},
      {"decode '" + kFrame + "'", "frame"},
      {"decode '\\x10\\x02" + kSale + "\\x10\\x03\\x70'", "frame"},
      {"encode 10 TM.TID=1234 TR.AMT=125000 --form block --as raw | zat_tool decode", "block"},
      {"encode 10 TM.TID=1234 TR.AMT=125000 --form block | tr -d ' ' | zat_tool decode", "block"},
      {"encode eEFTPwidSale TM.TID=1234 TR.AMT=125000 | zat_tool decode --as hex", "message"},
  };
  for (const auto& row : rows) {
    const Result run = Shell("zat_tool " + row.args + " --json");
    const auto json = nlohmann::json::parse(run.oOut, nullptr, false);
    ASSERT_TRUE(json.is_object()) << row.args << "\n" << run.oOut;
    EXPECT_EQ(run.iExit, 0) << row.args;
    EXPECT_EQ(json["form"], row.form) << row.args;
    EXPECT_EQ(json["name"], "eEFTPwidSale");
    EXPECT_EQ(json["terminalId"], "0000001234");
    EXPECT_EQ(json["fields"][0]["tag"], "TR.AMT");
    EXPECT_EQ(json["fields"][0]["value"], "000000125000");
    EXPECT_TRUE(json["fault"].is_null());
  }
}

TEST(Tool, DigitsAndBlanksMayBeAMessage) {
  EXPECT_EQ(Shell("zat_tool decode '1900000012340C1234        '").iExit, 0);
  EXPECT_THAT(Shell("zat_tool decode '31 39 30'").oOut, HasSubstr("void"));
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

TEST(Tool, ThePlaceOfTheFirstFault) {
  struct {
    const char *input, *fault;
  } rows[] = {
      {"1", "fault at 1: a header has 14 bytes"},
      {"35000000123400", "fault at 0: no message has this work id"},
      {"100000001234??", "fault at 12: no data length"},
      {"100000001234050000", "fault at 18: 5 data bytes announced, 4 there"},
      {"1900000012340512345", "fault at 14: TR.RFN: 12 bytes wanted, 5 left"},
      {"2100000012340212", "fault at 14: 2 bytes too many"},
      {"3600000012340311x", "fault at 16: the data do not fit this message"},
      {"17 02 00 31 30 18", "fault at 5: a header has 14 bytes"},
      {"\\x17\\x0E\\x0021000000123400\\x18", "fault at 17: no end byte 0x17"},
      {"\\x17\\x0E\\x0021000000123400", "fault at 17: the block announces 14 bytes"},
      {"\\x10\\x0221000000123400\\x10\\x04", "fault at 16: no end sequence"},
      {"\\x10\\x0221000000123400\\x10\\x03", "fault at 18: no LRC"},
      {"\\x10\\x0221000000123400\\x10\\x03\\x07x", "fault at 19: bytes behind"},
  };
  for (const auto& row : rows) {
    const Result run = Shell(std::string("zat_tool decode '") + row.input + "'");
    EXPECT_EQ(run.iExit, 1) << row.input;
    EXPECT_THAT(run.oOut, HasSubstr(row.fault)) << row.input;
  }
}

TEST(Tool, WhatCannotBeDone) {
  struct {
    const char* args;
    int exit;
    const char* says;
  } rows[] = {
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
  };
  for (const auto& row : rows) {
    const Result run = Shell(std::string("zat_tool ") + row.args);
    EXPECT_EQ(run.iExit, row.exit) << row.args;
    EXPECT_THAT(run.oOut, HasSubstr(row.says)) << row.args;
  }
}

TEST(Tool, ListsTagsAndMessages) {
  EXPECT_EQ(nlohmann::json::parse(Shell("zat_tool tags --json").oOut).size(), 75u);
  EXPECT_THAT(Shell("zat_tool tags").oOut, HasSubstr("TR.AMT     abisTRamt"));
  size_t ids = 0;
  for (const auto& row : nlohmann::json::parse(Shell("zat_tool messages --json").oOut))
    ids += row["workIds"].size();
  EXPECT_EQ(ids, 59u);
  EXPECT_THAT(Shell("zat_tool messages").oOut, HasSubstr("  10  sale\n"));
}

// ---- docs/protocol.md ----

std::string Protocol() {
  std::ifstream in(ZAT_SOURCE_DIR "/docs/protocol.md");
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(ProtocolDocument, HoldsTheListThatTheToolPrints) {
  const std::string doc = Protocol(), begin = "<!-- zat_tool messages --markdown -->\n",
                    end = "<!-- end of the list -->";
  const size_t from = doc.find(begin) + begin.size();
  EXPECT_EQ(doc.substr(from, doc.find(end) - from), Shell("zat_tool messages --markdown").oOut);
}

// Every "$ command" of a console block prints what stands below it.
TEST(ProtocolDocument, ExamplesAreTrue) {
  std::istringstream lines(Protocol());
  std::string command, want;
  bool inside = false;
  int count = 0;
  const auto check = [&] {
    if (!command.empty()) { EXPECT_EQ(Shell(command).oOut, want) << command; }
    count += !command.empty();
    command.clear();
    want.clear();
  };
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```") || line.starts_with("$ ")) check();
    if (line.starts_with("```"))
      inside = line == "```console";
    else if (inside && line.starts_with("$ "))
      command = line.substr(2);
    else if (inside)
      want += line + "\n";
  }
  EXPECT_GE(count, 7);
}

} // namespace
