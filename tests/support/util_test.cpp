#include "uni_time.h"
#include "util.h"
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

namespace {

tString Pad(const char* source, size_t width, bool left) {
  tString out = "<";
  const size_t length = AppendStrPad(out, source, width, '.', left);
  EXPECT_EQ(length, out.size());
  return out;
}

} // namespace

TEST(Track2, Normalised) {
  const tString raw = ";1234567890123456=25121011234567890?", end("12345=6789\0", 11);
  const std::pair<tString, const char*> taken[] = {
      {raw, "1234567890123456=25121011234567890"},
      {raw + "7", "1234567890123456=25121011234567890"},
      {"B1234567890123456D2512101F", "1234567890123456=2512101"},
      {"B1234567890123456D2512101Fx", "1234567890123456=2512101"},
      {";1234567890123456D2512101?", "1234567890123456=2512101"},
      {"1234567890123456D2512101", "1234567890123456=2512101"},
      {"=123456789", "=123456789"}};
  for (const auto& [given, wanted] : taken) {
    tString track = given;
    EXPECT_EQ(ShrinkTrack2(track), 0) << given;
    EXPECT_EQ(track, wanted);
  }
  for (const tString& given :
       {raw + "77",                             // only one check character
        tString("B1234567890123456D2512101FF"), // the last F is the sentinel, and the other no digit
        tString("B1234567890123456=2512101F"),  // '=' does not separate this form
        tString(";1234567890123456=2512101"),   // no end sentinel
        tString(";1234567890=?12?"),            // one inside
        tString("\xB2"
                "2345=67890"), // a digit in some locale
        tString("1234567=8"), tString("1234567890"), tString("123=456=7890"), tString("123D456=7890"),
        tString("1234567890123456=2512101A"), tString("1234567890123456=2512 01"), tString(), end}) {
    tString track = given;
    EXPECT_EQ(ShrinkTrack2(track), -1) << given;
    EXPECT_EQ(track, given) << "left alone";
  }
}

TEST(Track2, CutUp) {
  // cut: PAN, expiry, service code and the rest; empty: refused. whole: the first three are all there
  const tString card = "4000001234567899";
  typedef std::tuple<tString, tString, tString, bool> Row;
  for (const auto& [raw, cut, kept, whole] :
       {Row{card + "=2512101123", card + "|2512|101|123", card + "=2512101XXX", true},
        Row{";" + card + "=2512101123?", card + "|2512|101|123", card + "=2512101XXX", true},
        Row{card + "=2512101", card + "|2512|101|", card + "=2512101", true},
        Row{card + "=251210", card + "|2512||", card + "=251210", false},
        Row{card + "=251", card + "|||", card + "=251", false}, Row{"=" + card, "", "=" + card, false},
        Row{"4000", "", "4000", false}}) {
    tString track = raw, pan = "p", expiry = "e", service = "s", rest = "r";
    EXPECT_EQ(PortionTrack2opt(track, pan, expiry, service, rest), cut.empty() ? -1 : 0) << raw;
    EXPECT_EQ(track, kept);
    EXPECT_EQ(pan + "|" + expiry + "|" + service + "|" + rest, cut.empty() ? "p|e|s|r" : cut);

    track = raw, pan = "p", expiry = "e", service = "s";
    EXPECT_EQ(PortionTrack2(track, &pan, &expiry, &service), whole ? 0 : -1) << raw;
    EXPECT_EQ(pan + expiry + service, whole ? card + "2512101" : "pes");
    EXPECT_EQ(track, kept) << "masked in any case";
    EXPECT_EQ(PortionTrack2(track = raw, nullptr, nullptr, nullptr), whole ? 0 : -1);
  }
}

TEST(Masks, HideAllButWhatMayBeSeen) {
  // pan, pex: by MaskPAN and MaskPEX
  typedef std::tuple<const char*, int, const char*, const char*> Row;
  for (const auto& [given, keep, pan, pex] :
       {Row{"1234567890123456", 4, "************3456", "************3456"},
        Row{"1234567890123456", 16, "1234567890123456", "1234567890123456"},
        Row{"1234567890123456", -1, "****************", "****************"}, Row{"12a4", 2, "**a4", "**a4"},
        Row{"", 4, "", ""},
        Row{"1234567890123456=2512101", 4, "********************2101", "************3456=*******"},
        Row{"12=34=5", 4, "***34=5", "12=****"}, Row{"=34", 4, "=34", "=**"}}) {
    tString text = given;
    EXPECT_EQ(MaskPAN(text, keep, '*'), text == pan ? 0 : 1) << given;
    EXPECT_EQ(text, pan);
    text = given;
    MaskPEX(text, keep, '*');
    EXPECT_EQ(text, pex);
  }
}

TEST(Masks, Digits) {
  typedef std::tuple<int, int, int, const char*> Row;
  for (const auto& [from, len, masked, wanted] :
       {Row{0, -1, 6, "**a*.*:**"}, Row{1, 3, 2, "1*a*.4:56"}, Row{7, 100, 2, "12a3.4:**"},
        Row{9, -1, 0, "12a3.4:56"}, Row{8, INT_MAX, 1, "12a3.4:5*"}, Row{-5, -1, 6, "**a*.*:**"}}) {
    tString text = "12a3.4:56";
    EXPECT_EQ(MaskDigit(text, from, len, '*'), masked) << from << " " << len;
    EXPECT_EQ(text, wanted);
  }
}

TEST(Fields, Padded) {
  EXPECT_EQ(Pad(nullptr, 5, true) + Pad("abc", 5, true) + Pad("abc", 5, false), "<.....<abc..<..abc");
  EXPECT_EQ(Pad("abcdefg", 5, true), "<abcdefg") << "not cut";
  tString own = "0123456789";
  own.shrink_to_fit();
  AppendStrPad(own, own.c_str() + 5, 400, '.', false);
  EXPECT_EQ(own, "0123456789" + tString(395, '.') + "56789") << "the source moves while the text grows";
}

TEST(Fields, AmountsExpiryAndCheckCharacter) {
  EXPECT_LT(AmountCmp("99", "100"), 0);
  EXPECT_GT(AmountCmp("000000000000000000000000101", "100"), 0);
  EXPECT_EQ(AmountCmp("", "000"), 0);
  // 'A' | 0 = 41, 'A' | 1 = 41, 'A' | 2 = 43, …, each XORed; the eighth starts over with 0
  EXPECT_EQ(CalcStrCCh("AAAAAAAA", 8), '6');
  EXPECT_EQ(CalcStrCCh("\xFF", 1), '?');
  tString text = "AAA";
  AppendStrCCh(text);
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
  tIntStrMap split, none;
  ISMfromStr(split, " one  two\t3 ");
  ISMfromStr(none, "  ");
  EXPECT_EQ(split, (tIntStrMap{{1, "one"}, {2, "two\t3"}}));
  EXPECT_TRUE(none.empty());
}

TEST(Fields, LeadingCharactersErased) {
  const tString zero = "0";
  for (auto [given, wanted] : {std::pair("0120", "120"), {"000", "0"}, {"", "0"}, {"7", "7"}}) {
    tString a = given, b = given;
    EXPECT_EQ(EraseLeftChars(a, '0', &zero) + EraseLeftChars(b, '0', "0"), 2 * strlen(wanted));
    EXPECT_EQ(a + "|" + b, tString(wanted) + "|" + wanted);
  }
  tString none = "000";
  EXPECT_EQ(EraseLeftChars(none, '0', nullptr), 0u);
  EXPECT_EQ(StrNLen("abc", 2) * 10 + StrNLen("a\0c", 3) + StrNLen(nullptr, 3), 21u);
}

TEST(Dates, Forms) {
  setenv("TZ", "UTC0", 1);
  const char* const kNow = "20261121153045";
  typedef std::tuple<const char*, int, const char*> Row;
  for (const auto& [given, form, wanted] :
       {Row{kNow, eDTTasis, kNow}, Row{kNow, eDTTyymmddhhmmss, "261121153045"},
        Row{kNow, eDTTmmddhhmmss, "1121153045"}, Row{kNow, eDTThhmm, "1530"}, Row{kNow, eDTThhmmss, "153045"},
        Row{kNow, eDTTyymmdd, "261121"}, Row{kNow, 99, kNow}, Row{"20260101000000", eDTTref, "600100"},
        Row{"20200229120000", eDTTref, "006012"}, // 1950 has no 29th: the 1st of March
        Row{"20201231230000", eDTTref, "036523"}, // day 365, where 2020 has 366
        Row{"19650101050000", eDTTref, "500105"}, Row{"not a date 123", eDTTref, ""},
        Row{"20090101000000", eDTTmmfi, "00000000.001"}, Row{"20090101000000", eDTTmmft, "00000000.zip"},
        Row{"20090102000001", eDTTmmft, "00015181.zip"}, Row{"20081231235959", eDTTmmfi, "ffffffff.001"},
        Row{"              ", eDTTmmfi, ""}}) {
    tString text = given;
    tDateTame date;
    EXPECT_EQ(date.Convert(text, static_cast<tDTType>(form)), 1);
    EXPECT_EQ(text, wanted) << given << " " << form;
  }
  tString cut = "2026112115304";
  EXPECT_EQ(tDateTame().Convert(cut, eDTThhmm), 0);
  EXPECT_EQ(cut, "2026112115304");
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
