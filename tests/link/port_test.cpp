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
  EXPECT_EQ(oPort.oPortWork.oTimePeriod, 1000u);
  PortSEtx_tag other{};
  EXPECT_FALSE(PortSEtxInit(&other, &oLink, nullptr, nullptr));
  EXPECT_FALSE(
      PortSEtxInit(&other, &oLink, nullptr, [](PortSEtx_tag*, void*, tPortCmd*) -> tBool { return 0; }));
  EXPECT_FALSE(PortSEtxInit(&other, &oLink, nullptr, [](PortSEtx_tag* port, void*, tPortCmd*) -> tBool {
    port->lCmdMax = 1 << 20; // without a buffer of that size
    return 1;
  }));
  oPort.Done(&oPort);
  EXPECT_FALSE(oPort.WorkCmd || oPort.pbCmd || oPort.oPortCmds.Send);
}

TEST_F(Port, ControlSequences) {
  const auto all = [this](tPortCmd* table) {
    oPort.oPortCmds.poPC = table;
    std::string text;
    for (int id = 0; id < ePCISEnum; ++id) {
      tLen len = 99;
      const unsigned char* pb = GetCmd(&oPort, static_cast<tSEtxCmdId>(id), &len);
      EXPECT_EQ(len, pb ? strlen(reinterpret_cast<const char*>(pb)) : 0) << "a zero byte stands behind each";
      text += pb ? std::string(reinterpret_cast<const char*>(pb)) + "|" : "|";
    }
    return text;
  };
  EXPECT_EQ(all(moSEtxCmdDefs), "||\x06||\x15|\x02|\x03|\x04|\x0F|\x0E|");
  EXPECT_EQ(all(moEFTPCmdDefs), "||\x06|\x05|\x15|\x10\x02|\x10\x03|\x04|\x0F|\x0E|");
  tLen len = 7;
  EXPECT_EQ(GetCmd(&oPort, ePCISEnum, &len), nullptr);
  EXPECT_EQ(GetCmd(&oPort, static_cast<tSEtxCmdId>(-1), &len), nullptr);
  EXPECT_EQ(len, 7u);
}

TEST_F(Port, CheckField) {
  unsigned char frame[8] = {0x02, 'A', 'B', 0x03, 0xEE};
  tLen len = 4;
  EXPECT_TRUE(SecureDat(&oPort, frame, &len, 0, true, 1)); // the limit argument does not count
  EXPECT_EQ(len, 5u);
  EXPECT_EQ(frame[4], 'A' ^ 'B' ^ 0x03);
  EXPECT_TRUE(SecureDat(&oPort, frame, &len, 0, false, 1));
  EXPECT_EQ(len, 4u);
  frame[1] ^= 1;
  len = 5;
  EXPECT_FALSE(SecureDat(&oPort, frame, &len, 0, false, 1));
  EXPECT_EQ(len, 4u) << "stays reduced";

  const auto refused = [&](tLen l, bool set, tLen ofs) {
    return !SecureDat(&oPort, frame, &l, 2048, set, ofs);
  };
  EXPECT_TRUE(refused(1, true, 1)) << "nothing behind the start sequence";
  EXPECT_TRUE(refused(2, false, 1));
  EXPECT_TRUE(refused(0, false, ~tLen{0})) << "no wrap-around";
  oPort.lCmdMax = 4;
  EXPECT_TRUE(refused(4, true, 1)) << "no room";
  oPort.lCmdSign = 0;
  EXPECT_FALSE(refused(0, true, 1) || refused(0, false, 1));
}

// ---- sending ----

TEST_F(Port, SendsUntilAcknowledged) {
  struct {
    const char* pccName;
    bool fDirty;
    std::vector<std::string> oReactions; // to each attempt
    bool fGood;
    size_t lAttempts;
  } rows[] = {
      {"ack", false, {kAck}, true, 1},
      {"nak, nak, ack", false, {kNak, kNak, kAck}, true, 3},
      {"naks", false, {kNak, kNak, kNak, kAck}, false, 3},
      {"silence", false, {}, false, 3},
      {"silence, ack", false, {"", kAck}, true, 2},
      {"noise counts as an attempt", false, {"x", kAck}, true, 2},
      {"dirty: noise, then ack", true, {"some noise" + kAck}, true, 1},
      {"dirty: noise, then nak", true, {"xx" + kNak, kAck}, true, 2},
      {"dirty: endless noise", true, {std::string(5000, 'x')}, false, 3},
      {"dirty: silence", true, {}, false, 3},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pccName);
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
  oLink.oSent.clear();
  oPort.fUseAK = false;
  Put("\x02X\x03");
  EXPECT_TRUE(SendCmd(&oPort, 3)) << "without acknowledgements sent is done";
  oLink.fDeaf = true;
  EXPECT_FALSE(SendCmd(&oPort, 3));
}

// ---- receiving ----

TEST_F(Port, ReceivesUntilGood) {
  const std::string bad = {0x02, 'A', 'B', 0x03, 'x'}, refused = {0x02, 'Z', 0x03, 'Z' ^ 0x03};
  struct {
    const char* pccName;
    std::string oFirst;                  // arrived before
    std::vector<std::string> oReactions; // to each ACK or NAK
    const char* pccSent;                 // A: ACK, N: NAK, E: EOT
    std::string oGot;
  } rows[] = {
      {"good", kGood, {}, "A", kGood},
      {"noise before", "noise" + kGood, {}, "A", kGood},
      {"damaged twice", bad, {bad, kGood}, "NNA", kGood},
      {"damaged thrice", bad, {bad, bad, kGood}, "NNNE", ""},
      {"silence", "", {}, "NNNE", ""},
      {"cut, then good", kGood.substr(0, 3), {kGood}, "NA", kGood},
      {"judged bad", refused, {kGood}, "NA", kGood},
      {"no check byte", kUnchecked, {kGood}, "NA", kGood},
  };
  const procPCO_t refuseZ = [](PortSEtx_tag* port, void*, tLen) -> tBool { return port->pbCmd[1] != 'Z'; };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pccName);
    oLink = {};
    oLink.Arrive(row.oFirst);
    oLink.oReactions = row.oReactions;
    EXPECT_EQ(Got(RecvCmd(&oPort, ePCISEetx, refuseZ, nullptr)), row.oGot);
    std::string sent;
    for (const std::string& one : oLink.oSent)
      sent += one == kAck ? 'A' : one == kNak ? 'N' : one == kEot ? 'E' : '?';
    EXPECT_EQ(sent, row.pccSent);
  }
}

TEST_F(Port, AnAnswerThatCannotBeSentEndsTheReceive) {
  oLink.Arrive(kGood);
  oLink.fDeaf = true;
  EXPECT_EQ(RecvCmd(&oPort, ePCISEetx, nullptr, nullptr), 0u);
  EXPECT_TRUE(oLink.oSent.empty());
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
    const char* pccName;
    std::string oBytes;
    tLen lField;
    bool fHL;
    tLen lGot;
  } rows[] = {
      {"high first", {0x02, 0, 2, 'A', 'B', 'A' ^ 'B', 0x03}, 2, true, 7},
      {"low first", {0x02, 2, 0, 'A', 'B', 'A' ^ 'B', 0x03}, 2, false, 7},
      {"one byte", {0x02, 2, 'A', 'B', 'A' ^ 'B', 0x03}, 1, true, 6},
      {"two of three count", {0x02, 0, 1, 9, 'A', 'A', 0x03}, 3, true, 7},
      {"no field", {0x02, 'A', 'B', 0x03, 'A' ^ 'B' ^ 0x03}, 0, true, 5},
      {"short data", {0x02, 0, 3, 'A', 'B'}, 2, true, 0},
      {"beyond the buffer", {0x02, 0x7F, 0x7F, 'A', 'B', 'A' ^ 'B', 0x03}, 2, true, 0},
      {"bad check", {0x02, 0, 1, 'A', 'x', 0x03}, 2, true, 0},
      {"no end", {0x02, 0, 1, 'A', 'A'}, 2, true, 0},
      {"other end", {0x02, 0, 1, 'A', 'A', 'y'}, 2, true, 0},
      {"empty", {0x02, 0, 0, 0, 0x03}, 2, true, 0},
  };
  for (const auto& row : rows) {
    oLink.oIn.clear();
    oLink.Arrive("zz" + row.oBytes);
    EXPECT_EQ(PortSElcRecvDatDoP(&oPort, ePCISEetx, ePCISEstx, row.lField, row.fHL), row.lGot) << row.pccName;
    EXPECT_EQ(oPort.lCmdBeg, 1 + row.lField) << row.pccName;
    EXPECT_EQ(Got(row.lGot), row.oBytes.substr(0, row.lGot)) << row.pccName;
  }
  EXPECT_EQ(PortSElcRecvDatDo(&oPort, ePCISEetx, static_cast<tSEtxCmdId>(-1), 2), 0u) << "a start is needed";
  EXPECT_EQ(PortSElcRecvDatDo(&oPort, ePCISEetx, ePCISEstx, ~tLen{0}), 0u);
}

TEST_F(Port, AFrameMustLeaveRoomForItsCheckField) {
  oPort.oPortWork.oTimePeriod = 10000; // a tick for each byte
  oLink.Arrive("\x02" + std::string(oPort.lCmdMax - 2, 'A') + "\x03" + std::string(1, 0x03));
  EXPECT_EQ(PortSElcRecvDatEasyDo(&oPort, ePCISEetx, ePCISEstx), 0u);
  oLink.oIn.clear();
  oLink.Arrive("\x02" + std::string(oPort.lCmdMax - 3, 'A') + "\x03" + std::string(1, 'A' ^ 0x03));
  EXPECT_EQ(PortSElcRecvDatEasyDo(&oPort, ePCISEetx, ePCISEstx), oPort.lCmdMax);
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
  const auto zero = [](const unsigned char* pb) {
    return std::all_of(pb, pb + sizeof oPort.mbCmd, [](int b) { return b == 0; });
  };
  EXPECT_TRUE(zero(oPort.mbCmd) && zero(oPort.mbCmdSave));
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
  EXPECT_FALSE(WorkCmd(&oPort, nullptr));
  EXPECT_FALSE(SendCmd(&oPort, 3));
  EXPECT_EQ(RecvCmd(&oPort, ePCISEetx, nullptr, nullptr), 0u);
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
  copy.pvDst = nullptr;
  ParsCmdCpy(&copy, "ABC", 1);
  EXPECT_EQ(copy.lCopied, 1u);
}

} // namespace
