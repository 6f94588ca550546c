// The updater as a program: what it unpacks, what it refuses, and that an installation survives a kill anywhere.
#include "killer.h"
#include "updroot.h"
#include "utilf.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

namespace fs = std::filesystem;

namespace {

// Every name below a directory with what stands there: the bytes of a file, the target of a link.
std::map<std::string, std::string> Snapshot(const std::string& top) {
  std::map<std::string, std::string> all;
  for (const auto& entry : fs::recursive_directory_iterator(top)) {
    std::ifstream in(entry.path(), std::ios::binary);
    const bool runs = (entry.status().permissions() & fs::perms::owner_exec) != fs::perms::none;
    std::string& what = all[entry.path().lexically_relative(top).string()];
    what = entry.is_symlink() ? "-> " + fs::read_symlink(entry.path()).string() : runs ? "program " : "";
    if (!entry.is_symlink() && !entry.is_directory()) what.append(std::istreambuf_iterator<char>(in), {});
  }
  return all;
}

// An update as a shop gets it.
void PutTree(const Scratch& oAt, const std::string& top, const std::string& version) {
  PutProgram(oAt, top + "/BIN/zat_mm", "module " + version);
  oAt.Put(top + "/BIN/libzat_ms.so", std::string(50, 'x') + version);
  oAt.Put(top + "/micromgl.cfg", "configuration " + version);
  oAt.Put(top + "/texts/\xCF\xF0.txt", "texts " + version); // a name that is no UTF-8
  symlink("../micromgl.cfg", (oAt / (top + "/texts/link")).c_str());
}

// One tar header with its bytes.
std::string TarEntry(const std::string& name, char type, const std::string& link,
                     const std::string& bytes = "") {
  std::string block(512, '\0');
  name.copy(&block[0], 100);
  snprintf(&block[100], 8, "%07o", 0644);
  snprintf(&block[124], 12, "%011zo", bytes.size());
  block[156] = type;
  link.copy(&block[157], 100);
  block.replace(148, 8, 8, ' ');
  unsigned sum = 0;
  for (unsigned char c : block) sum += c;
  snprintf(&block[148], 8, "%06o", sum);
  return block + bytes + std::string((512 - bytes.size() % 512) % 512, '\0');
}

std::string PutArchive(const Scratch& oAt, const std::string& tar) {
  oAt.Put("made.tar", tar + std::string(1024, '\0'));
  EXPECT_EQ(Exit("gzip -nkf " + oAt / "made.tar"), 0);
  return oAt / "made.tar.gz";
}

TEST(Updater, UnpacksWhatItPacked) {
  const InMemory quick;
  Scratch at;
  PutTree(at, "tree", "2");
  fs::create_directory(at / "tree/empty");
  const auto tree = Snapshot(at / "tree");
  for (const char* name : {"update", "again"})
    ASSERT_EQ(Exit(kUpdater + " --pack " + at / "tree " + at / name), 0);
  EXPECT_EQ(at.Get("update"), at.Get("again"));
  int kills = 0;
  for (; RunAndKillAt({kUpdater, at / "update", at / "out"}, kills + 1); ++kills) {
    if (kills % 3) continue; // the leftover of a leftover, too
    ASSERT_EQ(RunUpdater(at / "update", at / "out"), 2) << "after a kill at change " << kills + 1;
    ASSERT_EQ(Snapshot(at / "out"), tree);
    fs::remove_all(at / "out");
  }
  EXPECT_GT(kills, 10);
  EXPECT_EQ(RunUpdater(at / "update", at / "out"), 1) << "a directory with somebody's files in it";
  EXPECT_EQ(Snapshot(at / "out"), tree);
  EXPECT_EQ(Exit(kUpdater), 0) << "the check of itself";
}

TEST(Updater, RefusesDamage) {
  const InMemory quick;
  Scratch at;
  PutTree(at, "tree", "2");
  const auto tree = Snapshot(at / "tree");
  for (const char* packing : {"xz", "gzip", "bzip2"}) {
    ASSERT_EQ(Exit("tar -C " + at / "tree" + " -cf - . | " + packing + " > " + at / packing), 0);
    const std::string whole = at.Get(packing);
    int refused = 0;
    ASSERT_EQ(RunUpdater(at / packing, at / "out"), 2);
    fs::remove_all(at / "out");
    for (size_t i = 10; i < whole.size(); i += whole.size() / 12) { // past gzip's time stamp
      std::string flipped = whole;
      flipped[i] = static_cast<char>(flipped[i] ^ 4);
      for (const std::string& cut : {whole.substr(0, i), whole.substr(0, whole.size() - 1)})
        EXPECT_EQ(RunUpdater(at.Put("bad", cut), at / "out"), 1) << packing << " cut at " << i;
      // A bit may carry nothing (an unused code of a table): then nothing is damaged.
      const bool unpacked = RunUpdater(at.Put("bad", flipped), at / "out") == 2;
      refused += !unpacked;
      EXPECT_TRUE(unpacked ? Snapshot(at / "out") == tree : !at.Has("out") || fs::is_empty(at / "out"))
          << packing << " flipped at " << i;
      fs::remove_all(at / "out");
    }
    EXPECT_GT(refused, 6) << packing;
  }
  ASSERT_EQ(Exit("cd " + at / "tree" + " && tar -cf ../plain . && xz --check=none -k ../plain"), 0);
  for (const char* unsure : {"plain", "plain.xz"}) EXPECT_EQ(RunUpdater(at / unsure, at / "out"), 1);
}

TEST(Updater, RefusesWhatLeavesTheDirectory) {
  const std::string file = TarEntry("a/b/file", '0', "", "text"),
                    up = file + TarEntry("a/b/up", '2', "../..");
  const std::vector<std::string> good = {file, file + TarEntry("a/b/link", '2', "../../a/b/file"),
                                         file + TarEntry("other", '1', "./a/b/file"),
                                         TarEntry("./a/./b", '0', "", "text")};
  const std::vector<std::string> bad = {up + TarEntry("out", '2', "a/b/up/../x"),
                                        up + TarEntry("up", '1', "a/b/up"),
                                        file + TarEntry("a/c", '2', "b") +
                                            TarEntry("a/c/new", '0', "", "text"),
                                        file + TarEntry("link", '2', "/etc"),
                                        file + TarEntry("a/link", '2', "../.."),
                                        TarEntry("passwd", '1', "/etc/passwd"),
                                        TarEntry("null", '3', ""),
                                        file + TarEntry("pipe", '6', ""),
                                        file + file,
                                        ""};
  const auto check = [](const std::string& tar, int code) {
    Scratch at;
    fs::create_directory(at / "in");
    EXPECT_EQ(RunUpdater(PutArchive(at, tar), at / "in/"), code) << tar.c_str();
    EXPECT_EQ(fs::is_empty(at / "in"), code != 2) << tar.c_str();
    EXPECT_FALSE(at.Has("zat_escaped") || fs::exists("/tmp/zat_escaped")) << tar.c_str();
  };
  for (const std::string& tar : good) check(tar, 2);
  for (const std::string& tar : bad) check(tar, 1);
  for (const char* name : {"/tmp/zat_escaped", "../zat_escaped", "a/../../zat_escaped", "updtlock.lck",
                           "updtlock.lck/x", "cid7.lck"})
    check(TarEntry(name, '0', "", "text"), 1);
}

// An installation with version 1 in it and version 2 unpacked.
struct Installation : Scratch {
  Installation() {
    PutTree(*this, "root", "1");
    Put("root/mine.txt", "stays");
    PutTree(*this, "root/UPDATE_T", "2");
    Put("root/UPDATE_T/new/file", "new");
  }
  std::string Root() const { return *this / "root/"; }
  std::string Tree() const { return *this / "root/UPDATE_T/"; }
  std::string Lock() const { return *this / "root/updtlock.lck"; }
  int Install() const { return RunUpdater(Tree(), Root()); }
  bool Over() const {
    return Eventually([&] { return !fs::exists(Lock()) && !fs::exists(Lock() + ".done"); });
  }
  void ExpectWanted() const {
    EXPECT_TRUE(Over());
    EXPECT_EQ(Found(), Wanted());
  }
  // What should stand there in the end; the report aside.
  std::map<std::string, std::string> Wanted() const {
    Scratch model;
    PutTree(model, "root", "2");
    model.Put("root/mine.txt", "stays");
    model.Put("root/new/file", "new");
    PutProgram(model, "root/BIN/zat_mm.prev", "module 1");
    return Snapshot(model / "root");
  }
  std::map<std::string, std::string> Found() const {
    auto all = Snapshot(Root());
    all.erase("updtlast.log");
    all.erase("mainlock.lck"); // of an updater that was killed
    return all;
  }
};

TEST(Updater, Installs) {
  Installation at;
  const std::string main = at.Root() + "mainlock.lck", lock = at.Lock();
  ASSERT_EQ(putflock(main.c_str()), 0);
  ASSERT_EQ(at.Install(), 3);
  // The launcher that started it is inside its main lock still: until it has seen the update lock, that one stays.
  EXPECT_TRUE(Eventually([&] { return !fs::exists(at.Tree()); })) << "the tree goes when all is in place";
  EXPECT_NE(remflock(lock.c_str()), 0);
  EXPECT_EQ(isflock(lock.c_str()), 1) << "nobody else can remove it";
  EXPECT_EQ(RunUpdater(at.Root(), at.Root()), 1) << "the root itself is no update";
  EXPECT_EQ(RunUpdater(at.Tree(), at.Root()), 4) << "one at a time";
  ASSERT_EQ(remflock(main.c_str()), 0);
  at.ExpectWanted();
  EXPECT_THAT(at.Get("root/updtlast.log"), testing::HasSubstr("installed\n"));
}

TEST(Updater, LeavesTheInstallationAloneWhenItCannotInstall) {
  typedef std::tuple<const char*, std::function<void(Installation&)>, int> Row;
  for (const auto& [what, spoil, code] :
       {Row{"a file where a directory stands", [](auto& at) { at.Put("root/new/file/deeper", ""); }, 1},
        Row{"a directory where a file stands", [](auto& at) { at.Put("root/new", ""); }, 1},
        Row{"no tree", [](auto& at) { fs::remove_all(at.Tree()); }, 1},
        Row{"a tree that is not whole", [](auto& at) { at.Put("root/UPDATE_T/.zat_mu", ""); }, 1},
        Row{"a link out", [](auto& at) { fs::create_symlink("/etc", at.Tree() + "etc"); }, 1},
        Row{"another updater's lock", [](auto& at) { fs::create_directory(at.Lock()); }, 4},
        Row{"a launcher at work", [](auto& at) { ASSERT_EQ(putflock(at.Lock().c_str()), 0); }, 4}}) {
    Installation at;
    spoil(at);
    const auto before = at.Found();
    EXPECT_EQ(at.Install(), code) << what;
    EXPECT_EQ(at.Found(), before) << what;
    remflock(at.Lock().c_str());
  }
  Installation at; // a lock file that a dead launcher has left is no hindrance, nor are many updaters at once
  at.Put("root/updtlock.lck", "99999999\r\n5");
  Exit("for i in 1 2 3 4 5 6; do (" + kUpdater + " " + at.Tree() + " " + at.Root() + "; echo $? >> " +
       at / "codes" + ") & done; wait");
  at.ExpectWanted();
  const std::string codes = at.Get("codes");
  EXPECT_EQ(codes.size(), 12u);
  EXPECT_EQ(std::count(codes.begin(), codes.end(), '3'), 1) << codes;
}

TEST(Updater, NextRunMendsAnInstallationKilledAnywhere) {
  const InMemory quick;
  int kills = 0;
  for (bool killed = true; killed; kills += killed) {
    Installation at;
    const auto before = at.Found(), wanted = at.Wanted();
    killed = RunAndKillAt({kUpdater, at.Tree(), at.Root()}, kills + 1);
    SCOPED_TRACE("after a kill at change " + std::to_string(kills + 1));
    for (const auto& [name, bytes] : at.Found()) { // old or new in each place
      const bool both = wanted.count(name) && before.count(name);
      ASSERT_TRUE(!both || bytes == before.at(name) || bytes == wanted.at(name)) << name;
    }
    const bool left = fs::exists(at.Lock()) || fs::exists(at.Tree());
    ASSERT_EQ(at.Install(), left ? 3 : 1);
    ASSERT_TRUE(at.Over());
    ASSERT_EQ(at.Found(), wanted);
  }
  EXPECT_GT(kills, 30);
}

TEST(Updater, GivesUpAnInstallationThatKeepsFailing) {
  Installation at;
  int starts = 0;
  // Killed as soon as the lock stands, again and again.
  while (RunAndKillAt({kUpdater, at.Tree(), at.Root()}, 8) && fs::is_directory(at.Lock()))
    ASSERT_LT(++starts, 10);
  EXPECT_EQ(isflock(at.Lock().c_str()), 0) << "tills are let in again";
}

} // namespace
