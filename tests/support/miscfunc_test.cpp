#include "MiscFunc.h"
#include <cstring>
#include <gtest/gtest.h>

TEST(MiscDigits, IsTo) {
  const struct {
    char c;
    int base, digit; // -1: rejected
  } cases[] = {{'A', 16, 10}, {'f', 16, 15}, {'g', 16, -1},  {'A', 10, -1},   {'7', 0, 7},   {'a', 0, -1},
               {'7', 7, -1},  {'0', 1, 0},   {'1', 1, -1},   {'9', 11, 9},    {'A', 11, 10}, {'z', 36, 35},
               {'9', -1, 9},  {'a', -1, -1}, {'@', 300, -1}, {'\xC0', 36, -1}};
  for (const auto& c : cases) {
    int digit = -1;
    EXPECT_EQ(IsTo(c.c, c.base, &digit), c.digit >= 0) << c.c << c.base;
    EXPECT_EQ(digit, c.digit) << c.c << c.base;
    EXPECT_EQ(IsTo(c.c, c.base, nullptr), c.digit >= 0);
  }
}

TEST(MiscDigits, GetNumbers) {
  const struct {
    const char* text;
    int base;
    uint64_t value;
    char found, before;
  } cases[] = {{"", 10, 0, 0, 0},
               {"abc", 10, 0, 0, 0},
               {"12", 10, 12, 1, 0},
               {"-12x3", 10, 12, 1, '-'},
               {"  0F", 16, 15, 1, ' '},
               {"x0", 10, 0, 1, 'x'},
               {"18446744073709551617", 10, 1, 1, 0}};
  for (const auto& c : cases) {
    char found = 9, before = 9;
    const auto* text = reinterpret_cast<const unsigned char*>(c.text);
    EXPECT_EQ(GetNumbers(text, strlen(c.text), IsTo, c.base, &found, &before), c.value) << c.text;
    EXPECT_TRUE(found == c.found && before == c.before) << c.text;
    EXPECT_EQ(GetNumbers(text, strlen(c.text), IsTo, c.base, nullptr, nullptr), c.value);
  }
  EXPECT_EQ(GetNumbers(reinterpret_cast<const unsigned char*>("129"), 2, IsTo, 10, nullptr, nullptr), 12u);
}
