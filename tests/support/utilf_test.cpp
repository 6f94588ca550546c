#include "scratch.h"
#include "utilf.h"
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string Quoted(const std::string& name) { return "\"" + name + "\""; }

std::vector<std::string> Words(const char* line, int dim) {
  std::vector<char*> slots(static_cast<size_t>(dim) + 1);
  const auto count = ParsCdmLine(line, slots.data(), dim);
  const std::vector<std::string> words(slots.begin(), slots.begin() + count);
  EXPECT_EQ(slots[words.size()], nullptr);
  FreeArgV(slots.data(), dim);
  return words;
}

} // namespace

TEST(CommandLine, Words) {
  typedef std::tuple<const char*, int, std::vector<std::string>> Row;
  for (const auto& [line, dim, wanted] :
       {Row{"prog \"a b\" c", 10, {"prog", "\"a b\"", "c"}},
        Row{"prog  \"a b\"", 10, {"prog", "\"a", "b\""}}, // two spaces: the quote is an ordinary character
        // behind a quoted word the space is the second separator
        Row{"\"a b\" 'c d'", 10, {"\"a b\"", "'c", "d'"}}, Row{"\"a b\"'c d'", 10, {"\"a b\"", "'c d'"}},
        Row{"\"it's\"\"b\"", 10, {"\"it's\"", "\"b\""}}, Row{"a\"b c\"", 10, {"a\"b", "c\""}},
        Row{"prog \"a b", 10, {"prog", "\"a b\""}},
        Row{"prog \"\" c", 10, {"prog", "\" c\""}}, // no empty words: the second quote waits on for one
        Row{" \"a\"", 10, {"\"a\""}},
        Row{"1 2 3 4 5 6 7 8 9 10 11", 10, {"1", "2", "3", "4", "5", "6", "7", "8", "9"}},
        Row{"one two", 2, {"one"}}, Row{"one", 1, {}}, Row{"one", 0, {}}, Row{"   ", 10, {}},
        Row{"\"", 10, {}}, Row{"", 10, {}}, Row{nullptr, 10, {}}})
    EXPECT_EQ(Words(line, dim), wanted) << (line ? line : "-");
}

TEST(CommandLine, TwoHalves) {
  typedef std::tuple<const char*, const char*, const char*> Row;
  for (const auto& [line, first, second] :
       {Row{"prog a b", "prog", "a b"}, Row{"prog", "prog", ""}, Row{"prog ", "prog", ""},
        Row{"\"a b\" c", "a b", "c"}, Row{"'a b'c", "a b", ""}, Row{" prog x", "prog", " x"},
        Row{"  \" x", "\"", "\" x"}, Row{"", "", ""}, Row{"  ", "", "  "}, Row{"\"a", "a", ""},
        Row{"\"a\"", "a", ""}}) {
    tCmdTwoHalf halves;
    MakeCmdTwoHalf(line, &halves);
    EXPECT_STREQ(halves.pcFirst, first) << line;
    EXPECT_STREQ(halves.pcSecond, second) << line;
    FreeCmdTwoHalf(&halves);
    EXPECT_TRUE(!halves.pcFirst && !halves.pcSecond);
  }
}

TEST(CommandLine, EnclosingQuotesGo) {
  typedef std::pair<std::string, const char*> Row;
  for (auto [given, wanted] : {Row{"\"a b\"", "a b"}, Row{"\"\"", ""}, Row{"\"", ""}, Row{"", ""},
                               Row{"'a'", "'a'"}, Row{"\"a", "\"a"}, Row{"\"\"a\"\"", "\"a\""}}) {
    char* arguments[] = {given.data(), nullptr};
    removebe(2, arguments);
    EXPECT_STREQ(arguments[0], wanted) << wanted;
  }
  char* both = stradd("ab", "c");
  EXPECT_STREQ(both, "abc");
  free(both);
}

TEST(Paths, Cut) {
  // directory, parent: fsplitp, fpathup
  // above: ConvertLocToHome
  typedef std::tuple<const char*, size_t, size_t, const char*> Row;
  for (const auto& [path, directory, parent, above] :
       {Row{"/a/b/", 5, 3, "/a/"}, Row{"/ab/", 4, 1, "/"}, Row{"ab/", 3, 0, "ab/../"},
        Row{"/a/b", 3, 0, "/a/b../"}, Row{"/", 1, 0, "/../"}, Row{"a/", 2, 0, "a/../"},
        Row{"name", 0, 0, "name../"}, Row{"", 0, 0, "../"}, Row{"a//", 3, 2, "a/"}}) {
    EXPECT_EQ(fsplitp(path), directory) << path;
    EXPECT_EQ(fpathup(path), parent) << path;
    tString home = path;
    ConvertLocToHome(home);
    EXPECT_EQ(home, above);
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
  typedef std::pair<const char*, const char*> Row;
  for (auto [given, wanted] : {Row{"\"a b\"", "a b"}, Row{"\"\"", nullptr}, Row{"\"ab", nullptr},
                               Row{"ab\"", nullptr}, Row{"'a'", nullptr}}) {
    const char* name = given;
    char* copy = fpathr(&name);
    EXPECT_STREQ(copy, wanted);
    EXPECT_EQ(name, copy ? copy : given);
    free(copy);
  }
}

TEST(Files, UnderPlainAndQuotedNames) {
  Scratch dir;
  const std::string a = dir / "a file", b = dir / "b", c = dir / "c";
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
  for (auto [made, name] : {std::pair(0, "d"), {-1, "d"}, {-1, "x/y"}})
    EXPECT_EQ(fmkdir((dir / name).c_str()), made);
  chmod(c.c_str(), 0640);
  EXPECT_EQ(fxpresent(c.c_str(), S_IFREG | S_IRGRP), 0);
  EXPECT_EQ(fxpresent(c.c_str(), S_IRGRP | S_IWGRP), 1) << "all of the bits";
}

TEST(Files, CopiesAndSizes) {
  Scratch dir;
  for (size_t size : {0, 1, 8191, 8192, 8193, 100000}) {
    const std::string bytes(size, '\xFF'), from = dir.Put("from", bytes), to = dir.Put("to", "longer");
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
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0666), 0);
  EXPECT_EQ(fgetsize((dir / "pipe").c_str()) + fgetsize((dir / "none").c_str()) + fgetsize(nullptr), 0u);
  EXPECT_EQ(fremove(nullptr) + frename(nullptr, nullptr) + fmkdir(nullptr) + fdpresent(nullptr), -4);
  EXPECT_EQ(fcopy(nullptr, nullptr) + SysExec(nullptr), -2);
}
