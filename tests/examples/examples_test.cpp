// The example tills against the simulated terminal, each outcome that they tell apart.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "installation.h"

using testing::HasSubstr;

namespace {

// The exit code of a command and what it prints.
std::pair<int, std::string> Shell(const std::string& command) {
  FILE* out = popen((command + " 2>&1").c_str(), "r");
  std::string text;
  for (int c; (c = fgetc(out)) != EOF;) text += static_cast<char>(c);
  return {WEXITSTATUS(pclose(out)), text};
}

struct Case {
  const char *pccAmountC, *pccAmountCpp;
  int iExit;
  const char *pccSaysC, *pccSaysCpp;
};
constexpr Case kCases[] = {
    {"125000", "1250,00", 0, "\npaid\n", "\napproved: response 00"},
    {"1251", "12.51", 1, "\nnot paid\n", "declined: response 51 НЕДОСТАТОЧНО СРЕДСТВ"},
    {"1277", "12.77", 5, "12.77\n",
     "last payment that the terminal knows: 12.77, reference number 6"}, // the terminal approves and dies
    {"", "12.777", 1, "usage", "usage"},
};

TEST(Examples, C) {
  Installation site(ZAT_INSTALLATION "/BIN/zat_mm");
  for (const Case& c : kCases) {
    auto [exit, text] =
        Shell("LD_LIBRARY_PATH=" + (site / "BIN") + " " ZAT_INSTALLATION "/tests/till_c " + c.pccAmountC);
    EXPECT_EQ(exit, c.iExit) << text;
    EXPECT_THAT(text, HasSubstr(c.pccSaysC));
  }
  EXPECT_THAT(site.Log(), HasSubstr("eftp_do")); // this library, not the one of the build
}

TEST(Examples, Cpp) {
  Installation site(ZAT_INSTALLATION "/BIN/zat_mm");
  for (const Case& c : kCases) {
    auto [exit, text] =
        Shell(ZAT_INSTALLATION "/tests/till_cpp " + std::string(c.pccAmountCpp) + " " + site.Library());
    EXPECT_EQ(exit, c.iExit) << text;
    EXPECT_THAT(text, HasSubstr(c.pccSaysCpp));
  }
  EXPECT_THAT(Shell(ZAT_INSTALLATION "/tests/till_cpp 1 /nowhere/libzat_ms.so").second,
              HasSubstr("refused: noLibrary"));
}

// Ctrl-C while the terminal waits for the card.
TEST(Examples, CppBrokenOff) {
  Installation site(ZAT_INSTALLATION "/BIN/zat_mm");
  auto [exit, text] = Shell(ZAT_INSTALLATION "/tests/till_cpp 1.73 " + site.Library() + " >" +
                            (site / "out") + " 2>&1 & until grep -q connecting " + (site / "out") +
                            " || ! kill -0 $!; do :; done; kill -INT $!; wait $!");
  EXPECT_EQ(exit, 1);
  EXPECT_THAT(site.Get("out"), HasSubstr("aborted: break"));
}

} // namespace
