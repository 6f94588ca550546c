// The doctor on a healthy installation and on broken ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "installation.h"
#include "shell.h"

namespace {

using nlohmann::json, testing::AllOf, testing::HasSubstr, testing::Not;

// The object and the programs as links would be enough, but the doctor looks at their modes.
class Shop : public Installation {
public:
  Shop() : Installation(ZAT_INSTALLATION "/BIN/zat_mm") {
    Copy(ZAT_INSTALLATION "/BIN/zat_mu", "BIN/zat_mu");
    for (const char* file : {"micromgl.cfg", "eftpos.cfg", "simulator.cfg"})
      Copy(std::string(ZAT_INSTALLATION "/") + file, file);
  }
  Result Sh(const std::string& line) const { return Shell("cd " + (*this / "") + "; " + line); }
  Result Doctor(const std::string& options = "") const {
    return Shell("zat_tool doctor " + (*this / "") + " " + options);
  }
};

TEST(Doctor, HealthyBeforeAndAfterTheFirstSale) {
  Shop shop;
  EXPECT_EQ(shop.Doctor("-q").oOut, "");
  EXPECT_FALSE(shop.Has("BIN/zat_comm.log")) << "a log made by the doctor would not be the till's";
  ASSERT_EQ(shop.Sh("zat_till sale 12 --lib BIN/libzat_ms.so").iExit, 0);
  const Result run = shop.Doctor();
  EXPECT_EQ(run.iExit, 0) << run.oOut;
  EXPECT_THAT(run.oOut, AllOf(HasSubstr("can be loaded, launcher version 200917"), HasSubstr("none is held"),
                              HasSubstr("client 1: nothing is released"), HasSubstr("zat_comm.log: "),
                              HasSubstr("every outcome is known, of 1 entries"), Not(HasSubstr("\x1B"))));
  const json told = json::parse(shop.Doctor("--json").oOut, nullptr, false);
  EXPECT_EQ(told["result"], "ok");
  EXPECT_GT(told["findings"].size(), 8u);
}

TEST(Doctor, BrokenInstallations) {
  struct {
    const char* breaks; // commands of the shell, run in the installation
    int iExit;
    const char *about, *says;
  } rows[] = {
      {"rm BIN/libzat_ms.so", 2, "object", "BIN/libzat_ms.so: No such file"},
      {"truncate -s 100000 BIN/libzat_ms.so", 2, "object", "is cut off"},
      {"cp /lib/x86_64-linux-gnu/libm.so.6 BIN/libzat_ms.so || cp /lib/*/libm.so.6 BIN/libzat_ms.so", 2,
       "object", "it has no eftp_create"},
      {"echo hello > BIN/libzat_ms.so", 2, "object", "is no program"},
      {"rm BIN/zat_mm", 2, "module", "every payment is refused with X8"},
      {"chmod 644 BIN/zat_mm", 2, "module", "chmod 755 "},
      {": > BIN/zat_mu", 2, "updater", "is empty"},
      {"mkdir DOWNLOAD; chmod 777 DOWNLOAD", 2, "rights", "DOWNLOAD can be written by everybody"},
      {"rm micromgl.cfg", 2, "configuration", "there will be no log"},
      {"printf '[ENV]\\nLOGLEVL=H\\n' > micromgl.cfg", 1, "configuration",
       "ENV/LOGLEVL is a key that nothing reads"},
      {"printf '[TILL]\\nBREAK=maybe\\n' > micromgl.cfg", 1, "configuration",
       "'maybe': neither true nor false"},
      {"printf '[ENV]\\nLOGMEGSIZE=22\\n' > micromgl.cfg", 1, "configuration", "moves the log away"},
      {"printf '[COMMON]\\nTimeoutAfter-10-Ok=8s\\n' > eftpos.cfg", 1, "configuration", "'8s': no number"},
      {"printf '[FAULTS]\\nNoGreeting=1\\n' > simulator.cfg", 1, "configuration",
       "1 faults of the simulated"},
      {"printf '99999999\\r\\n5' > cid7.lck", 1, "locks", "left by process 99999999"},
      {"mkdir mainlock.lck", 2, "locks", "no till can take it"},
      {"mkdir updtlock.lck; touch updtlock.lck/zat_mu", 1, "locks",
       "installation of an update was broken off"},
      {"mkdir -p DOWNLOAD/7; printf '[LAST]\\nHI=0000001A.000\\n' > DOWNLOAD/7/verslist.upd", 1, "updates",
       "not there"},
      {"mkdir -p DOWNLOAD/7; printf '[LAST]\\nHI=0000001A.000\\n' > DOWNLOAD/7/verslist.upd; touch "
       "DOWNLOAD/0000001A.000",
       1, "updates", "1 waiting"},
      {"mkdir -p DOWNLOAD/7; printf '[LAST]\\nINST=garbage\\n' > DOWNLOAD/7/verslist.upd", 2, "updates",
       "is damaged"},
      {"mkdir -p DOWNLOAD/7; touch -d '2 days ago' DOWNLOAD/7/0000001A.000.tmp", 1, "updates",
       "delivery was broken off"},
      {"mkdir -p UPDATE_T/BIN", 1, "updates", "unpacked and not installed"},
      {"mkdir BIN/zat_comm.log", 2, "log", "cannot be written"},
      {"printf '[ENV]\\nLOGFILE=/nonexistent/a.log\\n' > micromgl.cfg", 2, "log", "correct LOGFILE"},
      {"truncate -s 20M BIN/zat_comm.log", 1, "log", "restart the till"},
      {"echo 4000001234567899 > BIN/zat_comm.log", 2, "log", "1 card numbers in clear"},
      {"printf '2999-01-01 00.00.00 {00000001} : x\\r\\n' > BIN/zat_comm.log", 1, "clock", "in the future"},
      {"touch zat_expt.log", 1, "log", "zat_expt.log is there"},
      {"mkdir till.jnl", 2, "journal", "cannot be read"},
      {"zat_till sale 12.77 --lib BIN/libzat_ms.so >/dev/null; rm *.lck", 1, "journal",
       "outcome unknown: 1, since"},
      {"zat_till sale 12 --lib BIN/libzat_ms.so >/dev/null; printf x >> till.jnl", 1, "journal",
       "is damaged"},
  };
  for (const auto& row : rows) {
    Shop shop;
    ASSERT_EQ(shop.Sh(row.breaks).oOut, "") << row.breaks;
    const Result run = shop.Doctor("--json");
    EXPECT_EQ(run.iExit, row.iExit) << row.breaks << "\n" << run.oOut;
    std::string said;
    const json told = json::parse(run.oOut, nullptr, false);
    for (const auto& one : told["findings"])
      if (one["severity"] != "ok")
        said += one["about"].get<std::string>() + ": " + one["text"].get<std::string>() + " -> " +
                one["advice"].get<std::string>() + "\n";
    EXPECT_THAT(said, AllOf(HasSubstr(row.about), HasSubstr(row.says))) << row.breaks;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << row.breaks << ": one fault, one finding\n"
                                                             << said;
  }
}

TEST(Doctor, BlanksInThePathAndWrongPlaces) {
  Shop shop;
  EXPECT_THAT(shop.Sh("mkdir 'a b'; cp -r BIN *.cfg 'a b'; zat_tool doctor 'a b'").oOut,
              HasSubstr("holds a blank"));
  EXPECT_EQ(shop.Sh("zat_tool doctor nowhere").iExit, 2);
  EXPECT_THAT(shop.Sh("zat_tool doctor eftpos.cfg").oOut, HasSubstr("Not a directory"));
}

// A lock in use is told with its holder, and neither taken nor freed.
TEST(Doctor, LocksInUse) {
  Shop shop;
  const Result run = shop.Sh("flock -n cid7.lck sh -c 'zat_tool doctor . -q; zat_tool doctor . | grep cid7; "
                             "flock -n cid7.lck true || echo still held'");
  EXPECT_THAT(run.oOut,
              AllOf(testing::StartsWith("ok "), HasSubstr("cid7.lck: a terminal id is held by process"),
                    HasSubstr("(flock)"), testing::EndsWith("still held\n")));
}

// What leaves the shop has no card number in it, wherever one stood.
TEST(Doctor, BundleForSupport) {
  Shop shop;
  ASSERT_EQ(
      shop.Sh("zat_till sale 12 --track2 ';4000001234567899=25121011234?' --lib BIN/libzat_ms.so").iExit, 0);
  const std::string card = "4000001234567899", when = "2026-11-20 14.03.59 {00000001} : ";
  shop.Put("BIN/zat_com2.log", when + "a till's own line " + card + "\r\n" + when +
                                   "[MicroS] WriteBlock: 10000000000728000000001200" + card + "=2512\r\n");
  shop.Put("zat_expt.log", card);
  shop.Put("eftpos.cfg", "[COMMON]\n; " + card + "\n");
  shop.Put("DOWNLOAD/1/verslist.upd", "[LAST]\nINST=0000001A.000\nHI=0000001A.000\n");
  const Result run = shop.Doctor("-q --bundle " + (shop / "out.tar.gz"));
  EXPECT_EQ(run.iExit, 1) << run.oOut;
  EXPECT_EQ(
      shop.Sh("mkdir x; tar xzf out.tar.gz -C x; cd x/zat_support; find . -type f | sort | tr '\\n' ' '")
          .oOut,
      "./DOWNLOAD/1/verslist.upd ./eftpos.cfg ./listing.txt ./log/zat_com2.log ./log/zat_comm.log "
      "./micromgl.cfg "
      "./report.json ./report.txt ./simulator.cfg ./zat_expt.log ");
  EXPECT_EQ(shop.Sh("grep -rl " + card + " x; zat_tool redact --check $(find x -type f)").oOut, "");
  EXPECT_THAT(shop.Get("x/zat_support/log/zat_com2.log"), HasSubstr("line ************7899"));
  EXPECT_THAT(shop.Get("x/zat_support/report.txt"),
              AllOf(HasSubstr("warning  log"), HasSubstr("ok       object")));
  EXPECT_THAT(shop.Get("x/zat_support/listing.txt"), HasSubstr("BIN/libzat_ms.so\n"));
  EXPECT_THAT(shop.Sh("stat -c %a out.tar.gz").oOut, HasSubstr("600"));
  EXPECT_THAT(shop.Doctor("--bundle /dev/full/x").oOut, HasSubstr("cannot write /dev/full/x"));
}

} // namespace
