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

// The frame of a block of less than 256 bytes.
std::string Framed(const std::string& block) {
  return std::string("\x17") + static_cast<char>(block.size()) + '\0' + block + "\x17";
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
  const std::string& response = blocks[blocks.size() - 2];
  const std::pair<const char*, const char*> expected[] = {
      {abisEFcod, "0"},
      {abisTRamt, "000000125000"},
      {abisTRccd, "643"},
      {abisEFrcd, "00"},
      {abisEFctp, "VISA"},
      {abisTRpex, "4000001234567899=2512"},
      {abisEFmsg, "ОДОБРЕНО"_1251},
  };
  for (auto [tag, value] : expected) EXPECT_EQ(Field(response, tag), value) << tag;
  EXPECT_EQ(Field(response, abisTRacd).size(), 6u);
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
  const std::string refund = Reference(Ask(at, "14", k300)), hotel = Reference(Ask(at, "11", k1250));
  const struct {
    std::string work, data, codes;
  } cases[] = {
      {"12", k1250, "52 53 32 60 #0"},
      {"13", k300, "53 32 60 #0"},
      {"16", k300 + "ABC123", "32 60 #0"},
      {"1L", kLast, "53 32 60 #0"},
      {"1B", refund + k300, "53 32 60 #0"},
      {"1A", refund + k300, "5X #1"},
      {"81", k300 + "123456" + hotel + "VISA", "53 32 60 #0"},
      {"81", k300 + "123456" + hotel + "VISA", "5X #1"},
      {"20", hotel, "32 60 #0"},
      {"20", "999999999999", "54 5X #1"},
      {"26", hotel, "50 #0"},
      {"26", "7", "5X #1"},
      {"23", "", "32 24 #0"},
      {"25", "1", "32 50 #0"},
      {"30", "", "31 #0"},
      {"33", "", "34 #1"},
      {"37", "1MV01", "38 #0"},
      {"40", "", "5X #1"},
      {"10", "12", "5X #1"},
      {"10", k300 + "card", "5X #1"},
  };
  for (const auto& c : cases) EXPECT_EQ(Codes(Ask(at, c.work, c.data)), c.codes) << c.work << ' ' << c.data;
  EXPECT_EQ(Of(Ask(at, "37", "1MV01"), "38", abisEFdtd), "4111111111111111=3012101");
  EXPECT_EQ(Of(Ask(at, "16", k300 + "ABC123"), "60", abisTRacd), "ABC123");
}

TEST(Terminal, ReversesASaleOfAnEarlierRun) {
  Site at;
  const std::string ref = Reference(Ask(at, "10", k1250));
  ASSERT_EQ(ref.size(), 12u);
  EXPECT_EQ(Of(Ask(at, "1A", ref + k300), "5X", abisEFecd), "13") << "not the amount of the sale";
  EXPECT_EQ(Codes(Ask(at, "1A", "123456789012" + k1250)), "54 5X #1");
  EXPECT_EQ(Of(Ask(at, "1A", ref + k1250 + k300), "60", abisTRamt), k300) << "a part";
  EXPECT_EQ(Codes(Ask(at, "1A", ref + k1250 + "000000000105")), "53 32 60 #1")
      << "the part chooses the ending";
  EXPECT_EQ(Of(Ask(at, "19", ref), "5X", abisEFecd), "12") << "reversed in part: no void";
  EXPECT_EQ(Of(Ask(at, "1A", ref + k1250), "60", abisTRamt), "000000095000") << "the rest";
  EXPECT_EQ(Of(Ask(at, "1A", ref + k1250), "5X", abisEFecd), "12") << "nothing is left";
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
  module.Block();
  module.Send("10", "000000001277");
  EXPECT_EQ(module.Ended(), SIGKILL);
  EXPECT_EQ(Codes(module.Rest(0)), "53 nothing");
  EXPECT_EQ(Of(Ask(at, "20", kLast), "60", abisTRamt), "000000001277");
  EXPECT_EQ(Codes(Ask(at, "1A", kLast + "000000001277")), "53 32 60 #0");
}

TEST(Terminal, RefusesWhatItCannotStore) {
  Site at;
  at.Put("simulator-1234.day.new/in_the_way", "");
  EXPECT_EQ(Of(Ask(at, "10", k300), "5X", abisEFecd), "96");
  std::filesystem::remove_all(at / "simulator-1234.day.new");
  EXPECT_EQ(Codes(Ask(at, "10", k300)), "53 32 60 #0");
}

TEST(Terminal, HearsABreakWhileItWaitsForTheCard) {
  Site at("Card=60000");
  Module module(at);
  module.Block();
  module.Send("10", k1250);
  module.Send("33");
  const Blocks blocks = module.Rest();
  EXPECT_EQ(Codes(blocks), "34 #1");
  EXPECT_EQ(Field(blocks[0], abisEFsbr), "0");

  Module other(at);
  other.Block();
  other.Send("10", "000000001273"); // nobody presents a card
  other.Send("33");
  EXPECT_EQ(Codes(other.Rest()), "34 #1");
}

TEST(Terminal, SaysThatABreakComesTooLate) {
  Site at;
  Module module(at);
  module.Block();
  // Request and break in one write, so that the break is there before the first block of the answer. With the
  // track in the request there is no card to wait for, and the payment can no longer be stopped.
  const std::string sale = "10000000123431" + k300 + "4000001234567899=25121011234567890123",
                    stop = "33000000123400";
  const std::string both = Framed(sale) + Framed(stop);
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
