#include "scratch.h"
#include "simplecfg.h"
#include <climits>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

struct Row {
  const char *given, *kept;
};
const Row kValues[] = {
    {"plain", "plain"}, {"\"a b\"", "a b"},     {"\"a\"", "a"}, {"\"\"", "\"\""}, {"\"", "\""},
    {"", ""},           {"\"\"a\"\"", "\"a\""}, {"\"a", "\"a"}, {"a\"", "a\""},   {"a\"b\"c", "a\"b\"c"},
    {"'a b'", "'a b'"}, {"\"\"\"", "\""},       {nullptr, ""},
};

std::string File(const char* value) { return std::string("[S]\nKey = ") + (value ? value : "") + "\n"; }

} // namespace

TEST(SimpleCfg, QuotesGoWhenAValueIsCopied) {
  Scratch dir;
  const std::string name = dir / "a.cfg";
  for (const Row& row : kValues) {
    SimpleCfg set;
    EXPECT_EQ(set.SetValue("S", "Key", row.given), SI_INSERTED);
    EXPECT_STREQ(set.GetValue("s", "KEY"), row.kept);

    SimpleCfg cfg;
    dir.Put("a.cfg", File(row.given));
    EXPECT_EQ(cfg.LoadFile(name.c_str()), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), row.given ? row.given : "") << "as it stands in the file";
    EXPECT_EQ(cfg.LoadFile(name.c_str()), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), row.kept) << "copied over the first";
    cfg.Reset();
    EXPECT_EQ(cfg.LoadData(File(row.given)), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), row.given ? row.given : "") << "a first load again";
  }
}

// Whether a load is a first one depends on text being kept, not on keys being there.
TEST(SimpleCfg, WhatCountsAsAFirstLoad) {
  const struct {
    const char *first, *value;
  } rows[] = {{"", "\"a b\""}, {"\xEF\xBB\xBF", "\"a b\""}, {"; only a comment\n", "a b"}, {"[S]\n", "a b"}};
  for (const auto& row : rows) {
    SimpleCfg cfg;
    cfg.SetValue("Other", "x", "1");
    EXPECT_EQ(cfg.LoadData(row.first), SI_OK);
    EXPECT_EQ(cfg.LoadData(File("\"a b\"")), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), row.value) << row.first;
  }
}

TEST(SimpleCfg, SecondLoadKeepsOrderAndComments) {
  Scratch dir;
  const std::string name =
      dir.Put("a.cfg", "; the file\n\n; the section\n[B]\n\n; the key\nz = 1\na = \"2 3\"\n\n\n[A]\n");
  SimpleCfg twice, once;
  ASSERT_EQ(once.LoadFile(name.c_str()), SI_OK);
  ASSERT_EQ(twice.LoadData("[first]\nk = v\n"), SI_OK);
  ASSERT_EQ(twice.LoadFile(name.c_str()), SI_OK);
  ASSERT_TRUE(twice.Delete("first", nullptr));
  once.SetValue("B", "a", "2 3");
  std::string a, b;
  once.Save(a);
  twice.Save(b);
  EXPECT_EQ(a, b);
  EXPECT_THAT(b, testing::HasSubstr("; the file"));
}

TEST(SimpleCfg, Numbers) {
  const struct {
    const char* text;
    long value;
  } rows[] = {{"0", 0},
              {"8", 8},
              {"-30", -30},
              {"+5", 5},
              {"007", 7},
              {"0x1F", 31},
              {"0Xff", 255},
              {"  12", 12},
              {"", -7},
              {"12 s", -7},
              {"1,000", -7},
              {"1.5", -7},
              {"0x", -7},
              {"x", -7},
              {"+-5", -7},
              {"--5", -7},
              {"-", -7},
              {"0x-5", -7},
              {"\xA0"
               "5",
               -7},
              {"99999999999999999999", LONG_MAX},
              {"-99999999999999999999", LONG_MIN}};
  SimpleCfg cfg;
  for (const auto& row : rows) {
    cfg.SetValue("S", "n", row.text);
    EXPECT_EQ(cfg.GetLongValue("S", "n", -7), row.value) << row.text;
  }
  EXPECT_EQ(cfg.GetLongValue("S", "none", 4), 4);
}

TEST(SimpleCfg, FilesThatCannotBeReadOrWritten) {
  Scratch dir;
  const std::string pipe = dir / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
  SimpleCfg cfg;
  cfg.SetValue("S", "Key", std::string(100000, 'x').c_str());
  for (const std::string& name : {dir / "none", dir / ".", pipe}) {
    EXPECT_EQ(cfg.LoadFile(name.c_str()), SI_FILE) << name;
    EXPECT_EQ(cfg.SaveFile((name + "/").c_str()), SI_FILE) << name;
  }
  EXPECT_EQ(cfg.SaveFile("/dev/full"), SI_FILE);
  EXPECT_EQ(cfg.GetSectionSize("S"), 1) << "the document stays";
  const std::string name = dir / "a.cfg";
  SimpleCfg back;
  EXPECT_EQ(cfg.SaveFile(name.c_str()), SI_OK);
  EXPECT_EQ(back.LoadFile(name.c_str()), SI_OK);
  EXPECT_EQ(std::string(back.GetValue("S", "Key", "")).size(), 100000u);
}
