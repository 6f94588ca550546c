// Amounts: what is one, what is none, and that nothing is lost between text and kopecks.
#include <gtest/gtest.h>

#include "zat_client.h"

using zat::Amount;
using zat::AmountFault;

namespace {

static_assert(Amount{1250, 50}.inKopecks() == 125050 && Amount().inKopecks() == 0);
static_assert(!std::is_constructible_v<Amount, double, int> && !std::is_convertible_v<int, Amount>);

TEST(Amount, TextAndBack) {
  const std::pair<const char*, Amount> good[] = {
      {"1250", {1250, 0}},
      {"1250.00", {1250, 0}},
      {"1250.5", {1250, 50}},
      {"1250,05", {1250, 5}},
      {"0.01", {0, 1}},
      {"0.10", {0, 10}},
      {"000000000000000.29", {0, 29}},
      {"0", {}},
      {"0,00", {}},
      {"9999999999.99", {9999999999, 99}},
  };
  for (const auto& [text, want] : good) {
    AmountFault fault = AmountFault::Decimals;
    EXPECT_EQ(Amount::parse(text, &fault), want) << text;
    EXPECT_EQ(fault, AmountFault::None) << text;
    EXPECT_EQ(Amount::parse(want.text()), want) << text;
  }
  EXPECT_EQ((Amount{1250, 5}.text()), "1250.05");
}

TEST(Amount, WhatIsNone) {
  const std::pair<AmountFault, std::vector<const char*>> bad[] = {
      {AmountFault::TooLarge, {"10000000000", "99999999999999999999999"}},
      {AmountFault::Decimals, {"1.234"}},
      {AmountFault::Negative, {"-5"}},
      {AmountFault::NotANumber, {"", "1250.", ".50", "1 250", "1,250.00", "+5", "1e3", "5\n"}},
  };
  for (const auto& [fault, texts] : bad)
    for (const char* text : texts) {
      AmountFault found = AmountFault::None;
      EXPECT_FALSE(Amount::parse(text, &found)) << text;
      EXPECT_EQ(found, fault) << text;
    }
  for (auto [roubles, kopecks] : {std::pair<int64_t, int>{-1, 0}, {0, -1}, {0, 100}, {10000000000, 0}})
    EXPECT_THROW((Amount{roubles, kopecks}), std::out_of_range) << roubles << " " << kopecks;
  EXPECT_THROW(Amount::ofKopecks(Amount::kMaxKopecks + 1), std::out_of_range);
  EXPECT_THROW(Amount::ofKopecks(-1), std::out_of_range);
}

} // namespace
