// What the terminal answers to a till, block by block, and what it remembers of it.
#include "cp1251.h"
#include "module.h"
#include <gtest/gtest.h>
#include <thread>

namespace {

typedef std::vector<std::string> Blocks;

// One parameter of a block, as the till's side would read it.
std::string Field(const std::string& block, const char* tag) {
  SqueezeT store;
  std::string value;
  if (block.size() < 14) return "(no block)";
  auto id = static_cast<tEFTPWorkId>(EFTPWId(block[0], block[1]));
  const auto* data = reinterpret_cast<const unsigned char*>(block.data()) + 14;
  if (!EFTPParsData(&store, id, data, block.size() - 14)) return "(malformed)";
  store.GetData(store.Find(tag), &value);
  return value;
}

std::string Of(const Blocks& blocks, const char* work, const char* tag) {
  for (const std::string& block : blocks)
    if (block.compare(0, 2, work) == 0) return Field(block, tag);
  return "(absent)";
}

Blocks Ask(const Site& at, const std::string& work, const std::string& data) {
  return Module(at).Ask(work, data);
}

std::string Reference(const Blocks& blocks) { return Of(blocks, "60", abisTRrfn); }

const std::string k1250 = "000000125000", k300 = "000000030000", kLast = "000000000000";

TEST(Terminal, TakesASaleBlockByBlock) {
  Site at;
  Module module(at);
  EXPECT_EQ(module.Block(), "zat_mm 1.0.0");
  module.Send("10", k1250 + "4000001234567899=25121011234567890");
  const Blocks blocks = module.Rest();
  EXPECT_EQ(Codes(blocks), "52 53 32 60 #0");

  for (size_t i = 2; i + 2 < blocks.size(); ++i) {
    EXPECT_EQ(blocks[i].substr(2, 10), "0000001234");
    EXPECT_EQ(Field(blocks[i], abisEFsln), i + 3 == blocks.size() ? "1" : "0");
    EXPECT_LE(Field(blocks[i], abisEFpln).size(), 32u);
    EXPECT_EQ(blocks[i].find("400000123"), std::string::npos) << "a card number on paper";
  }
  const std::pair<const char*, std::string> expected[] = {
      {abisEFcod, "0"},
      {abisTRamt, k1250},
      {abisTRccd, "643"},
      {abisEFrcd, "00"},
      {abisEFctp, "VISA"},
      {abisTRpex, "4000001234567899=2512"},
      {abisEFmsg, "ОДОБРЕНО"_1251},
  };
  for (const auto& [tag, value] : expected) EXPECT_EQ(Of(blocks, "60", tag), value) << tag;
  EXPECT_EQ(Of(blocks, "60", abisTRacd).size(), 6u);
  EXPECT_EQ(blocks.back(), "#0000000123400");
  EXPECT_EQ(module.Ended(), 0);
  EXPECT_EQ(at.Get("simulator-1234.day").find("4000001234567899"), std::string::npos)
      << "a card number on disk";
}

TEST(Terminal, LetsTheAmountChooseTheEnding) {
  Site at;
  const struct {
    const char *cents, *codes, *work, *tag, *value;
  } cases[] = {
      {"00", "53 32 60 #0", "60", abisEFrcd, "00"},
      {"05", "53 32 60 #1", "60", abisEFrcd, "05"},
      {"51", "53 32 60 #1", "60", abisEFrcd, "51"},
      {"54", "32 60 #1", "60", abisEFrcd, "54"},
      {"70", "53 55 32 60 #0", "60", abisEFrcd, "00"},
      {"09", "53 5X #1", "5X", abisEFecd, "09"},
      {"87", "53 5X #1", "5X", abisEFecd, "I7"},
      {"91", "5X #1", "5X", abisEFecd, "M1"},
      {"94", "53 5X #1", "5X", abisEFmsg, "HOST 1: NETWORK ERROR (110)"},
  };
  for (const auto& c : cases) {
    const Blocks blocks = Ask(at, "10", std::string("0000000012") + c.cents);
    EXPECT_EQ(Codes(blocks), c.codes) << c.cents;
    EXPECT_EQ(Of(blocks, c.work, c.tag), c.value) << c.cents;
  }
  EXPECT_EQ(Of(Ask(at, "21", ""), "22", abisEFfin).substr(0, 16), "0002000000002470")
      << "only what was approved counts";
}

TEST(Terminal, AnswersEveryRequest) {
  Site at;
  const std::string refund = Reference(Ask(at, "14", k300)), hotel = Reference(Ask(at, "11", k1250)),
                    sale = Reference(Ask(at, "10", k1250)), closing = k300 + "123456" + hotel + "VISA";
  const struct {
    std::string work, data, codes;
    const char *tag = abisEFecd, *value = nullptr; // in the block before the end block
  } cases[] = {
      {"12", k1250, "52 53 32 60 #0"},
      {"13", k300, "53 32 60 #0"},
      {"16", k300 + "ABC123", "32 60 #0", abisTRacd, "ABC123"},
      {"1L", kLast, "53 32 60 #0"},
      {"1B", refund + k300, "53 32 60 #0"},
      {"1A", refund + k300, "5X #1"},
      {"81", closing, "53 32 60 #0"},
      {"81", closing, "5X #1"},
      {"20", hotel, "32 60 #0"},
      {"20", "999999999999", "54 5X #1"},
      {"26", hotel, "50 #0"},
      {"26", "7", "5X #1"},
      {"23", "", "32 24 #0"},
      {"25", "1", "32 50 #0"},
      {"30", "", "31 #0"},
      {"33", "", "34 #1"},
      {"37", "1MV01", "38 #0", abisEFdtd, "4111111111111111=3012101"},
      {"40", "", "5X #1"},
      {"10", "12", "5X #1"},
      {"10", k300 + "card", "5X #1"},
      {"1A", sale + k300, "5X #1", abisEFecd, "13"}, // not the amount of the sale
      {"1A", "123456789012" + k1250, "54 5X #1"},
      {"1A", sale + k1250 + k300, "53 32 60 #0", abisTRamt, k300.c_str()}, // a part
      {"1A", sale + k1250 + "000000000105", "53 32 60 #1"},                // the part chooses the ending
      {"19", sale, "5X #1", abisEFecd, "12"},                              // reversed in part: no void
      {"1A", sale + k1250, "53 32 60 #0", abisTRamt, "000000095000"},      // the rest
      {"1A", sale + k1250, "5X #1", abisEFecd, "12"},                      // nothing is left
  };
  for (const auto& c : cases) {
    const Blocks blocks = Ask(at, c.work, c.data);
    EXPECT_EQ(Codes(blocks), c.codes) << c.work << ' ' << c.data;
    if (c.value) { EXPECT_EQ(Field(blocks[blocks.size() - 2], c.tag), c.value) << c.work << ' ' << c.data; }
  }
}

TEST(Terminal, AddsUpTheDayAndClearsIt) {
  Site at;
  const std::string first = Reference(Ask(at, "10", k1250)), second = Reference(Ask(at, "10", k300));
  Ask(at, "14", "000000010000");
  Ask(at, "1A", first + k1250 + "000000025000");
  Ask(at, "19", second);
  Ask(at, "11", k1250); // a pre-authorisation moves nothing until it is closed
  const Blocks blocks = Ask(at, "21", "");
  EXPECT_EQ(Codes(blocks), "53 32 22 #0");
  EXPECT_EQ(Of(blocks, "22", abisEFfin), "0001000000100000"
                                         "0001000000010000"
                                         "0002000000055000");
  EXPECT_EQ(Of(Ask(at, "21", ""), "22", abisEFfin), "0000000000000000"
                                                    "0000000000000000"
                                                    "0000000000000000");
  EXPECT_EQ(Codes(Ask(at, "1A", first + k1250)), "54 5X #1");
  EXPECT_NE(Reference(Ask(at, "10", k1250)), first) << "references go on after the end of day";
}

TEST(Terminal, KeepsWhatATillLost) {
  Site at;
  Module module(at);
  EXPECT_EQ(Codes(module.Ask("10", "000000001277")), "53 nothing");
  EXPECT_EQ(module.Ended(), SIGKILL);
  EXPECT_EQ(Of(Ask(at, "20", kLast), "60", abisTRamt), "000000001277");
  EXPECT_EQ(Codes(Ask(at, "1A", kLast + "000000001277")), "53 32 60 #0");
}

TEST(Terminal, RefusesWhatItCannotStore) {
  Site at;
  at.Put("simulator-1234.day.new/in_the_way", "");
  EXPECT_EQ(Of(Ask(at, "10", k300), "5X", abisEFecd), "96");
}

TEST(Terminal, HearsABreakWhileItWaitsForTheCard) {
  Site at("Card=60000");
  for (const char* amount : {"000000001200", "000000001273"}) { // for 73 nobody presents a card
    Module module(at);
    module.Block();
    module.Send("10", amount);
    module.Send("33");
    const Blocks blocks = module.Rest();
    EXPECT_EQ(Codes(blocks), "34 #1");
    EXPECT_EQ(Field(blocks[0], abisEFsbr), "0");
  }
}

TEST(Terminal, SaysThatABreakComesTooLate) {
  Site at;
  Module module(at);
  module.Block();
  // Request and break in one write, so that the break is there before the first block of the answer. With the
  // track in the request there is no card to wait for, and the payment can no longer be stopped.
  const std::string both = std::string("\x17\x3F\0", 3) + "10000000123431" + k300 +
                           "4000001234567899=25121011234567890123\x17" + std::string("\x17\x0E\0", 3) +
                           "33000000123400\x17";
  ASSERT_EQ(module.pipes.Write(both.data(), static_cast<int>(both.size())), static_cast<int>(both.size()));
  const Blocks blocks = module.Rest();
  EXPECT_EQ(Codes(blocks), "34 53 32 60 #0");
  EXPECT_EQ(Field(blocks[0], abisEFsbr), "1");
}

TEST(Terminal, ServesManyTillsAtOnce) {
  Site at;
  std::vector<std::thread> tills;
  for (int till = 0; till < 4; ++till) // two tills a terminal: their modules meet at the day's file
    tills.emplace_back([&at, till] {
      for (int i = 0; i < 5; ++i) Module(at, till % 2 ? "0000000001" : "0000000002").Ask("10", k300);
    });
  for (auto& till : tills) till.join();
  for (const char* id : {"0000000001", "0000000002"})
    EXPECT_EQ(Of(Module(at, id).Ask("21"), "22", abisEFfin).substr(0, 16), "0010000000300000");
}

} // namespace
