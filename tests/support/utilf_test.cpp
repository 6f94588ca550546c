#include "scratch.h"
#include "utilf.h"
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string Quoted(const std::string& name) { return "\"" + name + "\""; }

struct Words {
  std::vector<std::string> words;
  Words(const char* line, int dim) {
    std::vector<char*> slots(static_cast<size_t>(std::max(dim, 0)) + 1);
    const int count = ParsCdmLine(line, slots.data(), dim);
    for (int i = 0; i < count; ++i) words.push_back(slots[static_cast<size_t>(i)]);
    EXPECT_EQ(slots[static_cast<size_t>(count)], nullptr);
    FreeArgV(slots.data(), dim);
  }
};

} // namespace

TEST(CommandLine, Words) {
  const struct {
    const char* line;
    int dim;
    std::vector<std::string> wanted;
  } rows[] = {
      {"prog \"a b\" c", 10, {"prog", "\"a b\"", "c"}},
      {"prog  \"a b\"", 10, {"prog", "\"a", "b\""}}, // two spaces: the quote is an ordinary character
      {"\"a b\" 'c d'",
       10,
       {"\"a b\"", "'c", "d'"}}, // behind a quoted word the space is the second separator
      {"\"a b\"'c d'", 10, {"\"a b\"", "'c d'"}},
      {"\"it's\"\"b\"", 10, {"\"it's\"", "\"b\""}},
      {"a\"b c\"", 10, {"a\"b", "c\""}},
      {"prog \"a b", 10, {"prog", "\"a b\""}},
      {"prog \"\" c", 10, {"prog", "\" c\""}}, // no empty words: the second quote waits on for one
      {" \"a\"", 10, {"\"a\""}},
      {"1 2 3 4 5 6 7 8 9 10 11", 10, {"1", "2", "3", "4", "5", "6", "7", "8", "9"}},
      {"one two", 2, {"one"}},
      {"one", 1, {}},
      {"one", 0, {}},
      {"   ", 10, {}},
      {"\"", 10, {}},
      {"", 10, {}},
      {nullptr, 10, {}},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Words(row.line, row.dim).words, row.wanted) << (row.line ? row.line : "-");
}

TEST(CommandLine, TwoHalves) {
  const struct {
    const char *line, *first, *second;
  } rows[] = {
      {"prog a b", "prog", "a b"},
      {"prog", "prog", ""},
      {"prog ", "prog", ""},
      {"\"a b\" c", "a b", "c"},
      {"'a b'c", "a b", ""},
      {" prog x", "prog", " x"},
      {"  \" x", "\"", "\" x"},
      {"", "", ""},
      {"  ", "", "  "},
      {"\"a", "a", ""},
      {"\"a\"", "a", ""},
  };
  for (const auto& row : rows) {
    tCmdTwoHalf halves;
    MakeCmdTwoHalf(row.line, &halves);
    EXPECT_STREQ(halves.pcFirst, row.first) << row.line;
    EXPECT_STREQ(halves.pcSecond, row.second) << row.line;
    FreeCmdTwoHalf(&halves);
    EXPECT_TRUE(!halves.pcFirst && !halves.pcSecond);
  }
}

TEST(CommandLine, EnclosingQuotesGo) {
  const std::pair<std::string, const char*> rows[] = {
      {"\"a b\"", "a b"}, {"\"\"", ""},          {"\"", ""}, {"", ""}, {"'a'", "'a'"},
      {"\"a", "\"a"},     {"\"\"a\"\"", "\"a\""}};
  for (auto [given, wanted] : rows) {
    char* arguments[] = {given.data(), nullptr};
    removebe(2, arguments);
    EXPECT_STREQ(arguments[0], wanted) << wanted;
  }
  char* both = stradd("ab", "c");
  EXPECT_STREQ(both, "abc");
  free(both);
}

TEST(Paths, Cut) {
  const struct {
    const char* path;
    size_t directory, parent; // fsplitp, fpathup
    const char* home;         // ConvertLocToHome
  } rows[] = {
      {"/a/b/", 5, 3, "/a/"},    {"/ab/", 4, 1, "/"}, {"ab/", 3, 0, "ab/../"},
      {"/a/b", 3, 0, "/a/b../"}, {"/", 1, 0, "/../"}, {"a/", 2, 0, "a/../"},
      {"name", 0, 0, "name../"}, {"", 0, 0, "../"},   {"a//", 3, 2, "a/"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(fsplitp(row.path), row.directory) << row.path;
    EXPECT_EQ(fpathup(row.path), row.parent) << row.path;
    tString home = row.path;
    ConvertLocToHome(home);
    EXPECT_EQ(home, row.home);
  }
  EXPECT_EQ(fsplitp(nullptr) + fpathup(nullptr), 0u);
  const tString module = GetModuleName(), at = module.substr(0, fsplitp(module.c_str()));
  const std::pair<const char*, tString> places[] = {
      {"/opt/zat/prog", "/opt/zat/"}, {"prog", at}, {"x/prog", at + "x/"}, {"", at}, {nullptr, at}};
  for (const auto& [program, wanted] : places) {
    tString place = "old";
    DetectLocDir(program, place);
    EXPECT_EQ(place, wanted);
  }
}

TEST(Paths, QuotesTakenOff) {
  const std::pair<const char*, const char*> rows[] = {{"\"a\"", "a"},    {"\"a b\"", "a b"},
                                                      {"\"\"", nullptr}, {"\"ab", nullptr},
                                                      {"ab\"", nullptr}, {"'a'", nullptr}};
  for (const auto& [given, wanted] : rows) {
    const char* name = given;
    char* copy = fpathr(&name);
    EXPECT_STREQ(copy, wanted);
    EXPECT_EQ(name, copy ? copy : given);
    free(copy);
  }
}

TEST(Files, UnderPlainAndQuotedNames) {
  Scratch dir;
  const std::string a = dir / "a file", b = dir / "b", c = dir / "c", d = dir / "d";
  for (auto form : {+[](const std::string& name) { return name; }, &Quoted}) {
    dir.Put("a file", "text");
    EXPECT_EQ(frpresent(form(a).c_str()), 0);
    EXPECT_EQ(fdpresent(form(a).c_str()), 1);
    EXPECT_EQ(flink(form(a).c_str(), form(b).c_str()), 0);
    EXPECT_EQ(frename(form(b).c_str(), form(c).c_str()), 0);
    EXPECT_EQ(fremove(form(a).c_str()), 0);
    EXPECT_EQ(dir.Get("c"), "text");
    EXPECT_EQ(fremove(form(a).c_str()), -1);
    EXPECT_EQ(fdpresent(form(a).c_str()), -1);
    EXPECT_EQ(fdpresent(form(dir / ".").c_str()), 0);
  }
  EXPECT_EQ(fmkdir(d.c_str()), 0);
  EXPECT_EQ(fmkdir(d.c_str()), -1);
  EXPECT_EQ(fmkdir((dir / "x/y").c_str()), -1);
  chmod(c.c_str(), 0640);
  EXPECT_EQ(fxpresent(c.c_str(), S_IFREG | S_IRGRP), 0);
  EXPECT_EQ(fxpresent(c.c_str(), S_IRGRP | S_IWGRP), 1) << "all of the bits";
}

TEST(Files, CopiesAndSizes) {
  Scratch dir;
  for (size_t size : {0, 1, 8191, 8192, 8193, 100000}) {
    const std::string bytes(size, '\xFF'), from = dir.Put("from", bytes),
                                           to = dir.Put("to", "older and longer");
    EXPECT_EQ(fgetsize(from.c_str()), size);
    EXPECT_EQ(fcopy(from.c_str(), to.c_str()), 0);
    EXPECT_EQ(dir.Get("to"), bytes);
  }
  const std::string from = dir / "from", link = dir / "link";
  fs::create_hard_link(from, link);
  EXPECT_EQ(fcopy(from.c_str(), link.c_str()), 0);
  EXPECT_EQ(fgetsize(from.c_str()), 100000u) << "a file copied onto itself stays";
  EXPECT_EQ(fcopy((dir / "none").c_str(), (dir / "new").c_str()), -1);
  EXPECT_FALSE(dir.Has("new"));
  EXPECT_EQ(fcopy(from.c_str(), (dir / "no/such").c_str()), -1);
  EXPECT_EQ(fcopy(from.c_str(), "/dev/full"), 1);
  EXPECT_EQ(fcopy(dir.Put("small", "x").c_str(), "/dev/full"), 1) << "seen only when it is closed";
  EXPECT_EQ(fcopy((dir / ".").c_str(), (dir / "new").c_str()), 1) << "a directory opens, but cannot be read";
  const std::string pipe = dir / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
  EXPECT_EQ(fgetsize(pipe.c_str()) + fgetsize((dir / "none").c_str()), 0u);
  EXPECT_EQ(fremove(nullptr) + frename(nullptr, nullptr) + fmkdir(nullptr) + fdpresent(nullptr), -4);
  EXPECT_EQ(fcopy(nullptr, nullptr) + SysExec(nullptr), -2);
  EXPECT_EQ(fgetsize(nullptr), 0u);
}
