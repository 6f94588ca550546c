#include "MiscFunc.h"
#include "scratch.h"
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

TEST(MiscDigits, IsTo) {
  typedef std::tuple<char, int, int> Row; // the digit -1: rejected
  for (const auto& [c, base, wanted] :
       {Row{'A', 16, 10}, Row{'f', 16, 15}, Row{'g', 16, -1}, Row{'A', 10, -1}, Row{'a', 0, -1},
        Row{'7', 7, -1}, Row{'0', 1, 0}, Row{'9', 11, 9}, Row{'z', 36, 35}, Row{'9', -1, 9},
        Row{'@', 300, -1}, Row{'\xC0', 36, -1}}) {
    int digit = -1;
    EXPECT_EQ(IsTo(c, base, &digit), wanted >= 0) << c << base;
    EXPECT_EQ(digit, wanted) << c << base;
  }
}

TEST(MiscDigits, GetNumbers) {
  typedef std::tuple<std::string, int, uint64_t, char, char> Row;
  for (const auto& [text, base, value, any, sign] :
       {Row{"", 10, 0, 0, 0}, Row{"abc", 10, 0, 0, 0}, Row{"-12x3", 10, 12, 1, '-'},
        Row{"  0F", 16, 15, 1, ' '}, Row{"x0", 10, 0, 1, 'x'}, Row{"18446744073709551617", 10, 1, 1, 0}}) {
    char found = 9, before = 9;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    EXPECT_EQ(GetNumbers(bytes, text.size(), IsTo, base, &found, &before), value) << text;
    EXPECT_TRUE(found == any && before == sign) << text;
  }
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
  for (uint16_t length = 0; length < 65000;
       length = static_cast<uint16_t>(length < 600 ? length + 1 : length * 2 + 1)) {
    const auto start = static_cast<uint16_t>(random());
    const unsigned char* from = &bytes[length % 9];
    ASSERT_EQ(flatcrc16(from, length, start), BitByBit(from, length, start)) << length;
  }
  EXPECT_EQ(flatcrc16("123456789\0", 11, 0), 0x31C3);
  EXPECT_EQ(flatcrc16(bytes.data(), static_cast<uint16_t>(65536), 0x1234), 0x1234);
  for (int i = 0; i < 256; ++i) {
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
  EXPECT_EQ(truefilecrc16(path, 3), sum);
  EXPECT_EQ(dir.Get("f"), text + stored);

  unsigned long limit = 9000;
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
  typedef std::tuple<const char*, const char*, size_t, size_t, bool> Row;
  for (const auto& [text, mask, matched, eaten, whole] :
       {Row{"base.upd", "*.upd", 8, 5, true}, Row{"a.b.upd", "*.upd", 2, 2, false},
        Row{"abc", "a*", 3, 2, true}, Row{"a", "a*", 1, 1, true}, Row{"a", "a***", 1, 1, true},
        Row{"", "*", 0, 0, true}, Row{"a", "", 0, 0, false}, Row{"abc", "a?c", 3, 3, true},
        Row{"ab", "a?c", 2, 2, false}, Row{"ab", "**b", 2, 3, true}, Row{"abc", "*?c", 1, 2, false},
        Row{"axyz", "a*b", 4, 2, false}, Row{"\xC0.upd", "?.upd", 5, 5, true}, Row{nullptr, "*", 0, 0, true},
        Row{"a", nullptr, 0, 0, false}}) {
    size_t used = 99;
    EXPECT_EQ(strlenmask(text, mask, &used), matched) << text << " " << mask;
    EXPECT_EQ(used, eaten) << text << " " << mask;
    EXPECT_EQ(strmask(text, mask), whole) << text << " " << mask;
  }
}

TEST(MiscMask, CharactersOfEachClass) {
  typedef std::tuple<const char*, std::string> Row;
  for (const auto& [mask, fits] :
       {Row{"l", "azAZ"}, Row{">L", "AZ"}, Row{"<a", "az09"}, Row{"0", "09"}, Row{"#", "09+-"},
        Row{"<h", "a09"}, Row{"H", "aA09"}, Row{"U", "+-!~"}, Row{"P", "azAZ09+-!~ "},
        Row{"*", "azAZ09+-!~ \n\xE0\x7F"}, Row{"^l", "\n\xE0\x7F"}})
    for (char text : std::string("azAZ09+-!~ \n\xE0\x7F"))
      EXPECT_EQ(cMaskTestChar(text, oMaskParser(mask, 0, nullptr)), fits.find(text) != std::string::npos)
          << mask << " " << text;
  char literal = '?';
  EXPECT_EQ(oMaskParser(">A<0-\\0", 1, &literal), eMCNumber | eMCRequire); // a prefix holds for one position
  EXPECT_EQ(oMaskParser(">A<0-\\0", 3, &literal), eMCLiteral);
  EXPECT_EQ(literal, '0');
}

TEST(MiscMask, InputTexts) {
  // fill: 0 for none
  typedef std::tuple<const char*, const char*, char, bool, const char*, bool> Row;
  for (const auto& [wanted, given, fill, keep, out, match] :
       {Row{"00", "1x", '0', false, "10", false}, Row{"00", "1x", 0, false, "1", false},
        Row{"00", "12", '0', false, "12", true}, Row{"00", "1", '0', false, "1", false},
        Row{"09", "1", '0', false, "1", true}, Row{"09", "1x", '0', false, "10", true},
        Row{"00.00", "12.34", 0, false, "1234", true}, Row{"00.00", "12.34", 0, true, "12.34", true},
        Row{"00.00", "12,34", 0, true, "12.34", false}, Row{"0\\0D", "10x", 0, false, "1x", true},
        Row{"00", "1234", 0, false, "12", true}, Row{"0/", "1", 0, true, "1", true},
        Row{"0>", "12", 0, true, "1", true}, Row{"0\\", "12", 0, true, "1", true},
        Row{"", "x", 0, true, "", true}}) {
    std::vector<char> text(given, given + strlen(given)); // not terminated: the length alone ends it
    const std::vector<char> mask(wanted, wanted + strlen(wanted) + 1); // a sanitizer sees both ends
    size_t length = text.size();
    SCOPED_TRACE(std::string(wanted) + " " + given);
    EXPECT_EQ(cMaskTestString(mask.data(), text.data(), &length, fill ? &fill : nullptr, keep), match);
    EXPECT_EQ(std::string(text.data(), length), out);
    EXPECT_TRUE(length == text.size() || text[length] == 0);
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
  EXPECT_EQ(logTest(path, 3, 7, flatcrc16, true), 0);
  EXPECT_EQ(logTest(path, 0, 7, flatcrc16, false), 4); // without record checksums they are data
  const std::string before = dir.Get("log");
  EXPECT_EQ(logAppend(path, out.data(), 65530, 7, flatcrc16, true) +
                logAppend(path, nullptr, 1, 7, flatcrc16, true),
            0);
  EXPECT_EQ(dir.Get("log"), before);
  EXPECT_EQ(logCheck(dir.Put("empty", "").c_str(), 1, flatcrc16), 1);
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
      dir.Put("log", good.substr(0, i) + static_cast<char>(good[i] ^ change) + good.substr(i + 1));
      EXPECT_EQ(logCheck(path, 7, flatcrc16), 0) << i;
    }
  for (size_t size = 1; size < good.size(); ++size) {
    dir.Put("log", good.substr(0, size));
    EXPECT_EQ(logCheck(path, 7, flatcrc16), 0) << size;
    char out[9]; // whatever is found, it stays in the file and in here
    logRead(path, out, sizeof out, 2, 7, flatcrc16, true);
  }
  dir.Put("log", good.substr(0, 3) + "?" + good.substr(4)); // a byte of the data
  EXPECT_EQ(logTest(path, 0, 7, flatcrc16, true), 0);
  EXPECT_EQ(logTest(path, 2, 7, flatcrc16, true), 5); // the other records can still be read
  for (char length : {0, 3, 4, 5, 6}) { // none, too short (also for a record checksum), beyond the end
    dir.Put("log", {0, length, 0, length, 0, 1, 0, 7, 0, 0});
    EXPECT_EQ(logTest(path, 0, 7, flatcrc16, true), 0) << int{length};
    EXPECT_EQ(logWork(path, nullptr, 0, 0, 7, 2, nullptr, true), 0) << int{length};
  }
}
