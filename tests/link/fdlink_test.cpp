// The link over descriptors: a pseudo-terminal pair and TCP on the loopback, both sides real.
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include "EFTPLink.h"
#include "EFTPLinkLog.h"
#include "PortCalls.h"
#include "golden.h"

namespace {

using namespace zat;
using testing::AllOf, testing::HasSubstr, testing::Not, testing::StartsWith;

tTicks Elapsed(const std::function<void()>& work) {
  const tTicks begin = NowMs();
  work();
  return NowMs() - begin;
}

TEST(LinkPlace, TextsOfPlaces) {
  tString why;
  tLinkPlace tcp, plain, full, place;
  ASSERT_TRUE(LinkPlaceFromText("tcp:[::1]:9001", tcp, why) &&
              LinkPlaceFromText("serial:/dev/ttyS0", plain, why) &&
              LinkPlaceFromText("serial:/dev/ttyS0,9600,7E2,rtscts", full, why));
  EXPECT_EQ(tcp.oKind, tLinkPlace::eTcp);
  EXPECT_EQ(tcp.oHost + " " + tcp.oPort, "::1 9001");
  EXPECT_EQ(plain.oDevice + " " + std::to_string(plain.uSpeed), "/dev/ttyS0 115200");
  EXPECT_EQ(tString({full.cBits, full.cParity, full.cStop}) + std::to_string(full.uSpeed), "7E29600");
  EXPECT_EQ(full.oFlow, tLinkPlace::eFlowHard);
  for (const char* bad : {"", "tcp:", "tcp:host", "tcp:host:", "udp:host:1", "serial:", "serial:/dev/x,9601",
                          "serial:/dev/x,9600x", "serial:/dev/x,9600,9N1", "serial:/dev/x,9600,8N1,maybe",
                          "serial:/dev/x,9600,8N1,none,more"}) {
    why.clear();
    EXPECT_TRUE(!LinkPlaceFromText(bad, place, why) && why != "") << bad;
  }
}

// How a serial line is set; the master of a pseudo-terminal tells it for the slave.
tString Settings(int fd) {
  termios now = {};
  tcgetattr(fd, &now);
  return std::to_string(now.c_lflag) + " " + std::to_string(now.c_iflag);
}

// Two links that lead to each other.
struct Pair {
  Link oNear, oFar;
  tString oWhy, oBefore; // the settings that the serial line had
  int iMaster = -1;      // the far end of it

  bool Tcp() {
    tLinkPlace place;
    LinkListener listener;
    if (!LinkPlaceFromText("tcp:127.0.0.1:0", place, oWhy) || !listener.Open(place, oWhy)) return false;
    place.oPort = std::to_string(listener.Port());
    return oNear.Open(place, 5000, oWhy) && listener.Accept(oFar, 5000);
  }
  bool Pty(const char* settings = "") {
    int slave = -1;
    char name[64];
    tLinkPlace place;
    if (openpty(&iMaster, &slave, name, nullptr, nullptr) != 0) return false;
    oBefore = Settings(iMaster);
    const bool good = oFar.Adopt(iMaster, oWhy) &&
                      LinkPlaceFromText(tString("serial:") + name + settings, place, oWhy) &&
                      oNear.Open(place, 0, oWhy);
    close(slave);
    return good;
  }
};

void SaleOver(Pair& pair) {
  std::thread answering([&pair] {
    PortSEtx_tag port{};
    SqueezeT request, reply = Store("TM.TID=1234");
    tPadsData pads{&request, &request, eEFTPwidNone, nullptr}, answer{&reply, nullptr, eEFTPwidRfok, nullptr};
    EXPECT_TRUE(EFTPWorkInit(&port, &pair.oFar, nullptr, &EFTPLinkSetUp, true));
    EXPECT_TRUE(pair.oFar.WaitIn(5000));
    EXPECT_NE(port.RecvCmd(&port, ePCISEetx, port.ParsCmdOnly, &pads), 0u);
    EXPECT_EQ(pads.oPWI, eEFTPwidSale);
    EXPECT_EQ(Text(request, abisTRtr2), "4000001234567899=2512");
    EXPECT_TRUE(LinkReply(&port, &answer));
    answer.oPWI = eEFTPwidEndOk;
    EXPECT_TRUE(LinkReply(&port, &answer));
  });
  PortSEtx_tag port{};
  SqueezeT request = Store("TM.TID=1234;TR.AMT=1000;TR.S.TR2=4000001234567899=2512"), reply;
  tPadsData pads{&request, &reply, eEFTPwidSale, nullptr};
  EXPECT_TRUE(EFTPWorkInit(&port, &pair.oNear, nullptr, &EFTPLinkSetUp, true));
  EXPECT_TRUE(port.WorkCmd(&port, &pads));
  EXPECT_EQ(pads.oPWI, eEFTPwidRfok);
  EXPECT_TRUE(pair.oNear.WaitIn(5000) && port.WorkAck(&port, &pads));
  EXPECT_EQ(pads.oPWI, eEFTPwidEndOk);
  answering.join();
}

TEST(SaleOverALink, ASerialLine) {
  Pair pair;
  ASSERT_TRUE(pair.Pty()) << pair.oWhy;
  SaleOver(pair);
}

// The operations of a port's link on one side of a TCP connection, plain bytes on the other.
struct FdLink : testing::Test {
  Pair oPair;
  PortSEtx_tag oPort{}, oFarPort{};

  void SetUp() override {
    ASSERT_TRUE(oPair.Tcp()) << oPair.oWhy;
    ASSERT_TRUE(EFTPWorkInit(&oPort, &oPair.oNear, nullptr, &EFTPLinkSetUp, true));
    ASSERT_TRUE(EFTPWorkInit(&oFarPort, &oPair.oFar, nullptr, &EFTPLinkSetUp, true));
  }
  void Period(tTicks ms) { PortPeriod(&oPort, &ms); }
  // Sends from the far side, and waits until something is there.
  void FarSends(const tString& bytes, int end = -1) {
    ASSERT_NE(PortSend(&oFarPort, bytes.data(), bytes.size(), end), 0u);
    ASSERT_TRUE(oPair.oNear.WaitIn(5000));
  }
  // Receives; "found " in front when the end sequence was.
  tString Recv(tLen len, int end) {
    unsigned flags = 0;
    tString got(len, '\0');
    got.resize(PortRecv(&oPort, got.data(), len, end, &flags));
    return (Found(flags) ? "found " : "") + got;
  }
};

TEST_F(FdLink, ASale) { SaleOver(oPair); }

TEST_F(FdLink, ReceivesByCountAndBySequence) {
  Period(200);
  FarSends("first", ePCISEetx); // and a control sequence behind it
  EXPECT_EQ(Recv(100, ePCISEetx), "found first\x10\x03");
  FarSends("abc\x10\x02"
           "de\x10\x10\x03"
           "fghi\x10\x03tail");
  EXPECT_EQ(Recv(2, -1), "ab");
  EXPECT_EQ(Recv(100, ePCISEstx), "found c\x10\x02");
  EXPECT_EQ(Recv(100, ePCISEetx), "found de\x10\x10\x03");
  EXPECT_EQ(Recv(3, ePCISEetx), "fgh") << "no more than asked for";
  unsigned flags = 0;
  EXPECT_EQ(PortRecv(&oPort, nullptr, 0, ePCISEetx, &flags), 2u) << "what precedes it is discarded";
  EXPECT_TRUE(Found(flags));
  oPort.oPortWork.iPreReaded = 'P';
  EXPECT_EQ(Recv(2, -1), "Pt");
  EXPECT_EQ(Recv(100, ePCISEetx), "ail") << "until the time is over";
  flags = 0;
  EXPECT_EQ(PortRecv(&oPort, nullptr, 0, ePCISEstx, &flags), 0u);
  EXPECT_FALSE(Found(flags));
}

TEST_F(FdLink, TimePeriodsAreMilliseconds) {
  Period(60);
  const tTicks silent = Elapsed([&] { EXPECT_EQ(Recv(1, -1), ""); });
  EXPECT_GE(silent, 60u);
  EXPECT_LT(silent, 2000u);
  EXPECT_GE(Elapsed([&] { EXPECT_FALSE(oPair.oNear.WaitIn(30)); }), 30u);
  tTicks start = 0;
  oPort.oPortWork.TimeStart(&oPort.oPortWork, &start);
  EXPECT_FALSE(PortTimeEnd(&oPort, 60000, &start));
  EXPECT_TRUE(PortTimeEnd(&oPort, 0, &start));
}

TEST_F(FdLink, ClearInDropsWhatHasArrived) {
  FarSends("stale");
  EXPECT_EQ(Recv(1, -1), "s");
  oPort.oPortWork.iPreReaded = 'P';
  FarSends("more");
  PortClearIn(&oPort);
  FarSends("new");
  EXPECT_EQ(Recv(3, -1), "new");
}

TEST_F(FdLink, ThePeerGoesAway) {
  FarSends("last words");
  oPair.oFar.Close();
  EXPECT_TRUE(oPair.oNear.IsOpen() && oPair.oNear.WaitIn(1000));
  const tTicks took = Elapsed([&] {
    EXPECT_EQ(Recv(4, -1), "last");
    EXPECT_EQ(Recv(100, -1), " words");
    EXPECT_FALSE(oPair.oNear.IsOpen() || oPair.oNear.WaitIn(10000));
    EXPECT_EQ(Recv(1, -1), "");
    memset(oPort.pbCmd, 'x', 5);
    EXPECT_FALSE(oPort.SendCmd(&oPort, 5)) << "and no signal ends this process";
    EXPECT_EQ(oPort.RecvCmd(&oPort, ePCISEetx, nullptr, nullptr), 0u);
  });
  EXPECT_LT(took, 2000u) << "a period of 5 s must not be waited out";
  oPair.oNear.Close();
  EXPECT_EQ(PortSend(&oPort, "x", 1, -1), 0u);
}

TEST(Link, OpensOnlyWhatItCanServe) {
  Pair pair;
  tLinkPlace place;
  PortSEtx_tag port{};
  EXPECT_FALSE(EFTPWorkInit(&port, nullptr, nullptr, &EFTPLinkSetUp, true)) << "no link";
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  EXPECT_FALSE(pair.oNear.Adopt(null, pair.oWhy));
  close(null);
  for (const char* text : {"serial:/dev/null", "serial:/nonexistent", "tcp:127.0.0.1:1"}) {
    ASSERT_TRUE(LinkPlaceFromText(text, place, pair.oWhy));
    EXPECT_FALSE(pair.oNear.Open(place, 1000, pair.oWhy));
    EXPECT_THAT(std::exchange(pair.oWhy, ""), StartsWith("cannot ")) << text;
  }
  EXPECT_FALSE(pair.Pty(",9600,7E1")) << "a pseudo-terminal has no parity";
  EXPECT_THAT(pair.oWhy, HasSubstr("with these settings"));
}

TEST(Link, GivesASerialLineItsSettingsBack) {
  Pair pair;
  ASSERT_TRUE(pair.Pty()) << pair.oWhy;
  EXPECT_NE(Settings(pair.iMaster), pair.oBefore);
  pair.oNear.Close();
  EXPECT_EQ(Settings(pair.iMaster), pair.oBefore);
}

TEST_F(FdLink, LogShowsFramesWithoutCardData) {
  std::vector<tString> lines;
  oPair.oNear.LogTo([](void* to, const char* line,
                       size_t len) { static_cast<std::vector<tString>*>(to)->emplace_back(line, len); },
                    &lines);
  SqueezeT request = Store("TM.TID=1234;TR.AMT=1000;TR.S.TR2=4000001234567899=2512");
  tPadsData pads{&request, nullptr, eEFTPwidSale, nullptr};
  FarSends("\x06\x06");
  EXPECT_EQ(Recv(1, -1), "\x06");
  EXPECT_TRUE(oPort.SendCmd(&oPort, EFTPMakeCmd(&oPort, &pads)));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "< 06 06");
  EXPECT_THAT(lines[1], StartsWith("[LRC]{set}"));
  EXPECT_THAT(lines[2], AllOf(StartsWith("> 10 02 31 30 30 30 30 30 30 30 31 32 33 34 32 31 "),
                              HasSubstr(" ** ** 37 38 39 39 3D ** ** ** ** 10 03 ")));
}

TEST(LinkLog, WhatIsNoWholeMessageShowsNoDigits) {
  const tString message = "100000001234210000000010004000001234567899=2512",
                frame = "\x10\x02" + message + "\x10\x03\x32";
  const auto shown = [](const tString& bytes) { return LinkLogBytes(bytes, "\x10\x02", "\x10\x03"); };
  EXPECT_THAT(shown("4000" + frame + "\x15"),
              AllOf(StartsWith(" ** ** ** ** 10 02 31 30"), HasSubstr("37 38 39 39 3D")));
  EXPECT_EQ(shown(message), shown(frame).substr(6, 3 * message.size())) << "the message alone";
  for (size_t at = 2; at < frame.size(); ++at) {
    tString damaged = frame;
    damaged[at] ^= 0x40;
    EXPECT_THAT(shown(frame.substr(0, at)) + shown(damaged), Not(HasSubstr(" 34"))) << at;
  }
}

} // namespace
