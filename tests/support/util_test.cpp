#include "uni_time.h"
#include "util.h"
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

namespace {

constexpr char kRaw[] = ";1234567890123456=25121011234567890?";
constexpr char kNormal[] = "1234567890123456=25121011234567890";

tString Pad(const char* source, size_t width, bool left) {
  tString out = "<";
  const size_t length = AppendStrPad(out, source, width, '.', left);
  EXPECT_EQ(length, out.size());
  return out;
}

} // namespace

TEST(Track2, Normalised) {
  const struct {
    tString raw;
    const char* wanted; // null: refused and left alone
  } rows[] = {
      {kRaw, kNormal},
      {tString(kRaw) + "7", kNormal},  // with its check character
      {tString(kRaw) + "77", nullptr}, // only one of them
      {"B1234567890123456D2512101F", "1234567890123456=2512101"},
      {"B1234567890123456D2512101FF", nullptr}, // the last F is the sentinel, and the other no digit
      {"B1234567890123456D2512101Fx", "1234567890123456=2512101"},
      {"B1234567890123456=2512101F", nullptr}, // '=' does not separate this form
      {";1234567890123456D2512101?", "1234567890123456=2512101"},
      {"1234567890123456D2512101", "1234567890123456=2512101"},
      {"12345678=9", "12345678=9"},
      {"1234567=8", nullptr},  // nine characters
      {"1234567890", nullptr}, // no separator
      {"=123456789", "=123456789"},
      {"123=456=7890", nullptr},
      {"123D456=7890", nullptr},
      {"1234567890123456=2512101A", nullptr},
      {"1234567890123456=2512 01", nullptr},
      {";1234567890123456=2512101", nullptr}, // no end sentinel
      {";1234567890=?12?", nullptr},          // one inside
      {tString("12345=6789\0", 11), nullptr},
      {"\xB2"
       "2345=67890",
       nullptr}, // a digit in some locale
      {"", nullptr},
  };
  for (const auto& row : rows) {
    tString track = row.raw;
    EXPECT_EQ(ShrinkTrack2(track), row.wanted ? 0 : -1) << row.raw;
    EXPECT_EQ(track, row.wanted ? row.wanted : row.raw);
  }
}

TEST(Track2, CutUp) {
  const struct {
    const char *raw, *pan, *expiry, *service, *rest, *kept;
    bool whole; // PAN, expiry and service code are all there
  } rows[] = {
      {"4000001234567899=2512101123", "4000001234567899", "2512", "101", "123", "4000001234567899=2512101XXX",
       true},
      {";4000001234567899=2512101123?", "4000001234567899", "2512", "101", "123",
       "4000001234567899=2512101XXX", true},
      {"4000001234567899=2512101", "4000001234567899", "2512", "101", "", "4000001234567899=2512101", true},
      {"4000001234567899=251210", "4000001234567899", "2512", "", "", "4000001234567899=251210", false},
      {"4000001234567899=251", "4000001234567899", "", "", "", "4000001234567899=251", false},
      {"4000001234567899=", "4000001234567899", "", "", "", "4000001234567899=", false},
      {"=4000001234567899", nullptr, nullptr, nullptr, nullptr, "=4000001234567899", false},
      {"4000", nullptr, nullptr, nullptr, nullptr, "4000", false},
  };
  for (const auto& row : rows) {
    tString track = row.raw, pan = "p", expiry = "e", service = "s", rest = "r";
    EXPECT_EQ(PortionTrack2opt(track, pan, expiry, service, rest), row.pan ? 0 : -1) << row.raw;
    EXPECT_EQ(track, row.kept);
    const tString wanted[] = {row.pan ? row.pan : "p", row.pan ? row.expiry : "e",
                              row.pan ? row.service : "s", row.pan ? row.rest : "r"};
    EXPECT_EQ(pan + "|" + expiry + "|" + service + "|" + rest,
              wanted[0] + "|" + wanted[1] + "|" + wanted[2] + "|" + wanted[3]);

    track = row.raw, pan = "p", expiry = "e", service = "s";
    EXPECT_EQ(PortionTrack2(track, &pan, &expiry, &service), row.whole ? 0 : -1) << row.raw;
    EXPECT_EQ(pan + expiry + service, row.whole ? wanted[0] + wanted[1] + wanted[2] : "pes");
    EXPECT_EQ(track, row.kept) << "masked in any case";
    track = row.raw;
    EXPECT_EQ(PortionTrack2(track, nullptr, nullptr, nullptr), row.whole ? 0 : -1);
  }
}

TEST(Masks, HideAllButWhatMayBeSeen) {
  const struct {
    const char* given;
    int keep;
    const char *pan, *pex; // by MaskPAN and MaskPEX
  } rows[] = {
      {"1234567890123456", 4, "************3456", "************3456"},
      {"1234567890123456", 16, "1234567890123456", "1234567890123456"},
      {"1234567890123456", 0, "****************", "****************"},
      {"1234567890123456", -1, "****************", "****************"},
      {"12a4", 2, "**a4", "**a4"},
      {"", 4, "", ""},
      {"1234567890123456=2512101", 4, "********************2101", "************3456=*******"},
      {"12=34=5", 4, "***34=5", "12=****"},
      {"=34", 4, "=34", "=**"},
  };
  for (const auto& row : rows) {
    tString text = row.given;
    EXPECT_EQ(MaskPAN(text, row.keep, '*'), text == row.pan ? 0 : 1) << row.given;
    EXPECT_EQ(text, row.pan);
    text = row.given;
    MaskPEX(text, row.keep, '*');
    EXPECT_EQ(text, row.pex);
  }
}

TEST(Masks, Digits) {
  const struct {
    int from, len, masked;
    const char* text;
  } rows[] = {{0, -1, 6, "**a*.*:**"},      {1, 3, 2, "1*a*.4:56"},  {7, 100, 2, "12a3.4:**"},
              {9, -1, 0, "12a3.4:56"},      {50, 1, 0, "12a3.4:56"}, {0, 0, 0, "12a3.4:56"},
              {8, INT_MAX, 1, "12a3.4:5*"}, {-5, -1, 6, "**a*.*:**"}};
  for (const auto& row : rows) {
    tString text = "12a3.4:56";
    EXPECT_EQ(MaskDigit(text, row.from, row.len, '*'), row.masked) << row.from << " " << row.len;
    EXPECT_EQ(text, row.text);
  }
}

TEST(Fields, Padded) {
  EXPECT_EQ(Pad(nullptr, 5, true), "<.....");
  EXPECT_EQ(Pad("", 3, false), "<...");
  EXPECT_EQ(Pad("abc", 5, true), "<abc..");
  EXPECT_EQ(Pad("abc", 5, false), "<..abc");
  EXPECT_EQ(Pad("abcde", 5, false), "<abcde");
  EXPECT_EQ(Pad("abcdefg", 5, true), "<abcdefg") << "not cut";
  EXPECT_EQ(Pad("abc", 0, true), "<abc");
  EXPECT_EQ(Pad(nullptr, 0, true), "<");
  tString own = "0123456789";
  own.shrink_to_fit();
  AppendStrPad(own, own.c_str() + 5, 400, '.', false);
  EXPECT_EQ(own, "0123456789" + tString(395, '.') + "56789") << "the source moves while the text grows";
}

TEST(Fields, AmountsExpiryAndCheckCharacter) {
  EXPECT_EQ(AmountCmp("100", "0100"), 0);
  EXPECT_LT(AmountCmp("99", "100"), 0);
  EXPECT_GT(AmountCmp("000000000000000000000000101", "100"), 0);
  EXPECT_EQ(AmountCmp("", "000"), 0);
  EXPECT_EQ(CalcStrCCh("", 0), '0');
  // 'A' | 0 = 41, 'A' | 1 = 41, 'A' | 2 = 43, …, each XORed; the eighth starts over with 0
  EXPECT_EQ(CalcStrCCh("AAA", 3), '3');
  EXPECT_EQ(CalcStrCCh("AAAAAAAA", 8), '6');
  EXPECT_EQ(CalcStrCCh("\xFF", 1), '?');
  tString text = "AAA";
  EXPECT_EQ(AppendStrCCh(text), 4u);
  EXPECT_EQ(text, "AAA3");
  for (const char* other : {"", "251", "25123"}) EXPECT_EQ(ConvertExpToP(text = other, '/'), 0);
  EXPECT_EQ(ConvertExpToP(text = "2512", '/'), 1);
  EXPECT_EQ(text, "12/25");
}

TEST(Fields, NumberedLists) {
  const tString texts[] = {"a", "b", "c"};
  const char* const plain[] = {"x", nullptr};
  tIntStrMap map = {{3, "old"}, {4, "stays"}};
  ISMfill(map, texts, 3);
  ISMfill(map, plain, 2);
  ISMfill(map, plain, 0);
  EXPECT_EQ(map, (tIntStrMap{{1, "x"}, {2, ""}, {3, "c"}, {4, "stays"}}));
  const std::pair<const char*, tIntStrMap> rows[] = {
      {"", {}}, {"  ", {}}, {"one", {{1, "one"}}}, {" one  two\t3 ", {{1, "one"}, {2, "two\t3"}}}};
  for (const auto& [text, wanted] : rows) {
    tIntStrMap split;
    ISMfromStr(split, text);
    EXPECT_EQ(split, wanted) << text;
  }
}

TEST(Fields, LeadingCharactersErased) {
  const tString zero = "0";
  for (auto [given, wanted] : {std::pair("0120", "120"), {"000", "0"}, {"", "0"}, {"7", "7"}}) {
    tString a = given, b = given;
    EXPECT_EQ(EraseLeftChars(a, '0', &zero), strlen(wanted));
    EXPECT_EQ(EraseLeftChars(b, '0', "0"), strlen(wanted));
    EXPECT_EQ(a + "|" + b, tString(wanted) + "|" + wanted);
  }
  tString none = "000";
  EXPECT_EQ(EraseLeftChars(none, '0', nullptr), 0u);
  EXPECT_EQ(StrNLen("abc", 2), 2u);
  EXPECT_EQ(StrNLen("a\0c", 3), 1u);
  EXPECT_EQ(StrNLen(nullptr, 3), 0u);
}

TEST(Dates, Forms) {
  setenv("TZ", "UTC0", 1);
  const struct {
    const char* date;
    int form;
    const char* wanted;
  } rows[] = {
      {"20261121153045", eDTTasis, "20261121153045"},
      {"20261121153045", eDTTyymmddhhmmss, "261121153045"},
      {"20261121153045", eDTTmmddhhmmss, "1121153045"},
      {"20261121153045", eDTThhmm, "1530"},
      {"20261121153045", eDTThhmmss, "153045"},
      {"20261121153045", eDTTyymmdd, "261121"},
      {"20261121153045", 99, "20261121153045"},
      {"20261121153045", -1, "20261121153045"},
      {"20260101000000", eDTTref, "600100"},
      {"20200229120000", eDTTref, "006012"}, // 1950 has no 29th: the 1st of March
      {"20201231230000", eDTTref, "036523"}, // day 365, where 2020 has 366
      {"19650101050000", eDTTref, "500105"},
      {"not a date 123", eDTTref, ""},
      {"20090101000000", eDTTmmfi, "00000000.001"},
      {"20090101000000", eDTTmmft, "00000000.zip"},
      {"20090102000001", eDTTmmft, "00015181.zip"},
      {"20081231235959", eDTTmmfi, "ffffffff.001"},
      {"              ", eDTTmmfi, ""},
  };
  for (const auto& row : rows) {
    tString text = row.date;
    tDateTame date;
    EXPECT_EQ(date.Convert(text, static_cast<tDTType>(row.form)), 1);
    EXPECT_EQ(text, row.wanted) << row.date << " " << row.form;
  }
  tDateTame date;
  tString text = "2026112115304";
  date.Assign("20261121153045");
  EXPECT_EQ(date.Convert(text, eDTThhmm), 0);
  EXPECT_EQ(text, "2026112115304");
  EXPECT_EQ(tString(date.mcDT, 14), "20261121153045");
}

TEST(Dates, Now) {
  setenv("TZ", "XYZ-5", 1); // five hours ahead, without summer time
  tzset();
  tDateTame local, utc;
  ASSERT_TRUE(utc.Fill(false) && local.Fill(true));
  const time_t ahead = MakeLocTm(nullptr, local.mcDT, false) - MakeLocTm(nullptr, utc.mcDT, false);
  EXPECT_NEAR(static_cast<double>(ahead), 5 * 3600, 2);
}

TEST(Dates, TimeValuesLieSeventyYearsBack) {
  setenv("TZ", "UTC0", 1);
  struct tm when = {};
  when.tm_isdst = 1; // whatever stood there
  EXPECT_EQ(MakeLocTm(&when, "20200131120000", true), -628516800) << "1950-01-31 12:00:00";
  EXPECT_EQ(when.tm_year * 10000 + when.tm_mon * 100 + when.tm_mday, 500031);
  EXPECT_EQ(MakeLocTm(nullptr, "20400101000000tail", true), 0);
  when.tm_year = 12345;
  for (const char* bad :
       {"2020013112", "2020-01-31", "", "20200131120x00", static_cast<const char*>(nullptr)})
    EXPECT_EQ(MakeLocTm(&when, bad, true), -1) << bad;
  EXPECT_EQ(when.tm_year, 12345) << "left alone";
}

TEST(Ticks, Limits) {
  const tTicks second = PCperS();
  EXPECT_EQ(TicksFromMs(1000), second);
  EXPECT_EQ(TicksFromMs(0), 0u);
  EXPECT_EQ(TicksFromMs(1000 / second - 1), 0u) << "rounded down";
  EXPECT_EQ(TicksEnd(TicksGet() + 1000, 0), 1) << "no limit at all";
  EXPECT_GT(TicksDiff(TicksGet() + 1000), ~tTicks() - 2000) << "a start ahead means a counter gone round";
  const auto from = std::chrono::steady_clock::now();
  const tTicks begin = TicksGet();
  while (!TicksEnd(begin, 100)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_GE(std::chrono::steady_clock::now() - from, std::chrono::milliseconds(100)) << "strictly more";
  EXPECT_LT(std::chrono::steady_clock::now() - from, std::chrono::milliseconds(1000));
}
