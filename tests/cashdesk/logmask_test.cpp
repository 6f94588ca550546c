// Card data in log copies.
#include <gtest/gtest.h>

#include "logmask.h"
#include "till.h"

namespace {

std::string Masked(const std::string& message) {
  zat::WipedText copy(reinterpret_cast<const unsigned char*>(message.data()), message.size());
  zat::MaskForLog(copy);
  return copy.oText;
}

TEST(LogMask, HidesCardDataWhereItCanStandAndNothingElse) {
  const std::string track = "4000001234567899=2512101123", hidden = "************7899=**********";
  const std::string fixed = "1000000125000643"
                            "20261121120000"
                            "000000000000042"
                            "REF000000001"
                            "00";
  ASSERT_EQ(fixed.size(), 59u);
  struct {
    std::string message, expected;
  } const cases[] = {
      {Message("10", "000000125000" + track), Message("10", "000000125000" + hidden)},
      {Message("1N", "000000125000" + track), Message("1N", "000000125000" + hidden)},
      {Message("1O", "000000125000" + track), Message("1O", "000000125000" + hidden)},
      {Message("16", "000000125000ABCDEF" + track), Message("16", "000000125000ABCDEF" + hidden)},
      {Message("10", "000000125000"), Message("10", "000000125000")},
      {Message("1A", "123456789012000000125000"), Message("1A", "123456789012000000125000")},
      {Message("60", fixed + "A1\x1B" + "4000001234567899=2512\x1BVISA\x1BOK\x1B"),
       Message("60", fixed + "A1\x1B" + "************7899=****\x1BVISA\x1BOK\x1B")},
      {Message("60", fixed + "\x1B" + "4000001234567899"),
       Message("60", fixed + "\x1B" + "************7899")},
      {Message("60", fixed), Message("60", fixed)},
      {Message("38", "1CARDMV014000001234567899"), Message("38", "1CARDMV01****************")},
      {Message("38", "1CARDMV014000001234567899=2512"), Message("38", "1CARDMV01************7899=****")},
      {Message("38", "1CARDMV01123=2512 x"), Message("38", "1CARDMV01123=**** x")},
      // In text fields by the digits themselves, in groups, with an expiry date beside; elsewhere not.
      {Message("38", "1CARD4000001234567899"), Message("38", "1CARD************7899")},
      {Message("32", "1Card 4000 0012 3456 7899 EXP 12/25 21/11/26"),
       Message("32", "1Card **** **** **** 7899 EXP **/** 21/11/26")},
      {Message("20", "4000001234567899"), Message("20", "************7899")},
      {Message("37", "4000001234567899"),
       Message("37", "************7899")}, // begins in fields that are too short
      {Message("23", "400000123456789900000000"), Message("23", "400000123456789900000000")},
      {Message("36", "00" + track + "\x1B"), Message("36", "00" + hidden + "\x1B")},
      {Message("9Z", "4000001234567898 20261121133003 000000000000018"),
       Message("9Z", "4000001234567898 20261121133003 000000000000018")},
      {"short", "short"},
  };
  for (const auto& c : cases) EXPECT_EQ(Masked(c.message), c.expected);
}

TEST(LogMask, WipesEveryByteItHad) {
  std::string text(100, 'x');
  const char* bytes = text.data();
  zat::WipeText(text);
  EXPECT_TRUE(text.empty());
  for (size_t i = 0; i < 100; ++i) ASSERT_EQ(bytes[i], 0) << i;
}

} // namespace
