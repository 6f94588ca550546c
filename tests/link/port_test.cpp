// The generic port against a scripted link.
#include <cstring>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PortSElc.h"
#include "scripted.h"

namespace {

const std::string kAck = "\x06", kNak = "\x15", kEot = "\x04";
const std::string kGood = {0x02, 'A', 'B', 0x03, 'A' ^ 'B' ^ 0x03}, kUnchecked = kGood.substr(0, 4);

struct Port : testing::Test {
  PortSEtx_tag oPort{};
  ScriptedLink oLink;

  void SetUp() override { ASSERT_TRUE(PortSEtxInit(&oPort, &oLink, nullptr, &ScriptedLink::SetUp)); }
  void Put(const std::string& bytes) { bytes.copy(reinterpret_cast<char*>(oPort.pbCmd), bytes.size()); }
  std::string Got(tLen len) const { return {reinterpret_cast<const char*>(oPort.pbCmd), len}; }
};

TEST_F(Port, SetUpRefusesBadLinks) {
  PortSEtx_tag other{};
  const procSELS_t unwilling = [](PortSEtx_tag*, void*, tPortCmd*) -> tBool { return 0; };
  const procSELS_t noBuffer = [](PortSEtx_tag* port, void*, tPortCmd*) -> tBool {
    port->lCmdMax = 1 << 20; // without a buffer of that size
    return 1;
  };
  for (procSELS_t bad : {procSELS_t{}, unwilling, noBuffer})
    EXPECT_FALSE(PortSEtxInit(&other, &oLink, nullptr, bad));
  EXPECT_EQ(oPort.oPortWork.oTimePeriod, 1000u);
  oPort.Done(&oPort);
  EXPECT_FALSE(oPort.WorkCmd || oPort.pbCmd || oPort.oPortCmds.Send);
}

TEST_F(Port, ControlSequences) {
  const auto all = [this](tPortCmd* table) {
    oPort.oPortCmds.poPC = table;
    std::string text;
    for (int id = 0; id < ePCISEnum; ++id) {
      tLen len = 0;
      const unsigned char* pb = GetCmd(&oPort, static_cast<tSEtxCmdId>(id), &len);
      text += pb ? std::string(pb, pb + len + 1) : "|"; // with the zero byte that stands behind each
    }
    std::ranges::replace(text, '\0', '|');
    return text;
  };
  EXPECT_EQ(all(moSEtxCmdDefs), "||\x06||\x15|\x02|\x03|\x04|\x0F|\x0E|");
  EXPECT_EQ(all(moEFTPCmdDefs), "||\x06|\x05|\x15|\x10\x02|\x10\x03|\x04|\x0F|\x0E|");
  tLen len = 7;
  for (int id : {-1, static_cast<int>(ePCISEnum)})
    EXPECT_EQ(GetCmd(&oPort, static_cast<tSEtxCmdId>(id), &len), nullptr);
  EXPECT_EQ(len, 7u);
}

TEST_F(Port, CheckField) {
  Put(kUnchecked);
  const auto secure = [this](bool set, tLen len, tLen ofs = 1) {        // the length afterwards; 0: refused
    return SecureDat(&oPort, oPort.pbCmd, &len, 0, set, ofs) ? len : 0; // the limit argument does not count
  };
  EXPECT_EQ(secure(true, 4), 5u);
  EXPECT_EQ(Got(5), kGood);
  EXPECT_EQ(secure(false, 5), 4u);
  oPort.pbCmd[1] ^= 1;
  tLen len = 5;
  EXPECT_FALSE(SecureDat(&oPort, oPort.pbCmd, &len, 0, false, 1));
  EXPECT_EQ(len, 4u) << "stays reduced";
  EXPECT_EQ(secure(true, 1), 0u) << "nothing behind the start sequence";
  EXPECT_EQ(secure(false, 2), 0u);
  EXPECT_EQ(secure(false, 0, ~tLen{0}), 0u) << "no wrap-around";
  oPort.lCmdMax = 4;
  EXPECT_EQ(secure(true, 4), 0u) << "no room";
}

// ---- sending ----

TEST_F(Port, SendsUntilAcknowledged) {
  struct {
    bool fDirty;
    std::vector<std::string> oReactions; // to each attempt
    bool fGood;
    size_t lAttempts;
  } rows[] = {
      {false, {kAck}, true, 1},
      {false, {kNak, kNak, kAck}, true, 3},
      {false, {kNak, kNak, kNak, kAck}, false, 3},
      {false, {}, false, 3},
      {false, {"", kAck}, true, 2},
      {false, {"x", kAck}, true, 2}, // noise counts as an attempt
      {true, {"some noise" + kAck}, true, 1},
      {true, {"xx" + kNak, kAck}, true, 2},
      {true, {std::string(5000, 'x')}, false, 3},
      {true, {}, false, 3},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.oReactions));
    oLink = {};
    oPort.fDirtyAK = row.fDirty;
    oLink.oReactions = row.oReactions;
    Put(kUnchecked);
    std::vector<std::string> want(row.lAttempts, kGood);
    if (!row.fGood) want.push_back(kEot);
    EXPECT_EQ(SendCmd(&oPort, 4) != 0, row.fGood);
    EXPECT_EQ(oLink.oSent, want);
    EXPECT_EQ(oLink.iCleared, row.fGood ? 0 : 1);
  }
}

TEST_F(Port, WhatCannotBeSentEndsWithEot) {
  EXPECT_FALSE(SendCmd(&oPort, 0)) << "no data, no check field";
  EXPECT_EQ(oLink.Sent(), kEot);
  oPort.fUseAK = false;
  Put("\x02X\x03");
  EXPECT_TRUE(SendCmd(&oPort, 3)) << "without acknowledgements sent is done";
  oLink.Arrive(kGood);
  oLink.fDeaf = true;
  EXPECT_FALSE(SendCmd(&oPort, 3));
  EXPECT_EQ(RecvCmd(&oPort, ePCISEetx, nullptr, nullptr), 0u) << "no ACK can be sent";
}

// ---- receiving ----

TEST_F(Port, ReceivesUntilGood) {
  const std::string bad = {0x02, 'A', 'B', 0x03, 'x'}, refused = {0x02, 'Z', 0x03, 'Z' ^ 0x03};
  struct {
    std::string oFirst;                  // arrived before
    std::vector<std::string> oReactions; // to each ACK or NAK
    const char* pccSent;                 // A: ACK, N: NAK, E: EOT
    std::string oGot;
  } rows[] = {
      {"noise" + kGood, {}, "A", kGood},          {bad, {bad, kGood}, "NNA", kGood},
      {bad, {bad, bad, kGood}, "NNNE", ""},       {"", {}, "NNNE", ""},
      {kGood.substr(0, 3), {kGood}, "NA", kGood}, {refused, {kGood}, "NA", kGood},
      {kUnchecked, {kGood}, "NA", kGood},
  };
  const procPCO_t refuseZ = [](PortSEtx_tag* port, void*, tLen) -> tBool { return port->pbCmd[1] != 'Z'; };
  for (const auto& row : rows) {
    oLink = {};
    oLink.Arrive(row.oFirst);
    oLink.oReactions = row.oReactions;
    EXPECT_EQ(Got(RecvCmd(&oPort, ePCISEetx, refuseZ, nullptr)), row.oGot);
    std::string sent;
    for (const std::string& one : oLink.oSent)
      sent += one == kAck ? 'A' : one == kNak ? 'N' : one == kEot ? 'E' : '?';
    EXPECT_EQ(sent, row.pccSent) << testing::PrintToString(row.oFirst);
  }
}

TEST_F(Port, EachEndSequenceHasItsStart) {
  const std::string shift = {0x0F, 'A', 0x0E, 'A' ^ 0x0E};
  oLink.Arrive("\x02" + shift);
  EXPECT_EQ(Got(RecvDat(&oPort, ePCISEso)), shift);
  oPort.lCmdBeg = 0;
  oLink.Arrive(std::string{'Q', 0x04, 'Q' ^ 0x04});
  EXPECT_EQ(RecvDat(&oPort, ePCISEeot), 3u) << "no start sequence belongs to it";
}

// ---- receivers ----

TEST_F(Port, FramesByLengthField) {
  struct {
    std::string oBytes;
    tLen lField;
    bool fHL;
    tLen lGot;
  } rows[] = {
      {{0x02, 0, 2, 'A', 'B', 'A' ^ 'B', 0x03}, 2, true, 7},
      {{0x02, 2, 0, 'A', 'B', 'A' ^ 'B', 0x03}, 2, false, 7},
      {{0x02, 2, 'A', 'B', 'A' ^ 'B', 0x03}, 1, true, 6},
      {{0x02, 0, 1, 9, 'A', 'A', 0x03}, 3, true, 7}, // only two of three bytes count
      {{0x02, 'A', 'B', 0x03, 'A' ^ 'B' ^ 0x03}, 0, true, 5},
      {{0x02, 0, 3, 'A', 'B'}, 2, true, 0},
      {{0x02, 0x7F, 0x7F, 'A', 'B', 'A' ^ 'B', 0x03}, 2, true, 0}, // beyond the buffer
      {{0x02, 0, 1, 'A', 'x', 0x03}, 2, true, 0},
      {{0x02, 0, 1, 'A', 'A'}, 2, true, 0},
      {{0x02, 0, 1, 'A', 'A', 'y'}, 2, true, 0},
      {{0x02, 0, 0, 0, 0x03}, 2, true, 0},
  };
  for (const auto& row : rows) {
    oLink.oIn.clear();
    oLink.Arrive("zz" + row.oBytes);
    EXPECT_EQ(PortSElcRecvDatDoP(&oPort, ePCISEetx, ePCISEstx, row.lField, row.fHL), row.lGot)
        << testing::PrintToString(row.oBytes);
    EXPECT_EQ(oPort.lCmdBeg, 1 + row.lField);
    EXPECT_EQ(Got(row.lGot), row.oBytes.substr(0, row.lGot));
  }
  EXPECT_EQ(PortSElcRecvDatDo(&oPort, ePCISEetx, static_cast<tSEtxCmdId>(-1), 2), 0u) << "a start is needed";
  EXPECT_EQ(PortSElcRecvDatDo(&oPort, ePCISEetx, ePCISEstx, ~tLen{0}), 0u);
}

TEST_F(Port, AFrameMustLeaveRoomForItsCheckField) {
  oPort.oPortWork.oTimePeriod = 10000; // a tick for each byte
  for (const tLen data : {oPort.lCmdMax - 2, oPort.lCmdMax - 3}) {
    oLink.oIn.clear();
    oLink.Arrive("\x02" + std::string(data, 'A') + "\x03" + (data % 2 ? 'B' : '\x03'));
    EXPECT_EQ(PortSElcRecvDatEasyDo(&oPort, ePCISEetx, ePCISEstx), data + 3 > oPort.lCmdMax ? 0 : data + 3);
  }
}

// ---- a whole command ----

TEST_F(Port, WorkCmdKeepsTheCommandWhileItWaitsAndNothingAfter) {
  oPort.MakeCmd = [](PortSEtx_tag* port, void*) -> tLen {
    return kUnchecked.copy(reinterpret_cast<char*>(port->pbCmd), 4);
  };
  oPort.ParsCmd = [](PortSEtx_tag* port, void* saved, tLen len, tSEtxCmdId* end) -> tBool {
    if (end) *end = ePCISEetx;
    if (len != 0) static_cast<std::string*>(saved)->assign(reinterpret_cast<char*>(port->pbCmdSave), 5);
    return len != 0;
  };
  oLink.oReactions = {kAck + kGood};
  std::string saved;
  EXPECT_TRUE(WorkCmd(&oPort, &saved));
  EXPECT_EQ(saved, kGood);
  EXPECT_EQ(oLink.Sent(), kGood + "|" + kAck);
  EXPECT_EQ(Got(sizeof oPort.mbCmd), std::string(sizeof oPort.mbCmd, '\0'));
  EXPECT_EQ(memcmp(oPort.mbCmd, oPort.mbCmdSave, sizeof oPort.mbCmdSave), 0);
}

TEST_F(Port, EotIsAwaitedAndSent) {
  oLink.Arrive(kEot + "x");
  EXPECT_TRUE(SomeEot(&oPort, false));
  EXPECT_FALSE(SomeEot(&oPort, false));
  EXPECT_FALSE(SomeEot(&oPort, false)) << "silence";
  EXPECT_TRUE(PortSElcSomeEotStub(&oPort, true));
}

TEST_F(Port, EmptySlotsMeanNothingDone) {
  oPort.GetCmd = nullptr;
  oPort.SecureDat = nullptr;
  oPort.oPortCmds.Send = nullptr;
  oPort.oPortCmds.Recv = nullptr;
  oPort.oPortWork.TimeEnd = nullptr;
  oPort.fDirtyAK = true;
  EXPECT_FALSE(WorkCmd(&oPort, nullptr) || SendCmd(&oPort, 3) ||
               RecvCmd(&oPort, ePCISEetx, nullptr, nullptr));
  oPort.SendCmd = nullptr;
  oPort.RecvCmd = nullptr;
  EXPECT_FALSE(WorkCmd(&oPort, nullptr) || WorkAck(&oPort, nullptr) || ParsCmdOnly(&oPort, nullptr, 5));
}

TEST_F(Port, RandomNoiseEnds) {
  std::minstd_rand random(7);
  const std::string likely = "\x02\x03\x04\x06\x15";
  oLink.procNoise = [&] {
    return random() % 2 ? likely[random() % likely.size()] : static_cast<int>(random() % 256);
  };
  oPort.MakeCmd = [](PortSEtx_tag* port, void*) -> tLen {
    port->pbCmd[0] = port->pbCmd[1] = 2;
    return 2;
  };
  oPort.ParsCmd = [](PortSEtx_tag*, void*, tLen len, tSEtxCmdId*) -> tBool { return len % 3 == 1; };
  int good = 0;
  for (int i = 0; i < 2000; ++i) {
    oPort.fDirtyAK = i % 2;
    const tTicks begin = oLink.oNow;
    good += WorkCmd(&oPort, nullptr);
    EXPECT_LE(oLink.oNow - begin, 20 * oPort.oPortWork.oTimePeriod);
  }
  EXPECT_GT(good, 0);
  EXPECT_LT(good, 2000);
}

TEST(ParsCmdCpy, CopiesWhatFits) {
  char to[4] = "...";
  tParsCmdCpy copy = {to, 2, 0, 0};
  ParsCmdCpy(&copy, "ABC", 3);
  EXPECT_STREQ(to, "AB.");
  EXPECT_EQ(copy.lOffered, 3u);
  EXPECT_EQ(copy.lCopied, 2u);
}

} // namespace
