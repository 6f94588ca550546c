// The codec: data parts in both directions against golden bytes, their limits, damage.
#include <cstring>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "EFTPWork.h"
#include "SLogger.h"
#include "golden.h"
#include "scripted.h"

namespace {

tEFTPWorkId Id(int id) { return static_cast<tEFTPWorkId>(id); }
const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

bool Parse(int id, const std::string& data) {
  SqueezeT store;
  tEFTPWorkId parsed = Id(id);
  return EFTPParsData(&store, parsed, Bytes(data), data.size());
}

// True when a length is among those that a golden message gives.
bool Allowed(const char* lengths, size_t len) {
  const std::string text = lengths;
  if (text.back() == '+') return len >= std::stoul(text);
  std::istringstream words(text);
  for (size_t one; words >> one;)
    if (one == len) return true;
  return false;
}

TEST(Header, WorkIdTerminalLengthData) {
  const std::string data254(254, 'd'), data255(255, 'd'), data256(256, 'd'), abc = "abc", empty;
  const std::string tid4 = "1234", tid10 = "ABCDEFGHIJ", tid12 = "ABCDEFGHIJKL";
  struct {
    tEFTPWorkId id;
    const std::string *tid, *data;
    std::string want;
  } rows[] = {
      {eEFTPwidSale, &tid4, &abc, "10000000123403abc"},
      {eEFTPwidSale, nullptr, nullptr, "10??????????00"},
      {eEFTPwidSale, &empty, &empty, "10??????????00"},
      {eEFTPwidPrLast, &tid10, &abc, "32ABCDEFGHIJ03abc"},
      {eEFTPwidSale, &tid12, nullptr, "10ABCDEFGHIJKL00"},
      {eEFTPwidSale, &tid10, &data254, "10ABCDEFGHIJFE" + data254},
      {eEFTPwidSale, &tid10, &data255, "10ABCDEFGHIJ" + std::string("\0\xFF", 2)},
      {eEFTPwidSale, &tid10, &data256, "10ABCDEFGHIJ" + std::string("\1\0", 2) + data256},
  };
  for (const auto& row : rows) {
    std::string msg = "before";
    const uint64_t len = EFTPMakeHeader(msg, row.id, row.tid, row.data);
    EXPECT_EQ(len, msg.size());
    EXPECT_EQ(msg, "before" + row.want);
  }
}

TEST(Header, ReadsTheLengthBack) {
  struct {
    std::string field;
    uint64_t len;
    char found;
  } rows[] = {{"FE", 254, 1},        {"00", 0, 1}, {{1, 0}, 256, 1},
              {{0, '\xFF'}, 255, 1}, {"??", 0, 0}, {"0a", 10, 1}};
  for (const auto& row : rows) {
    char found = 7;
    EXPECT_EQ(EFTPParsDLen(Bytes(row.field), 2, &found), row.len) << row.field;
    EXPECT_EQ(found, row.found) << row.field;
    EXPECT_EQ(EFTPParsDLen(Bytes(row.field), 2, nullptr), row.len);
  }
}

// The data part of a message; "(refused)" when none is made.
std::string Make(int id, SqueezeT& given) {
  tPadsData pads{&given, nullptr, Id(id), nullptr};
  std::string data = "left over";
  return EFTPMakeData(&pads, data) ? data : "(refused)";
}

TEST(Codec, GoldenMessagesBothWays) {
  for (const Golden& golden : kGolden)
    for (int id : WorkIds(golden.pccIds)) {
      SCOPED_TRACE(golden.pccIds + (" " + golden.Data()));
      SqueezeT given = Store(golden.pccGiven), parsed;
      EXPECT_EQ(Make(id | golden.iVariant, given), golden.Data());
      tEFTPWorkId got = Id(id);
      EXPECT_TRUE(EFTPParsData(&parsed, got, Bytes(golden.Data()), golden.Data().size()));
      EXPECT_EQ(got, id | golden.iVariant);
      for (const auto& [tag, value] : Pairs(golden.pccParsed)) EXPECT_EQ(Text(parsed, tag), value) << tag;
    }
}

TEST(Codec, CutDataIsWellFormedOnlyWhereAFieldEnds) {
  for (const Golden& golden : kGolden)
    for (int id : WorkIds(golden.pccIds))
      for (size_t len = 0; len <= golden.Data().size(); ++len)
        EXPECT_EQ(Parse(id, golden.Data().substr(0, len)), Allowed(golden.pccLengths, len))
            << golden.pccIds << " " << golden.Data().substr(0, len);
}

TEST(Codec, EveryOtherIdIsRefused) {
  std::set<int> known;
  for (const Golden& golden : kGolden)
    for (int id : WorkIds(golden.pccIds)) known.insert(id);
  EXPECT_EQ(known.size(), 59u);
  SqueezeT store;
  for (int id = -1; id <= 0x7F7F; ++id)
    ASSERT_TRUE(known.count(id) || (Make(id, store) == "(refused)" && !Parse(id, ""))) << id;
}

TEST(Codec, RequiredFieldsAndLimitsOfBuilding) {
  const std::string amount = "TR.AMT=1;", track37(37, '1');
  struct {
    const char* id;
    std::string given;
    bool good;
  } rows[] = {
      {"10", "", false},
      {"10", amount + "TR.S.TR2=" + track37, true},
      {"10", amount + "TR.S.TR2=1" + track37, false},
      {"16", amount + "TR.ACD=A;TR.S.TR2=1" + track37, true},
      {"16", amount, false},
      {"19", "", false},
      {"80", amount + "TR.ACD=A;TR.RFN=R", false}, // only a parser lets the card type be absent
      {"70", "", false},
      {"34", "", false},
      {"5X", "EF.MSG=no code", false},
      {"36", "", false},
  };
  for (const auto& row : rows) {
    SqueezeT given = Store(row.given);
    EXPECT_EQ(Make(WorkIds(row.id)[0], given) != "(refused)", row.good) << row.id << " " << row.given;
  }
  SqueezeT numbers = Store(amount);
  numbers.PutLong(abisTRtr2, 1);
  EXPECT_EQ(Make(eEFTPwidSale, numbers), "000000000001") << "a number is no track";
  numbers.PutLong(abisTRamt, 1000);
  EXPECT_EQ(Make(eEFTPwidSale, numbers), "(refused)") << "and no amount of a payment";
}

TEST(Codec, FieldsAtAndBeyondTheirLimit) {
  const auto response = [](size_t acd, size_t pex, size_t ctp, size_t msg, size_t rad) {
    std::string data = "00000000010006432026112112000000000000000007790000000000100";
    for (size_t len : {acd, pex, ctp, msg}) data += std::string(len, '4') + '\x1B';
    return data + std::string(rad, '4');
  };
  const auto closing = [](size_t ctp, const std::string& rest) { return std::string(30 + ctp, '1') + rest; };
  struct {
    int id;
    std::string data;
    bool good;
  } rows[] = {
      {eEFTPwidRespons, response(6, 25, 16, 60, 60), true},
      {eEFTPwidRespons, response(0, 0, 0, 0, 0), true},
      {eEFTPwidRespons, response(7, 25, 16, 60, 60), false},
      {eEFTPwidRespons, response(6, 26, 16, 60, 60), false},
      {eEFTPwidRespons, response(6, 25, 17, 60, 60), false},
      {eEFTPwidRespons, response(6, 25, 16, 61, 60), false},
      {eEFTPwidRespons, response(6, 25, 16, 60, 61), false},
      {eEFTPwidClRefSale, closing(16, ""), true},
      {eEFTPwidClRefSale, closing(17, ""), false},
      {eEFTPwidClRefRevs, closing(16, "\x1B"), true},
      {eEFTPwidClRefRevs, closing(17, "\x1B"), false},
      {eEFTPwidClRefRevs, closing(0, "\x1B" + std::string(11, '0')), false},
      {eEFTPwidClRefRevs, closing(0, "\x1B" + std::string(13, '0')), false},
      {eEFTPwidRevSale, std::string(37, '0'), false},
      {eEFTPwidVoid, std::string(13, '0'), false},
      {eEFTPwidFinDay, "x", false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Parse(row.id, row.data), row.good) << std::hex << row.id << " " << row.data;
}

TEST(AddP, WidthFillAndAbsence) {
  SqueezeT store = Store("TR.RFN=123;EF.MSG=longer than it should be");
  store.PutData(abisEFrad, "", 0);
  store.PutLong(abisTRamt, -1000);
  tPadsData pads{&store, nullptr, eEFTPwidNone, nullptr};
  struct {
    const char* tag;
    size_t width;
    int mode;
    bool good;
    const char* want;
  } rows[] = {
      {abisTRrfn, 6, eEFTPppMdef, true, "123   "},
      {abisTRrfn, 6, eEFTPppMdig, true, "000123"},
      {abisTRrfn, 0, eEFTPppMdef, true, "123"},
      {abisTRrfn, 6, eEFTPppMvar, true, "123\x1B"},
      {abisEFmsg, 4, eEFTPppMdef, true, "longer than it should be"}, // never cut
      {abisTRamt, 8, eEFTPppMlng, true, "000-1000"},
      {abisTRamt, 0, eEFTPppMlngv, true, "-1000\x1B"},
      {abisTRacd, 6, eEFTPppMdef, false, ""},
      {abisTRacd, 6, eEFTPppMvar, false, ""},
      {abisTRacd, 6, eEFTPppMopt, true, "\x1B"},
      {abisTRacd, 6, eEFTPppMoptv, true, "\x1B"},
      {abisTRacd, 6, eEFTPppMopta, true, ""},
      {abisTRacd, 6, eEFTPppMopt | eEFTPppMopta, true, ""},
      {abisEFrad, 6, eEFTPppMopt, true, "\x1B"}, // an empty value is an absent one
      {abisEFrad, 6, eEFTPppMlng, false, ""},
      {abisTRall, 6, eEFTPppMopta, false, ""}, // an inner node has no value
  };
  for (const auto& row : rows) {
    std::string out = ">";
    EXPECT_EQ(EFTPAddP(&pads, &out, row.tag, row.width, static_cast<tEFTPppMode>(row.mode)), row.good)
        << row.tag << " " << row.mode;
    EXPECT_EQ(out, std::string(">") + row.want) << row.tag << " " << row.mode;
  }
}

// ---- whole frames -----------------------------------------------------------------------------------------

struct Frames : testing::Test {
  PortSEtx_tag oPort{};
  ScriptedLink oLink;
  SqueezeT oGiven, oParsed;
  tPadsData oPads{&oGiven, &oParsed, eEFTPwidNone, nullptr};

  // For 100,000 messages neither a log line for each parameter nor a look at the whole store after each is wanted.
  static void SetUpTestSuite() {
    if (SLogger::ItIsMe(poGSLog)) poGSLog->close();
    zat::SqueezeGuard::fEnabled = false;
  }
  void SetUp() override { ASSERT_TRUE(EFTPWorkInit(&oPort, &oLink, nullptr, &ScriptedLink::SetUp, true)); }

  // The frame of a message, LRC included; empty when none was made.
  std::string Frame(int id, const std::string& given) {
    oGiven = Store("TM.TID=1234;" + given);
    oPads.oPWI = Id(id);
    tLen len = EFTPMakeCmd(&oPort, &oPads);
    if (len == 0 || !oPort.SecureDat(&oPort, oPort.pbCmd, &len, oPort.lCmdMax, true, oPort.lCmdBeg))
      return "";
    return {reinterpret_cast<char*>(oPort.pbCmd), len};
  }

  bool Parse(const std::string& frame) {
    frame.copy(reinterpret_cast<char*>(oPort.pbCmd), frame.size());
    oParsed = SqueezeT();
    return EFTPParsCmd(&oPort, &oPads, frame.size(), nullptr);
  }

  tLen Recv(const std::string& bytes) {
    oLink.oIn.clear();
    oLink.Arrive(bytes);
    return EFTPRecvDat(&oPort, ePCISEetx);
  }
};

TEST_F(Frames, AFrameByteByByte) {
  const std::string sale = std::string("\x10\x02") + "1000000012340C000000001000" + "\x10\x03";
  std::string frame = Frame(eEFTPwidSale, "TR.AMT=1000");
  unsigned char lrc = 0;
  for (char c : sale.substr(2, 26)) lrc ^= static_cast<unsigned char>(c);
  EXPECT_EQ(frame, sale + static_cast<char>(lrc));
  EXPECT_EQ(Recv(frame), frame.size());
  EXPECT_TRUE(Parse(frame));
  EXPECT_EQ(oPads.oPWI, eEFTPwidSale);
  EXPECT_EQ(Text(oParsed, abisTMtid), "0000001234");
  EXPECT_EQ(Text(oParsed, abisTRamt), "000000001000");

  tSEtxCmdId end = ePCISEack;
  EXPECT_FALSE(EFTPParsCmd(&oPort, &oPads, 0, &end)) << "only a question for the end sequence";
  EXPECT_EQ(end, ePCISEetx);
}

TEST_F(Frames, PlainSetUpHasTheMessageAlone) {
  ASSERT_TRUE(EFTPWorkInit(&oPort, &oLink, nullptr, &ScriptedLink::SetUp, false));
  EXPECT_EQ(oPort.oPortWork.oTimePeriod, 15000u);
  const std::string frame = Frame(eEFTPwidFinDay, "");
  EXPECT_EQ(frame, "21000000123400");
  EXPECT_EQ(Recv(frame), frame.size());
  EXPECT_TRUE(Parse(frame));
  EXPECT_EQ(oLink.oLog, (std::vector<std::string>{"[LRC]{ski"}))
      << "sending looks for the LRC, receiving does not";
}

TEST_F(Frames, SetUpWantsRoom) {
  EXPECT_EQ(oPort.oPortWork.oTimePeriod, 5000u);
  EXPECT_EQ(oPort.SomeEot, &EFTPmEot);
  const procSELS_t small = [](PortSEtx_tag* port, void* handle, tPortCmd* cmds) -> tBool {
    port->lCmdMax = 2047;
    return ScriptedLink::SetUp(port, handle, cmds);
  };
  PortSEtx_tag other{};
  EXPECT_FALSE(EFTPWorkInit(&other, &oLink, nullptr, small, true));
  EXPECT_FALSE(EFTPWorkInit(&other, &oLink, nullptr, nullptr, true));
}

TEST_F(Frames, EveryCutFrameIsRefusedAndEveryWholeOneTaken) {
  for (const Golden& golden : kGolden) {
    const std::string frame = Frame(WorkIds(golden.pccIds)[0] | golden.iVariant, golden.pccGiven);
    ASSERT_FALSE(frame.empty()) << golden.pccIds;
    EXPECT_EQ(Recv("xyz" + frame), frame.size());
    EXPECT_TRUE(Parse(frame));
    EXPECT_EQ(oPads.oPWI, WorkIds(golden.pccIds)[0] | golden.iVariant);
    for (size_t len = 0; len < frame.size(); ++len) {
      EXPECT_EQ(Recv(frame.substr(0, len)), 0u);
      EXPECT_FALSE(Parse(frame.substr(0, len)));
    }
  }
}

TEST_F(Frames, WhatMakesNoCommandLeavesTheBufferAlone) {
  memset(oPort.pbCmd, 0x55, sizeof oPort.mbCmd);
  const auto fin = [](size_t len) { return "EF.FIN=" + std::string(len, 'f'); };
  EXPECT_EQ(Frame(eEFTPwidCancel, ""), "");
  EXPECT_EQ(Frame(eEFTPwidVoid, ""), "");
  EXPECT_EQ(Frame(eEFTPwidRespDay, fin(2048 - 5 + 1)), "");
  EXPECT_EQ(Frame(eEFTPwidRespDay, "TM.TID=" + std::string(3000, 't')), "") << "an endless terminal id";
  EXPECT_EQ(Frame(eEFTPwidRespDay, "TM.TID="), "") << "none";
  EXPECT_EQ(oPort.pbCmd[0], 0x55);
  // The header is left out of the room check: the longest command is made, though no LRC fits behind it.
  EXPECT_EQ(Frame(eEFTPwidRespDay, fin(2048 - 5)), "");
  EXPECT_EQ(EFTPMakeCmd(&oPort, &oPads), 2u + 14 + 2043 + 2);
}

TEST_F(Frames, LrcIsSetAndCompared) {
  unsigned char frame[32] = {0x10, 0x02, 'A', 'B', 0x10, 0x03, 0xEE};
  tLen len = 6;
  EXPECT_TRUE(EFTPSecureDat(&oPort, frame, &len, sizeof frame, true, 2));
  EXPECT_EQ(len, 7u);
  EXPECT_EQ(frame[6], 'A' ^ 'B');
  len = 4; // the end of the data
  EXPECT_TRUE(EFTPSecureDat(&oPort, frame, &len, sizeof frame, false, 2));
  EXPECT_EQ(len, 4u);
  frame[6] = 0xC1;
  EXPECT_FALSE(EFTPSecureDat(&oPort, frame, &len, sizeof frame, false, 2));
  EXPECT_FALSE(EFTPSecureDat(&oPort, frame, &len, 6, false, 2)) << "the LRC was not received";
  len = 3;
  EXPECT_FALSE(EFTPSecureDat(&oPort, frame, &len, sizeof frame, false, 2)) << "nothing to check";
  len = 2048;
  EXPECT_FALSE(EFTPSecureDat(&oPort, oPort.pbCmd, &len, 2048, true, 2)) << "no room";
  EXPECT_EQ(oLink.oLog,
            (std::vector<std::string>{"[LRC]{set}03|00", "[LRC]{cmp}03|03", "[LRC]{cmp}03|C1",
                                      "[LRC]{cmp}{error}", "[LRC]{cmp}{error}", "[LRC]{set}{error}"}));
}

TEST_F(Frames, ReceiveRefusesWhatCannotBeAFrame) {
  const std::string good = Frame(eEFTPwidRfok, "");
  std::string damaged = good, noLength = good, tooLong = good;
  damaged[5] ^= 1;
  noLength.replace(14, 2, "??");
  tooLong.replace(14, 2, "\x08\x34"); // 2,100 bytes
  EXPECT_EQ(Recv(good), good.size());
  EXPECT_EQ(Recv(std::string(2040, 'n') + good), good.size());
  EXPECT_EQ(Recv(std::string(2048, 'n') + good), 0u) << "too much noise";
  EXPECT_EQ(Recv(damaged), 0u);
  EXPECT_EQ(Recv(noLength), 0u);
  EXPECT_EQ(Recv(tooLong + std::string(2100, 'd')), 0u);
  EXPECT_EQ(oLink.oIn.size(), tooLong.size() - 16 + 2100) << "refused before its data are read";
}

TEST_F(Frames, EotOrTheNextByte) {
  oLink.Arrive("\x04"
               "Az");
  EXPECT_TRUE(EFTPmEot(&oPort, false));
  EXPECT_FALSE(EFTPmEot(&oPort, false));
  EXPECT_EQ(oPort.oPortWork.iPreReaded, 'A');
  oLink.oIn.clear();
  oPort.oPortWork.iPreReaded = -1;
  EXPECT_FALSE(EFTPmEot(&oPort, false)) << "silence";
  oLink.Arrive("kept");
  EXPECT_TRUE(EFTPmEot(&oPort, true));
  EXPECT_EQ(oLink.oIn.size(), 4u) << "the input is not cleared";
  EXPECT_EQ(oLink.Sent(), "\x04");
}

TEST_F(Frames, ACommandAndItsReplies) {
  const std::string sale = Frame(eEFTPwidSale, "TR.AMT=1000"), ok = Frame(eEFTPwidRfok, ""),
                    end = Frame(eEFTPwidEndOk, "");
  oGiven = Store("TM.TID=1234;TR.AMT=1000");
  oPads.oPWI = eEFTPwidSale;
  std::string damaged = ok;
  damaged[3] ^= 1;
  oLink.oReactions = {"\x15", "noise\x06" + damaged, ok, end}; // to the sale, the sale again, a NAK, an ACK
  EXPECT_TRUE(oPort.WorkCmd(&oPort, &oPads));
  EXPECT_EQ(oPads.oPWI, eEFTPwidRfok);
  EXPECT_TRUE(oPort.WorkAck(&oPort, &oPads));
  EXPECT_EQ(oPads.oPWI, eEFTPwidEndOk);
  EXPECT_EQ(oLink.oSent, (std::vector<std::string>{sale, sale, "\x15", "\x06", "\x06"}));

  oLink = {};
  oPads.oPWI = eEFTPwidSale;
  EXPECT_FALSE(oPort.WorkCmd(&oPort, &oPads)) << "nobody there";
  EXPECT_EQ(oLink.oSent, (std::vector<std::string>{sale, sale, sale, "\x04"}));
}

// What a mutated message parses into builds the same data again: nothing is lost, moved or invented.
TEST_F(Frames, MutatedMessages) {
  std::minstd_rand random(2026);
  std::vector<std::string> frames;
  for (const Golden& golden : kGolden)
    frames.push_back(Frame(WorkIds(golden.pccIds)[0] | golden.iVariant, golden.pccGiven));
  int taken = 0;
  for (int i = 0; i < 100000; ++i) {
    std::string frame = frames[random() % frames.size()];
    for (unsigned n = random() % 3; n > 0; --n)
      frame[2 + random() % (frame.size() - 2)] = "\x1B"
                                                 "0A\x00\xFF"[random() % 5];
    const size_t at = 16 + random() % (frame.size() - 15);
    if (random() % 4 == 0)
      frame.insert(std::min(at, frame.size()), random() % 20,
                   "\x1B"
                   "01"[random() % 3]);
    if (random() % 4 == 0) frame.erase(std::min(at, frame.size()), random() % 20);
    if (frame.size() >= 16 && random() % 8 != 0) { // mostly with a length that fits
      char text[3];
      snprintf(text, sizeof text, "%02X", static_cast<unsigned>(frame.size() - 19) & 0xFF);
      frame.replace(14, 2, text);
    }
    if (!Parse(frame)) continue;
    ++taken;
    const std::string data = frame.substr(16, frame.size() - 19);
    tPadsData again{&oParsed, nullptr, oPads.oPWI, nullptr};
    std::string built;
    const bool made = EFTPMakeData(&again, built);
    // A builder stops at a zero byte of a fixed field, limits a track, and wants fields that a parser lets be
    // absent.
    if (made && data.find('\0') == std::string::npos) { ASSERT_EQ(built, data) << frame; }
  }
  EXPECT_GT(taken, 20000);
  EXPECT_LT(taken, 90000);
}

} // namespace
