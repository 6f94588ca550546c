// The link over descriptors: a pseudo-terminal pair and TCP on the loopback, both sides real.
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/socket.h>
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
  tLinkPlace place;
  tString why;
  ASSERT_TRUE(LinkPlaceFromText("tcp:[::1]:9001", place, why));
  EXPECT_EQ(place.oKind, tLinkPlace::eTcp);
  EXPECT_EQ(place.oHost + " " + place.oPort, "::1 9001");
  ASSERT_TRUE(LinkPlaceFromText("serial:/dev/ttyS0", place, why));
  EXPECT_EQ(place.oDevice, "/dev/ttyS0");
  EXPECT_EQ(place.uSpeed, 115200u);
  ASSERT_TRUE(LinkPlaceFromText("serial:/dev/ttyS0,9600,7E2,rtscts", place, why));
  EXPECT_EQ(place.uSpeed, 9600u);
  EXPECT_EQ(tString({place.cBits, place.cParity, place.cStop}), "7E2");
  EXPECT_EQ(place.oFlow, tLinkPlace::eFlowHard);
  for (const char* bad : {"", "tcp:", "tcp:host", "tcp:host:", "udp:host:1", "serial:", "serial:/dev/x,9601",
                          "serial:/dev/x,9600,9N1", "serial:/dev/x,9600,8N1,maybe",
                          "serial:/dev/x,9600,8N1,none,more", "serial:/dev/x,9600x"}) {
    why.clear();
    EXPECT_FALSE(LinkPlaceFromText(bad, place, why)) << bad;
    EXPECT_NE(why, "") << bad;
  }
}

// Two links that lead to each other.
struct Pair {
  Link oNear, oFar;
  tString oWhy;

  bool Tcp() {
    tLinkPlace place;
    LinkListener listener;
    if (!LinkPlaceFromText("tcp:127.0.0.1:0", place, oWhy) || !listener.Open(place, oWhy)) return false;
    place.oPort = std::to_string(listener.Port());
    return oNear.Open(place, 5000, oWhy) && listener.Accept(oFar, 5000);
  }
  bool Pty(const char* settings = "") {
    int master = -1, slave = -1;
    char name[64];
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0) return false;
    tLinkPlace place;
    const bool good = LinkPlaceFromText(tString("serial:") + name + settings, place, oWhy) &&
                      oNear.Open(place, 0, oWhy) && fcntl(master, F_SETFL, O_NONBLOCK) == 0 &&
                      oFar.Adopt(master, oWhy);
    close(slave);
    return good;
  }
  bool Socketpair() {
    int fds[2];
    return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0 && oNear.Adopt(fds[0], oWhy) &&
           oFar.Adopt(fds[1], oWhy);
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

TEST(SaleOverALink, Tcp) {
  Pair pair;
  ASSERT_TRUE(pair.Tcp()) << pair.oWhy;
  SaleOver(pair);
}

TEST(SaleOverALink, ASerialLine) {
  Pair pair;
  ASSERT_TRUE(pair.Pty()) << pair.oWhy;
  SaleOver(pair);
}

// The operations of a port's link on one side, plain bytes on the other.
struct FdLink : testing::Test {
  Pair oPair;
  PortSEtx_tag oPort{}, oFarPort{};

  void SetUp() override {
    ASSERT_TRUE(oPair.Socketpair()) << oPair.oWhy;
    ASSERT_TRUE(EFTPWorkInit(&oPort, &oPair.oNear, nullptr, &EFTPLinkSetUp, true));
    ASSERT_TRUE(EFTPWorkInit(&oFarPort, &oPair.oFar, nullptr, &EFTPLinkSetUp, true));
  }
  void Period(tTicks ms) { PortPeriod(&oPort, &ms); }
  void FarSends(const tString& bytes) {
    ASSERT_EQ(PortSend(&oFarPort, bytes.data(), bytes.size(), -1), bytes.size());
  }
  // Receives; "found " in front when the end sequence was.
  tString Recv(tLen len, int end) {
    unsigned flags = 0;
    tString got(len, '\0');
    got.resize(PortRecv(&oPort, got.data(), len, end, &flags));
    return (Found(flags) ? "found " : "") + got;
  }
};

TEST_F(FdLink, ReceivesByCountAndBySequence) {
  Period(200);
  PortSend(&oFarPort, "first", 5, ePCISEetx); // and a control sequence behind it
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
  EXPECT_TRUE(oPair.oNear.IsOpen());
  EXPECT_TRUE(oPair.oNear.WaitIn(1000));
  const tTicks took = Elapsed([&] {
    EXPECT_EQ(Recv(4, -1), "last");
    EXPECT_EQ(Recv(100, -1), " words");
    EXPECT_FALSE(oPair.oNear.IsOpen());
    EXPECT_FALSE(oPair.oNear.WaitIn(10000));
    EXPECT_EQ(Recv(1, -1), "");
    memset(oPort.pbCmd, 'x', 5);
    EXPECT_FALSE(oPort.SendCmd(&oPort, 5)) << "and no signal ends this process";
    EXPECT_EQ(oPort.RecvCmd(&oPort, ePCISEetx, nullptr, nullptr), 0u);
  });
  EXPECT_LT(took, 2000u) << "a period of 5 s must not be waited out";
}

TEST_F(FdLink, AClosedLinkIsSilent) {
  oPair.oNear.Close();
  EXPECT_EQ(PortSend(&oPort, "x", 1, -1), 0u);
  PortSEtx_tag port{};
  EXPECT_FALSE(EFTPWorkInit(&port, nullptr, nullptr, &EFTPLinkSetUp, true)) << "no link";
}

TEST(Link, OpensOnlyWhatItCanServe) {
  Link link;
  tString why;
  tLinkPlace place;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  EXPECT_FALSE(link.Adopt(fds[1], why));
  close(fds[0]);
  close(fds[1]);
  for (const char* text : {"serial:/dev/null", "serial:/nonexistent", "tcp:127.0.0.1:1"}) {
    ASSERT_TRUE(LinkPlaceFromText(text, place, why));
    why.clear();
    EXPECT_FALSE(link.Open(place, 1000, why));
    EXPECT_THAT(why, StartsWith("cannot ")) << text;
  }
  Pair pair;
  EXPECT_FALSE(pair.Pty(",9600,7E1")) << "a pseudo-terminal has no parity";
  EXPECT_THAT(pair.oWhy, HasSubstr("with these settings"));
}

TEST(Link, GivesASerialLineItsSettingsBack) {
  int master = -1, slave = -1;
  char name[64];
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  termios before = {}, during = {}, after = {};
  tcgetattr(slave, &before);
  tLinkPlace place;
  tString why;
  {
    Link link;
    ASSERT_TRUE(LinkPlaceFromText(tString("serial:") + name, place, why));
    ASSERT_TRUE(link.Open(place, 0, why)) << why;
    tcgetattr(slave, &during);
  }
  tcgetattr(slave, &after);
  EXPECT_NE(during.c_lflag & ICANON, before.c_lflag & ICANON);
  EXPECT_EQ(after.c_lflag, before.c_lflag);
  EXPECT_EQ(after.c_iflag, before.c_iflag);
  close(master);
  close(slave);
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
  const tString beg = "\x10\x02", end = "\x10\x03",
                message = "10000000123421"
                          "000000001000"
                          "4000001234567899=2512";
  unsigned char lrc = 0;
  for (char c : message) lrc ^= static_cast<unsigned char>(c);
  const tString frame = beg + message + end + static_cast<char>(lrc);
  const auto shown = [&](const tString& bytes) { return LinkLogBytes(bytes, beg, end); };
  const auto hasDigits = [](const tString& line) {
    return line.find(" 3") != tString::npos && line.find(" 34") != tString::npos;
  };
  EXPECT_THAT(shown("4000" + frame + "\x15"),
              AllOf(StartsWith(" ** ** ** ** 10 02 31 30"), HasSubstr("37 38 39 39 3D")));
  EXPECT_EQ(shown(message), shown(frame).substr(6, 3 * message.size()))
      << "the plain set-up has the message alone";
  for (size_t len = 1; len < frame.size(); ++len) EXPECT_FALSE(hasDigits(shown(frame.substr(0, len)))) << len;
  for (size_t at = 2; at < frame.size(); ++at) {
    tString damaged = frame;
    damaged[at] ^= 0x40;
    EXPECT_FALSE(hasDigits(shown(damaged))) << at;
  }
}

} // namespace
