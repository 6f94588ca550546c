#include "scratch.h"
#include "simplecfg.h"
#include <climits>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

typedef std::pair<const char*, const char*> Row;

std::string File(const std::string& value) { return "[S]\nKey = " + value + "\n"; }

} // namespace

TEST(SimpleCfg, QuotesGoWhenAValueIsCopied) {
  Scratch dir;
  const std::string name = dir / "a.cfg";
  for (const auto& [given, kept] :
       {Row{"plain", "plain"}, Row{"\"a b\"", "a b"}, Row{"\"\"", "\"\""}, Row{"\"", "\""}, Row{"", ""},
        Row{"\"\"a\"\"", "\"a\""}, Row{"\"a", "\"a"}, Row{"a\"b\"c", "a\"b\"c"}, Row{"'a b'", "'a b'"},
        Row{"\"\"\"", "\""}}) {
    SimpleCfg set;
    EXPECT_EQ(set.SetValue("S", "Key", given), SI_INSERTED);
    EXPECT_STREQ(set.GetValue("s", "KEY"), kept);
    SimpleCfg cfg;
    dir.Put("a.cfg", File(given));
    EXPECT_EQ(cfg.LoadFile(name.c_str()), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), given) << "as it stands in the file";
    EXPECT_EQ(cfg.LoadFile(name.c_str()), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), kept) << "copied over the first";
    cfg.Reset();
    EXPECT_EQ(cfg.LoadData(File(given)), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), given) << "a first load again";
  }
}

// Whether a load is a first one depends on text being kept, not on keys being there.
TEST(SimpleCfg, WhatCountsAsAFirstLoad) {
  for (const auto& [first, value] : {Row{"", "\"a b\""}, Row{"\xEF\xBB\xBF", "\"a b\""},
                                     Row{"; only a comment\n", "a b"}, Row{"[S]\n", "a b"}}) {
    SimpleCfg cfg;
    cfg.SetValue("Other", "x", "1");
    EXPECT_EQ(cfg.LoadData(first), SI_OK);
    EXPECT_EQ(cfg.LoadData(File("\"a b\"")), SI_OK);
    EXPECT_STREQ(cfg.GetValue("S", "Key"), value) << first;
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
  SimpleCfg cfg;
  const std::string many(20, '9');
  typedef std::pair<std::string, long> Number;
  for (const auto& [text, value] : {Number{"0", 0},         Number{"8", 8},
                                    Number{"-30", -30},     Number{"+5", 5},
                                    Number{"007", 7},       Number{"0x1F", 31},
                                    Number{"0Xff", 255},    Number{"  12", 12},
                                    Number{many, LONG_MAX}, Number{"-" + many, LONG_MIN},
                                    Number{"", -7},         Number{"12 s", -7},
                                    Number{"1,000", -7},    Number{"1.5", -7},
                                    Number{"0x", -7},       Number{"x", -7},
                                    Number{"+-5", -7},      Number{"-", -7},
                                    Number{"0x-5", -7},     Number{"\xA0 5", -7}}) {
    cfg.SetValue("S", "n", text.c_str());
    EXPECT_EQ(cfg.GetLongValue("S", "n", -7), value) << text;
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
