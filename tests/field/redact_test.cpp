// Card numbers are found where they are, and nowhere else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scratch.h"
#include "shell.h"

namespace {

using testing::HasSubstr;

const std::string kLine = "2026-11-21 14.03.59 {0000ABCD} : ";

TEST(Redact, WhatIsHidden) {
  const std::string response =
      kLine + "[MicroS] ReadBlock: 60000000000766000000001200643202611211334354000001234567891632"
              "61300000100\x1B";
  struct {
    std::string before, after;
  } rows[] = {
      {"card 4000001234567899.", "card ************7899."},
      {"4000 0012 3456 7899", "**** **** **** 7899"},
      {"4000-0012-3456-7899 3782 822463 10005", "****-****-****-7899 **** ****** *0005"},
      {";4000001234567899=25121011234?", ";************7899=***********?"},
      {"57114000001234567899D25121011234", "5***************7899D***********"},
      {"1000000000072800000000120012345678901234567=2512",
       "100000000007280000000012***************4567=****"},
      {kLine + "[MicroS] WriteBlock: 10000000000728000000001200400000123456789=2512101",
       kLine + "[MicroS] WriteBlock: 10000000000728000000001200***********6789=*******"},
      {response + "4000001234567899=2512\x1BVISA\x1B", response + "************7899=****\x1BVISA\x1B"},
      // In free text; what stands behind a line feed in a message belongs to the message.
      {kLine + "[MicroS] ReadBlock: 5X000000000726M1a\n4000001234567899 \xCD\xE5\xF2 \x1B[2J",
       kLine + "[MicroS] ReadBlock: 5X000000000726M1a\n************7899 \xCD\xE5\xF2 \x1B[2J"},
  };
  for (const auto& row : rows) {
    Scratch scratch;
    const std::string file = scratch.Put("a.log", row.before + "\r\n");
    const Result check = Shell("zat_tool redact --check " + file);
    EXPECT_EQ(check.iExit, 1) << row.before;
    EXPECT_THAT(check.oOut, testing::Not(HasSubstr("4000001234"))) << "the complaint tells the number";
    EXPECT_EQ(Shell("zat_tool redact < " + file).oOut, row.after + "\r\n");
    EXPECT_EQ(Shell("zat_tool redact --in-place " + file).iExit, 0);
    EXPECT_EQ(scratch.Get("a.log"), row.after + "\r\n");
    EXPECT_EQ(Shell("zat_tool redact --check " + file).oOut, "") << row.after;
  }
}

TEST(Redact, WhatIsNot) {
  Scratch scratch;
  // Each number of 13 to 19 digits has the right check digit.
  const std::string file = scratch.Put(
      "a.log",
      "000000000000018 000000000000042 20261121133003 1763732075121 632613000001 000000125000\n"
      "0x4000001234567899 40000012345678991234 4000001234567898 400000123456\n"
      "2026-11-21 14.03.59 {0000ABCD} : [MicroS] ReadBlock: 600000000007590000000012006432026112113300340000"
      "0000000003632613000001"
      "00\x1B************7899=****\x1BVISA\x1B\x1B\r\n"
      "2026-11-21 14.03.59 {0000ABCD} : [MicroS] ReadBlock: #0000000000700\r\n");
  const Result run = Shell("zat_tool redact --check " + file);
  EXPECT_EQ(run.oOut, "");
  EXPECT_EQ(run.iExit, 0);
}

TEST(Redact, Complaints) {
  struct {
    const char *args, *says;
  } rows[] = {{"/nonexistent", "cannot read /nonexistent: No such file"},
              {"--check .", "cannot read .: Is a directory"},
              {"--in-place", "wants a file"},
              {"/dev/null --in-place --check", "excludes"},
              {"/etc/hostname > /dev/full", "cannot write the standard output: No space"}};
  for (const auto& row : rows) {
    const Result run = Shell(std::string("zat_tool redact ") + row.args);
    EXPECT_EQ(run.iExit, 2) << row.args;
    EXPECT_THAT(run.oOut, HasSubstr(row.says));
  }
}

} // namespace
