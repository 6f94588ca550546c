#include "MiscFunc.h"
#include "scratch.h"
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

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

TEST(MiscDigits, FindItem) {
  const char* at = "--ab--cd";
  size_t length = 8;
  const auto letter = [](char c) { return c >= 'a' && c <= 'z'; };
  for (int n : {3, 0, -1}) EXPECT_FALSE(FindItem(&at, &length, letter, n)) << n;
  EXPECT_TRUE(FindItem(&at, &length, letter, 2));
  EXPECT_EQ(std::string(at, length), "cd");
}

// ---- Checksums ----

namespace {

uint16_t BitByBit(const unsigned char* bytes, size_t length, uint16_t crc) { // no table, no shortcut
  for (; length; --length, ++bytes)
    for (int bit = 7; bit >= 0; --bit)
      crc = static_cast<uint16_t>((crc << 1 | (*bytes >> bit & 1)) ^ (crc & 0x8000 ? 0x1021 : 0));
  return crc;
}

} // namespace

TEST(MiscCrc, EqualsBitByBitForEveryLengthOffsetAndStart) {
  std::mt19937 random(7);
  std::vector<unsigned char> bytes(70000);
  for (auto& b : bytes) b = static_cast<unsigned char>(random());
  const auto check = [&](size_t from, size_t length) {
    const auto start = static_cast<uint16_t>(random());
    ASSERT_EQ(flatcrc16(&bytes[from], static_cast<uint16_t>(length), start),
              BitByBit(&bytes[from], length, start))
        << length;
  };
  for (size_t length = 0; length <= 600; ++length) check(length % 9, length);
  for (size_t length : {2000, 8191, 8192, 65535}) check(3, length);
  EXPECT_EQ(flatcrc16("123456789", 9, 0), 0xBEEF);
  EXPECT_EQ(flatcrc16("123456789\0", 11, 0), 0x31C3);
  EXPECT_EQ(flatcrc16(bytes.data(), static_cast<uint16_t>(65536), 0x1234), 0x1234);
  for (size_t i = 0; i < 256; ++i) {
    const unsigned char message[] = {static_cast<unsigned char>(i), 0, 0};
    EXPECT_EQ(musCrc16Tab[i], BitByBit(message, 3, 0));
  }
}

TEST(MiscCrc, OfAFile) {
  Scratch dir;
  const std::string text(20000, 'x'), name = dir.Put("f", text);
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const uint16_t sum = BitByBit(bytes, text.size(), 0);
  const std::string stored{static_cast<char>(sum >> 8), static_cast<char>(sum)};
  const char* path = name.c_str();
  EXPECT_EQ(truefilecrc16(path, 0), sum);
  EXPECT_EQ(truefilecrc16(path, 1), 0); // no sum in it yet
  EXPECT_EQ(truefilecrc16(path, 2), sum);
  EXPECT_EQ(dir.Get("f"), text + stored);
  EXPECT_EQ(truefilecrc16(path, 1), sum);
  dir.Put("f", text + "??");
  EXPECT_EQ(truefilecrc16(path, 1), 0);
  EXPECT_EQ(truefilecrc16(path, 3), sum);
  EXPECT_EQ(dir.Get("f"), text + stored);

  unsigned long limit = 9000;
  EXPECT_EQ(truefilecrc16len(path, 0, &limit), BitByBit(bytes, 9000, 0));
  EXPECT_EQ(truefilecrc16len(path, 3, &limit), BitByBit(bytes, 8998, 0));
  EXPECT_EQ(truefilecrc16len(path, 1, &limit), BitByBit(bytes, 8998, 0));
  limit = 1000000;
  EXPECT_EQ(truefilecrc16len(path, 0, &limit), truefilecrc16(path, 0));

  for (int mode : {-1, 0, 1, 2, 3, 4}) {
    EXPECT_EQ(truefilecrc16((dir / "missing").c_str(), mode) + truefilecrc16((dir / "").c_str(), mode), 0);
    EXPECT_EQ(truefilecrc16(dir.Put("short", mode & 1 ? "ab" : "").c_str(), mode), 0);
    EXPECT_EQ(dir.Get("short"), mode & 1 ? "ab" : "");
  }
}

TEST(MiscBytes, OrderParityAndCopy) {
  unsigned char odd[] = {9, 1, 2, 3, 4}; // words begin at an odd address
  EXPECT_EQ(truedword(odd + 1, nullptr, oMemoryCurrent), 0x04030201u);
  EXPECT_EQ(truedword(odd + 1, nullptr, MemoryIBM), 0x01020304u);
  EXPECT_EQ(trueword(odd + 1, odd + 3, MemoryMotorola), 0x0304u);
  EXPECT_EQ(truebyte(odd, odd + 4, MemoryMotorola), 9);
  EXPECT_EQ(memcmp(odd, "\1\1\2\2\1", 5), 0);
  EXPECT_TRUE(truetype(odd, "\1\2\3\4", 4, MemoryMotorola) && odd[0] == 4);
  EXPECT_FALSE(truetype(odd, "abc", 3, MemoryMotorola));
  EXPECT_EQ(truememory(odd + 1, odd, 4, MemoryIBM), odd + 1); // up by one, from the end
  EXPECT_EQ(memcmp(odd, "aabc\1", 5), 0);
  EXPECT_TRUE(parityok("\x01\x02\x07", 3, true) && parityok("\x03\xFF", 2, false) && parityok("", 0, true));
  EXPECT_FALSE(parityok("\x03\x01", 2, false) || parityok("\x03\x01", 2, true));
  char out[] = "...";
  EXPECT_EQ(carememcpy(out, 2, "abc", 3) + carememcpy(out, 3, "Z", 1) + carememcpy(nullptr, 9, "x", 1), 3u);
  EXPECT_STREQ(out, "Zb.");
}

// ---- Masks ----

TEST(MiscMask, Wildcards) {
  const struct {
    const char *text, *mask;
    size_t matched, used;
    bool whole;
  } cases[] = {{"base.upd", "*.upd", 8, 5, true},
               {"a.b.upd", "*.upd", 2, 2, false},
               {"abc", "a*", 3, 2, true},
               {"a", "a*", 1, 1, true},
               {"a", "a***", 1, 1, true},
               {"", "*", 0, 0, true},
               {"", "", 0, 0, true},
               {"a", "", 0, 0, false},
               {"abc", "a?c", 3, 3, true},
               {"ab", "a?c", 2, 2, false},
               {"ab", "**b", 2, 3, true},
               {"abc", "*?c", 1, 2, false},
               {"axyz", "a*b", 4, 2, false},
               {"\xC0.upd", "?.upd", 5, 5, true},
               {nullptr, "*", 0, 0, true},
               {"a", nullptr, 0, 0, false}};
  for (const auto& c : cases) {
    size_t used = 99;
    EXPECT_EQ(strlenmask(c.text, c.mask, &used), c.matched) << c.text << " " << c.mask;
    EXPECT_EQ(used, c.used) << c.text << " " << c.mask;
    EXPECT_EQ(strmask(c.text, c.mask), c.whole) << c.text << " " << c.mask;
  }
}

TEST(MiscMask, CharactersOfEachClass) {
  const struct {
    const char* mask;
    std::string fits;
  } cases[] = {{"l", "azAZ"},        {">L", "AZ"},
               {"<a", "az09"},       {"0", "09"},
               {"#", "09+-"},        {"<h", "a09"},
               {"H", "aA09"},        {"U", "+-!~"},
               {"P", "azAZ09+-!~ "}, {"*", "azAZ09+-!~ \n\xE0\x7F"},
               {"^l", "\n\xE0\x7F"}};
  for (const auto& c : cases)
    for (char text : std::string("azAZ09+-!~ \n\xE0\x7F"))
      EXPECT_EQ(cMaskTestChar(text, oMaskParser(c.mask, 0, nullptr)), c.fits.find(text) != std::string::npos)
          << c.mask << " " << text;
  char literal = '?';
  EXPECT_EQ(oMaskParser(">A<0-\\0", 1, &literal), eMCNumber | eMCRequire); // a prefix holds for one position
  EXPECT_EQ(literal, 0);
  EXPECT_EQ(oMaskParser(">A<0-\\0", 3, &literal), eMCLiteral);
  EXPECT_EQ(literal, '0');
  EXPECT_EQ(oMaskParser(">A<0-\\0", 4, &literal), eMCNone);
}

TEST(MiscMask, InputTexts) {
  const struct {
    const char *mask, *text;
    char fill; // 0: none
    bool keep;
    const char* out;
    bool match;
  } cases[] = {{"00", "1x", '0', false, "10", false},
               {"00", "1x", 0, false, "1", false},
               {"00", "12", '0', false, "12", true},
               {"00", "1", '0', false, "1", false},
               {"09", "1", '0', false, "1", true},
               {"09", "1x", '0', false, "10", true},
               {"00.00", "12.34", 0, false, "1234", true},
               {"00.00", "12.34", 0, true, "12.34", true},
               {"00.00", "12,34", 0, true, "12.34", false},
               {"0\\0D", "10x", 0, false, "1x", true},
               {"00", "1234", 0, false, "12", true},
               {"0/", "1", 0, true, "1", true},
               {"0>", "12", 0, true, "1", true},
               {"0\\", "12", 0, true, "1", true},
               {"", "x", 0, true, "", true}};
  for (const auto& c : cases) {
    std::vector<char> text(c.text, c.text + strlen(c.text)); // not terminated: the length alone ends it
    const std::vector<char> mask(c.mask, c.mask + strlen(c.mask) + 1); // a sanitizer sees both ends
    size_t length = text.size();
    EXPECT_EQ(cMaskTestString(mask.data(), text.data(), &length, c.fill ? &c.fill : nullptr, c.keep), c.match)
        << c.mask << " " << c.text;
    EXPECT_EQ(std::string(text.data(), length), c.out) << c.mask << " " << c.text;
    EXPECT_TRUE(length == text.size() || text[length] == 0) << c.mask << " " << c.text;
  }
}

// ---- Record log ----

TEST(MiscLog, FormatAndRoundTrip) {
  Scratch dir;
  const std::string name = dir / "log";
  const char* path = name.c_str();
  ASSERT_EQ(logAppend(path, "ab", 2, 0x0102, flatcrc16, true), 1);
  const std::string record("\0\10abab\0\10", 8); // two bytes are their own checksum
  const uint16_t sum = BitByBit(reinterpret_cast<const unsigned char*>(record.data()), 8, 0);
  EXPECT_EQ(dir.Get("log"),
            record + std::string("\0\1\1\2", 4) + static_cast<char>(sum >> 8) + static_cast<char>(sum));
  ASSERT_EQ(logAppend(path, nullptr, 0, 7, flatcrc16, true), 1); // another id takes the log over
  ASSERT_EQ(logAppend(path, std::string(65529, 'z').data(), 65529, 7, flatcrc16, true), 1);
  EXPECT_EQ(logCheck(path, 7, flatcrc16), 3);
  EXPECT_EQ(logCheck(path, 0x0102, flatcrc16), 0);

  std::string out(65529, '?');
  EXPECT_EQ(logRead(path, out.data(), 2, 0, 7, flatcrc16, true), 2);
  EXPECT_EQ(out.substr(0, 3), "ab?");
  EXPECT_EQ(logRead(path, out.data(), 1, 0, 7, flatcrc16, true), 0);
  EXPECT_EQ(logRead(path, out.data(), 65529, 2, 7, flatcrc16, true), 65529);
  EXPECT_EQ(out, std::string(65529, 'z'));
  EXPECT_EQ(logTest(path, 2, 7, flatcrc16, true), 65529);
  EXPECT_EQ(logTest(path, 3, 7, flatcrc16, true), 0);
  EXPECT_EQ(logTest(path, 0, 7, flatcrc16, false), 4); // without record checksums they are data
  EXPECT_EQ(logWork(path, nullptr, 0, 0, 7, 0, flatcrc16, true), 0);

  const std::string before = dir.Get("log");
  EXPECT_EQ(logAppend(path, out.data(), 65530, 7, flatcrc16, true), 0);
  EXPECT_EQ(logAppend(path, nullptr, 1, 7, flatcrc16, true), 0);
  EXPECT_EQ(dir.Get("log"), before);
  EXPECT_EQ(logCheck(dir.Put("empty", "").c_str(), 1, flatcrc16), 1);
  EXPECT_EQ(logTest((dir / "empty").c_str(), 0, 1, flatcrc16, true), 0);
  EXPECT_EQ(logCheck((dir / "missing").c_str(), 1, flatcrc16), 0);
  const std::string full = dir.Put("full", std::string("\0\4\0\4\xFF\xFF\0\1\0\0", 10));
  EXPECT_EQ(logAppend(full.c_str(), "", 0, 1, nullptr, false), 0);
}

TEST(MiscLog, DamageIsFound) {
  Scratch dir;
  const std::string name = dir / "log";
  const char* path = name.c_str();
  for (const char* text : {"first", "", "third"})
    ASSERT_EQ(logAppend(path, text, strlen(text), 7, flatcrc16, true), 1);
  const std::string good = dir.Get("log");
  for (size_t i = 0; i < good.size(); ++i)
    for (int change : {0x01, 0x80, 0xFF}) { // every byte of the file counts
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] ^ change);
      dir.Put("log", bad);
      EXPECT_EQ(logCheck(path, 7, flatcrc16), 0) << i;
    }
  for (size_t size = 1; size < good.size(); ++size) {
    dir.Put("log", good.substr(0, size));
    EXPECT_EQ(logCheck(path, 7, flatcrc16), 0) << size;
    char out[9]; // whatever is found, it stays in the file and in here
    logRead(path, out, sizeof out, 2, 7, flatcrc16, true);
  }
  std::string bad = good;
  bad[3] ^= 1; // a byte of the data
  dir.Put("log", bad);
  EXPECT_EQ(logTest(path, 0, 7, flatcrc16, true), 0);
  EXPECT_EQ(logTest(path, 2, 7, flatcrc16, true), 5); // the other records can still be read
  for (char length : {0, 3, 4, 5, 6}) { // none, too short (also for a record checksum), beyond the end
    dir.Put("log", {0, length, 0, length, 0, 1, 0, 7, 0, 0});
    EXPECT_EQ(logTest(path, 0, 7, flatcrc16, true), 0) << int{length};
    EXPECT_EQ(logWork(path, nullptr, 0, 0, 7, 2, nullptr, true), 0) << int{length};
  }
}
