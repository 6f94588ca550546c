// The version list of a client and the lists of downloaded updates.
#include "microus.h"
#include "updroot.h"
#include "updtlist.h"
#include "utilf.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

TEST(VersionList, MakesItsDirectoriesAndDefaults) {
  Scratch at;
  FListStorage list;
  for (const char* id : {"123/", ""}) {
    ASSERT_TRUE(list.Open(at / "DOWNLOAD/", std::string(id, strcspn(id, "/")).c_str()));
    EXPECT_EQ(list.oFName, at / "DOWNLOAD/" + id + "verslist.upd");
    for (const char* text : {list.mpccOL[0], list.pccHi, list.pccLD}) EXPECT_STREQ(text, "00000000.000");
  }
  EXPECT_TRUE(fs::is_empty(at / "DOWNLOAD/123")) << "neither a list nor a lock is left by reading";
}

TEST(VersionList, RecordsTheInstalledUpdate) {
  Scratch at;
  at.Put("d/7/verslist.upd",
         "; kept\n[last]\ninst=00000001.000\nHI = \"00000003.000\"\nLOAD=00000004.000\n[x]\ny=z\n");
  FListStorage list;
  list.SaveLI("00000009.000"); // not open yet
  ASSERT_TRUE(list.Open(at / "d/", "7"));
  EXPECT_STREQ(list.mpccOL[0], "00000001.000");
  EXPECT_STREQ(list.pccHi, "\"00000003.000\"") << "read, not copied: the quotes stay";
  EXPECT_STREQ(list.pccLD, "00000004.000");

  // Meanwhile somebody delivers another update. The name given is the store's own text, which the load replaces.
  at.Put("d/7/verslist.upd", "[LAST]\nINST=00000001.000\nHI=00000005.000\n[x]\ny=z\n");
  chmod((at / "d/7/verslist.upd").c_str(), 0660);
  list.SaveLI(list.pccHi);
  EXPECT_STREQ(list.mpccOL[0], "00000003.000") << "copied: the quotes go";
  EXPECT_STREQ(list.pccHi, "00000005.000");
  list.SaveLI(nullptr);
  FListStorage again;
  ASSERT_TRUE(again.Open(at / "d/", "7"));
  EXPECT_STREQ(again.mpccOL[0], "00000003.000");
  EXPECT_STREQ(again.oCfg.GetValue("x", "y", ""), "z") << "what others keep there stays";
  EXPECT_EQ(fs::status(at / "d/7/verslist.upd").permissions(), fs::perms(0660));
  EXPECT_EQ(at.Get("d/7/verslist.upd").find("\xEF\xBB\xBF"), std::string::npos);
}

TEST(VersionList, LocksInDepth) {
  Scratch at;
  FListStorage list;
  ASSERT_TRUE(list.Open(at / "d/", "7"));
  EXPECT_EQ(list.Lock(false), 1u);
  EXPECT_EQ(list.Lock(true), 2u);
  EXPECT_EQ(list.Unlock(false), 1u);
  EXPECT_TRUE(at.Has("d/7/verslist.upd.lck"));

  FListStorage other; // while the first one holds it
  EXPECT_FALSE(other.Open(at / "d/", "7"));
  EXPECT_TRUE(!other.fOpen && !other.pccHi && other.Lock(false) == 0);

  fs::remove(at / "d/7/verslist.upd.lck");
  EXPECT_EQ(list.Unlock(true), 0u) << "gone already is released";
  EXPECT_TRUE(other.Open(at / "d/", "7"));
}

TEST(VersionList, WaitsForAnotherProcess) {
  Scratch at;
  FListStorage list;
  ASSERT_TRUE(list.Open(at / "d/", "7"));
  HoldElsewhere(at, "d/7/verslist.upd.lck");
  EXPECT_EQ(list.Lock(false), 0u);
  list.SaveLI("00000002.000");
  EXPECT_THAT(at.Get("d/7/verslist.upd"), testing::HasSubstr("00000002.000"));
  EXPECT_FALSE(at.Has("d/7/verslist.upd.lck"));
}

TEST(UpdateList, ComparesNames) {
  EXPECT_EQ(UL_SCmp("0000001A.000", "0000001A.000"), 0);
  EXPECT_GT(UL_SCmp("10.000", "9.000"), 0);
  // The filling shifts the numbers against one another: a half-written update compares as greater than a bound of
  // the same number, and is left alone until the bound has eight significant digits.
  EXPECT_GT(UL_SCmp("0000001A.000.tmp", "0000001A.000"), 0);
  EXPECT_LT(UL_SCmp("0000001A.000.tmp", "1000001A.000"), 0);
}

TEST(UpdateList, TakesWhatFits) {
  Scratch at;
  for (const char* name :
       {"0000001A.000", "0000001b.000", "0000001C.000", "00000001.000", "0000001D.007", "0000001E.0000",
        "000001F.000", "0000001G.000", "x0000001A.000", "0000001A.000.bak", "0000001C.000.tmp",
        "7/0000001B.000", "7/0000001A.000.tmp", "8/0000001B.000", "7/7/00000010.000", "7/00000011.000/x"})
    at.Put(std::string("d/") + name, name);
  const char* const masks[] = {"HHHHHHHH.000", "HHHHHHHH.000.tmp", nullptr};
  const char* const installed[] = {"00000001.000", nullptr};
  const char* const dirs[] = {"7", nullptr};
  tFListData lists;
  lists.oIn = {installed, masks, "overwritten", dirs};
  const std::string top = at / "d/";
  using testing::ElementsAre, testing::Pair;

  ASSERT_EQ(FSMSMakeFList(top.c_str(), &lists, nullptr), 0);
  std::string found;
  for (const auto& [name, path] : lists.oOut.oSM) found += path.substr(top.size()) + " ";
  EXPECT_EQ(found, "0000001A.000 7/0000001B.000 0000001C.000 0000001D.007 0000001b.000 ");
  EXPECT_THAT(lists.oOut.oSMb, ElementsAre(Pair("0000001A.*", top + "7/"), Pair("0000001C.*", top)));

  ASSERT_EQ(FSMSMakeFList(top.c_str(), &lists, "0000001B.000"), 0);
  EXPECT_EQ(lists.oOut.oSM.size(), 2u) << "bounded, and cleared before";
  EXPECT_TRUE(lists.oOut.oSMb.empty());

  lists.oIn.ppccMaskLine = nullptr;
  EXPECT_EQ(FSMSMakeFList(top.c_str(), &lists, nullptr), 1);
  EXPECT_TRUE(lists.oOut.oSM.empty());
  EXPECT_EQ(FSMSMakeFList(top.c_str(), nullptr, nullptr), -1);
}

TEST(UpdateList, KeepsTheShorterDirectoryOfAMask) {
  const char* const masks[] = {"HHHHHHHH.000", "HHHHHHHH.000.tmp", nullptr};
  tFListData lists;
  lists.oIn = {nullptr, masks, nullptr, nullptr};
  tFSysMpScData entry = {};
  entry.oFType = eFSMSFTfile;
  entry.fBefore = true;
  entry.pvUser = &lists;
  entry.oWork.pccMask = "0000001A.000.tmp";
  for (const char* dir : {"d/7/", "d/", "d/7/"}) {
    const std::string path = std::string(dir) + entry.oWork.pccMask;
    entry.oWork.pccPathIn = path.c_str();
    EXPECT_EQ(FSysMpScMakeFL(&entry), 0);
  }
  EXPECT_THAT(lists.oOut.oSMb, testing::ElementsAre(testing::Pair("0000001A.*", "d/")));
}

} // namespace
