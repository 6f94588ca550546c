// The launcher's update steps: finding, counting, installing, mending; and a whole launch with the real updater.
#include "SLogger.h"
#include "killer.h"
#include "micros.h"
#include "updroot.h"
#include "util.h"
#include "utilf.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>

namespace fs = std::filesystem;

namespace {

// A launcher's state in a scratch installation, with a log of its own.
struct Steps : testing::Test {
  Scratch at;
  MicroSGlData_tag state;
  SLogger log{(at / "log").c_str(), true};
  SLogger* const usual = poGSLog;
  std::string path = at / "BIN/launcher", pipes = "pipes", config = "config", id = "7";
  char* argv[4] = {path.data(), pipes.data(), config.data(), id.data()};

  Steps() {
    fs::create_directory(at / "BIN");
    state.Init(4, argv);
    poGSLog = &log;
  }
  ~Steps() override { poGSLog = usual; }

  void PutList(const std::string& keys) { at.Put("DOWNLOAD/7/verslist.upd", "[LAST]\n" + keys); }
  std::string Installed() { return state.oFLS.Open(at / "DOWNLOAD/", "7") ? state.oFLS.mpccOL[0] : ""; }

  // The log's texts, without time, process and path, one in a line.
  std::string Log() {
    const std::string all =
        std::regex_replace(at.Get("log"), std::regex("[^\n]*?(\\[Micro[^\r\n]*)\r\n"), "$1\n");
    return std::regex_replace(all, std::regex(at / ""), "");
  }
  long Lines(const std::string& name) {
    const std::string text = at.Get(name);
    return std::count(text.begin(), text.end(), '\n');
  }
  bool Held(const std::string& name) { // by this process; taken for a moment when it is free
    const bool held = tryflock((at / name).c_str()) != 0;
    if (!held) remflock((at / name).c_str());
    return held;
  }
};

TEST_F(Steps, FindsTheLowestUpdate) {
  PutList("INST=00000001.000\nHI=90000003.000\n");
  for (const char* name : {"7/00000001.000", "00000003.000", "7/00000002.000", "8/00000001.000",
                           "00000002.000", "7/00000002.000.tmp", "7/00000002.txt", "7/sub/00000002.x"})
    at.Put(std::string("DOWNLOAD/") + name, "update, or one half-written");
  EXPECT_EQ(FindUpdate(&state), 1);
  EXPECT_EQ(state.oUpdtN, "00000002.000");
  EXPECT_EQ(state.oUpdtS, at / "DOWNLOAD/00000002.000") << "what stands above a half-written one stays";
  EXPECT_TRUE(state.fUpdImp && state.fUpdPck);
  for (const char* name : {"7/00000002.000.tmp", "7/00000002.txt", "7/00000002.000", "7/sub/00000002.x"})
    EXPECT_FALSE(at.Has(std::string("DOWNLOAD/") + name)) << name;
  EXPECT_THAT(Log(), testing::EndsWith(
                         "inits: 00000001.000; 90000003.000\n[MicroS] Update updts: DOWNLOAD/\n[MicroS] "
                         "Update list maked\n[MicroS] Update 1: DOWNLOAD/00000002.000 - I:1\n"));
}

TEST_F(Steps, RecordsTheHighestWhenNothingIsLeft) {
  fs::create_directories(at / "DOWNLOAD/7");
  ASSERT_EQ(putflock((at / "DOWNLOAD/7/verslist.upd.lck").c_str()), 0);
  EXPECT_EQ(FindUpdate(&state), 0);
  EXPECT_FALSE(state.fUpdImp) << "somebody else has the list";
  EXPECT_EQ(Log(), "[MicroS] Update in\n[MicroS] Update skip\n");
  fs::remove_all(at / "DOWNLOAD");

  EXPECT_EQ(FindUpdate(&state), 0); // nothing there at all: not even the directory
  EXPECT_THAT(at.Get("DOWNLOAD/7/verslist.upd"), testing::HasSubstr("00000000.000"));
  EXPECT_TRUE(state.fUpdImp && !state.fUpdPck);

  PutList("INST=00000001.000\nHI=90000000.000\n");
  at.Put("DOWNLOAD/7/00000002.000.tmp", "half-written");
  EXPECT_EQ(FindUpdate(&state), 0);
  EXPECT_EQ(Installed(), "00000001.000") << "a delivery is going on: the number may still come";
  EXPECT_FALSE(at.Has("DOWNLOAD/7/00000002.000.tmp"));
  EXPECT_EQ(FindUpdate(&state), 0);
  EXPECT_EQ(Installed(), "90000000.000");
}

TEST_F(Steps, CountsModulesThatRun) {
  at.Put("cid8.lck", "99999999\r\n5");
  for (const char* other : {"cid9.txt", "sub/cid1.lck"}) at.Put(other, "");
  ASSERT_EQ(tryflock((at / "cid7.lck").c_str()), 0);
  HoldElsewhere(at, "cid9.lck");
  EXPECT_EQ(GetNumCId(&state), 2) << "ours, and that of another process";
  EXPECT_FALSE(at.Has("cid8.lck"));
  EXPECT_TRUE(at.Has("cid7.lck") && at.Has("cid9.lck") && at.Has("sub/cid1.lck"));
  EXPECT_THAT(Log(), testing::AllOf(testing::HasSubstr("[MicroS] Locked CIdLck: cid9.lck\n"),
                                    testing::HasSubstr("[MicroS] Remove CIdLck: cid8.lck\n")));
  EXPECT_TRUE(Eventually([&] { return GetNumCId(&state) == 1; }));
  remflock((at / "cid7.lck").c_str());
  EXPECT_EQ(GetNumCId(&state), 0);
}

// An updater in shell: notes its arguments, then does what is said for the step.
struct Scripted : Steps {
  void PutUpdater(const std::string& unpack, const std::string& install) {
    PutProgram(at, "BIN/zat_mu",
               "#!/bin/sh\ncd " + at / "" +
                   "\nprintf '<%s>' \"$@\" >> calls\necho >> calls\ncase $1 in */UPDATE_T/)\n" + install +
                   "\n;; *)\n" + unpack + "\n;; esac\n");
  }
  void Deliver() {
    PutList("INST=00000001.000\nHI=00000002.000\n");
    at.Put("DOWNLOAD/7/00000002.000", "update");
  }
  // With an update selected and the update lock held, as the launcher calls it.
  tProcECode UnpackUpdate() {
    Deliver();
    EXPECT_EQ(FindUpdate(&state), 1);
    at.Put("log", "");
    EXPECT_EQ(putflock(state.oUpdtLck.c_str()), 0);
    return Unpack(&state);
  }
};

TEST_F(Scripted, InstallsByTheUpdatersTwoRuns) {
  at.Put("UPDATE_T/old", "of an earlier update");
  const auto before = signal(SIGCHLD, SIG_IGN); // what a host does with its children must not matter
  // The lock comes a little after the answer.
  PutUpdater("[ ! -e UPDATE_T/old ] && touch UPDATE_T/new && exit 2",
             "(sleep 0.05; mkdir updtlock.lck) & exit 3");
  EXPECT_EQ(UnpackUpdate(), ePECupdt);
  EXPECT_EQ(signal(SIGCHLD, before), SIG_IGN) << "the host's choice stands";
  EXPECT_EQ(at.Get("calls"), "<" + at / "DOWNLOAD/7/00000002.000" + "><" + at / "UPDATE_T/" + ">\n<" +
                                 at / "UPDATE_T/" + "><" + at / "" + ">\n");
  EXPECT_EQ(Installed(), "00000002.000");
  EXPECT_TRUE(at.Has("UPDATE_T/new")) << "the updater's own business";
  EXPECT_FALSE(Held("mainlock.lck"));
  EXPECT_THAT(
      Log(),
      testing::MatchesRegex(
          ".MicroS. Remove: UPDATE_T/\n.MicroS. Create: UPDATE_T/\n"
          ".MicroS. System: BIN/zat_mu \"DOWNLOAD/7/00000002.000\" \"UPDATE_T/\" <Er: 2>\n"
          ".MicroS. Put lock: mainlock.lck\n.MicroS. Rem lock: updtlock.lck\n"
          ".MicroS. System: BIN/zat_mu \"UPDATE_T/\" \"\" <Er: 3>\n(.MicroS. Wait lock: updtlock.lck\n)+"
          ".MicroS. Installed: 00000002.000; Removed: DOWNLOAD/7/00000002.000\n"
          ".MicroS. Rem lock: mainlock.lck\n"));
}

TEST_F(Scripted, FailsStepByStep) {
  const std::string good = "touch UPDATE_T/new; exit 2", installs = "mkdir updtlock.lck; exit 3";
  const auto updater = [](const std::string& body) {
    return "mkdir UPDATE_T/BIN; printf '#!/bin/sh\\n" + body + "\\n' > UPDATE_T/BIN/zat_mu; exit 2";
  };
  // update, tree: what is left of the update file and the unpacked tree
  typedef std::tuple<const char*, std::string, std::string, tProcECode, bool, bool> Row;
  for (const auto& [what, unpack, install, code, update, tree] :
       {Row{"damaged", "exit 1", installs, ePECnupd, false, false},
        Row{"unpack says 3", "exit 3", installs, ePECnupd, false, false},
        Row{"unpack dies", "kill -9 $$", installs, ePECnupd, false, false},
        Row{"unpack hangs", "sleep 100", installs, ePECnupd, false, false},
        Row{"install says 2", good, "mkdir updtlock.lck; exit 2", ePECnupd, true, true},
        Row{"install hangs", good, "sleep 100", ePECnupd, true, true},
        Row{"lock never comes", good, "exit 3", ePECnupd, true, true},
        Row{"no time left to install", "sleep 0.6; " + good, installs, ePECnupd, true, false},
        Row{"new updater dies", updater("kill -9 $$"), installs, ePECnupu, true, true},
        Row{"new updater hangs", updater("sleep 100"), installs, ePECnupu, true, true},
        Row{"no old updater", "rm BIN/zat_mu; " + updater("exit 0"), installs, ePECnupu, true, true}}) {
    SCOPED_TRACE(what);
    state.Init(4, argv);
    PutUpdater(unpack, install);
    // The limit is real; only those that wait for it get a short one.
    if (strstr(what, "hang") || strstr(what, "never") || strstr(what, "time")) state.oTimDms = 400;
    EXPECT_EQ(UnpackUpdate(), code);
    EXPECT_EQ(at.Has("DOWNLOAD/7/00000002.000"), update);
    EXPECT_EQ(at.Has("UPDATE_T"), tree);
    EXPECT_EQ(Installed(), code == ePECupdt ? "00000002.000" : "00000001.000");
    EXPECT_FALSE(Held("mainlock.lck"));
    EXPECT_TRUE(fs::is_directory(at / "updtlock.lck") || !Held("updtlock.lck"));
    for (const char* left : {"updtlock.lck", "UPDATE_T"}) fs::remove_all(at / left);
  }
}

TEST_F(Scripted, ReplacesTheUpdaterAndInstallsWithTheNewOne) {
  PutUpdater("mkdir UPDATE_T/BIN; printf '#!/bin/sh\\n[ $# = 0 ] && exit 0\\ncd " + at / "" +
                 "; mkdir updtlock.lck; exit 3' > UPDATE_T/BIN/zat_mu; exit 2",
             "exit 1");
  EXPECT_EQ(UnpackUpdate(), ePECupdt);
  EXPECT_EQ(access((at / "BIN/zat_mu").c_str(), X_OK), 0);
  EXPECT_THAT(Log(), testing::HasSubstr("[MicroS] New updater: UPDATE_T/BIN/zat_mu <Er: 0>\n"
                                        "[MicroS] Rename UPDATE_T/BIN/zat_mu to BIN/zat_mu\n"));
}

TEST_F(Scripted, LetsAnotherUpdaterFinish) {
  // One that makes the lock in its own way: it looks like ours broken off, but is not.
  PutUpdater("touch UPDATE_T/new; exit 2",
             "mkdir updtlock.lck; (sleep 0.2; rm -r updtlock.lck UPDATE_T) & exit 3");
  PutProgram(at, "BIN/zat_mm",
             "#!/bin/sh\n[ ! -e " + at / "updtlock.lck" + " ] && touch " + at / "started\n");
  Deliver();
  EXPECT_EQ(MonoS(4, argv, &state), ePECgood);
  DoAuthE(&state);
  EXPECT_TRUE(at.Has("started"));
  EXPECT_EQ(Lines("calls"), 2) << at.Get("calls");
}

// --- With the real updater ----------------------------------------------------------------------------------------

// A module that writes its version down and ends.
std::string Module(const Scratch& at, const std::string& version) {
  return "#!/bin/sh\necho " + version + " >> " + at / "started\n";
}

struct Launch : Steps {
  Launch() {
    fs::copy_file(kUpdater, at / "BIN/zat_mu");
    PutProgram(at, "BIN/zat_mm", Module(at, "1"));
  }
  // Delivers an update as a download would.
  void Deliver(const std::string& version) {
    PutProgram(at, "made/BIN/zat_mm", Module(at, version));
    at.Put("made/texts/receipt.txt", version);
    PutList("INST=00000001.000\nHI=0000000" + version + ".000\n");
    ASSERT_EQ(Exit(kUpdater + " --pack " + at / "made " + at / "DOWNLOAD/7/0000000" + version + ".000"), 0);
  }
  void Start() {
    EXPECT_EQ(MonoS(4, argv, &state), ePECgood);
    DoAuthE(&state);
  }
  void ExpectInstalled() {
    EXPECT_EQ(Installed(), "00000002.000");
    EXPECT_FALSE(at.Has("DOWNLOAD/7/00000002.000") || at.Has("UPDATE_T") || at.Has("updtlock.lck"));
  }
};

TEST_F(Launch, WaitsForOthersInstallsAndStartsTheNewModule) {
  Start();
  Deliver("2");
  HoldElsewhere(at, "cid8.lck");
  const tTicks begin = TicksGet();
  Start();
  EXPECT_FALSE(TicksEnd(begin, 7000));
  EXPECT_TRUE(at.Has("gone")) << "another module was waited for";
  EXPECT_EQ(at.Get("started"), "1\n2\n");
  EXPECT_EQ(at.Get("texts/receipt.txt") + at.Get("BIN/zat_mm.prev"), "2" + Module(at, "1"));
  ExpectInstalled();

  Deliver("3");
  fs::resize_file(at / "DOWNLOAD/7/00000003.000", 200);
  Start();
  EXPECT_EQ(at.Get("started"), "1\n2\n2\n") << "a damaged one is dropped";
  EXPECT_FALSE(at.Has("DOWNLOAD/7/00000003.000"));
}

TEST_F(Launch, MendsAnInstallationThatWasBrokenOff) {
  for (const char* updater : {"the updater", "#!/bin/sh\nexit 1\n"}) {
    fs::remove_all(at / "UPDATE_T");
    PutProgram(at, "UPDATE_T/BIN/zat_mm", Module(at, "2"));
    // Killed when the new module waits beside the old one.
    for (int n = 1; !at.Has("BIN/zat_mm.updtnew") || !at.Has("updtlock.lck/staged"); ++n) {
      fs::remove_all(at / "updtlock.lck");
      ASSERT_TRUE(RunAndKillAt({kUpdater, at / "UPDATE_T", at / ""}, n));
    }
    if (*updater == '#') PutProgram(at, "BIN/zat_mu", updater); // one that cannot help any more
    fs::remove(at / "started");
    Start();
    EXPECT_EQ(at.Get("started"), *updater == '#' ? "1\n" : "2\n");
    EXPECT_FALSE(at.Has("updtlock.lck"));
    fs::remove(at / "BIN/zat_mm.updtnew");
    PutProgram(at, "BIN/zat_mm", Module(at, "1"));
  }
}

TEST_F(Launch, ManyAtOnce) {
  fs::copy_file(std::string(ZAT_INSTALLATION) + "/BIN/libzat_ms.so", at / "BIN/launcher");
  Deliver("2");
  std::string all;
  for (const char* each : {"7", "8", "9", "10", "7", "11"})
    all += "(" + path + " pipes config " + each + "; echo $? >> " + at / "codes" + ") & ";
  Exit(all + "wait");
  const std::string codes = at.Get("codes");
  const bool refused = codes.find("255") != std::string::npos; // one of the two sevens, if they met
  EXPECT_EQ(std::count(codes.begin(), codes.end(), '0'), refused ? 5 : 6) << codes;
  EXPECT_THAT(at.Get("started"), testing::HasSubstr("2\n"));
  ExpectInstalled();
}

TEST_F(Launch, NextLaunchWorksAfterAKillAnywhere) {
  // The launcher as a program of its own: the shared object, executed.
  fs::copy_file(std::string(ZAT_INSTALLATION) + "/BIN/libzat_ms.so", at / "BIN/launcher");
  int kills = 0;
  for (int n = 1; n < 2000; n += 3) {
    for (const char* name : {"UPDATE_T", "updtlock.lck", "BIN/zat_mm.prev", "started", "texts"})
      fs::remove_all(at / name);
    PutProgram(at, "BIN/zat_mm", Module(at, "1"));
    Deliver("2");
    // The launcher alone, which leaves an updater or a module behind, or everything.
    const bool killed = RunAndKillAt({path, pipes, config, id}, n, n % 2 == 0);
    SCOPED_TRACE("after a kill at change " + std::to_string(n));
    Start();
    ASSERT_TRUE(at.Get("started").ends_with("2\n"));
    ASSERT_EQ(at.Get("texts/receipt.txt"), "2");
    kills += killed;
    if (!killed) break;
  }
  EXPECT_GT(kills, 20);
}

} // namespace
