// Identifiers, number formatting and reading.
#include "ssqueeze.h"
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <vector>

namespace {

using Q = SSqueeze;

// What the reading is a short form of: a stream of the classic locale with its flags cleared first.
size_t StreamRead(const std::string& text, long& value, int fmt) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  in.flags(fmt & Q::eFdec ? std::ios::dec : fmt & Q::eFhex ? std::ios::hex : std::ios::fmtflags());
  long got = 0;
  in >> got;
  const bool whole = in.eof() && !in.fail();
  value = whole ? got : 0;
  return whole ? text.size() : 0;
}

// A host's locale must not put separators into wire numbers.
struct tGrouping : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(SSqueezeNumbers, WritesWhateverTheHostsLocale) {
  const long kLeast = std::numeric_limits<long>::min();
  std::locale before = std::locale::global(std::locale(std::locale::classic(), new tGrouping));
  typedef std::tuple<long, size_t, int, const char*> Row;
  for (auto [value, width, fmt, text] :
       {Row{5, 3, Q::eFdecajl, "500"}, Row{5, 3, Q::eFnone, "005"}, Row{-5, 4, Q::eFdecajr, "00-5"},
        Row{1234567, 0, 0, "1234567"}, Row{1234, 3, Q::eFdec, "1234"}, Row{0, 0, Q::eFhex, "0"},
        Row{171, 4, Q::eFhexajr, "00AB"}, Row{171, 4, Q::eFhexajl, "AB00"},
        Row{-1, 3, Q::eFhex, "FFFFFFFFFFFFFFFF"}, Row{10, 4, 15, "1000"},
        Row{kLeast, 0, Q::eFdec, "-9223372036854775808"}, Row{kLeast, 0, Q::eFhex, "8000000000000000"},
        Row{5, ~size_t{0}, Q::eFdec, ""}}) {
    std::string out = "left over";
    EXPECT_EQ(Q::fmtLongToString(value, out, width, static_cast<Q::tFmt>(fmt), '0'), strlen(text));
    EXPECT_EQ(out, text);
  }
  std::locale::global(before);
}

TEST(SSqueezeNumbers, ReadsAsAClassicStream) {
  std::istringstream listed(
      "12 |0x1F|0X1f|-0x8|08|1,000|1.5|0777||9223372036854775807|9223372036854775808|-9223372036854775808|"
      "-9223372036854775809|ffffffffffffffff|7fffffffffffffff|99999999999999999999999");
  std::vector<std::string> texts = {std::string("1\0", 2)};
  for (std::string text; std::getline(listed, text, '|');) texts.push_back(text);
  std::mt19937 random(7);
  while (texts.size() < 5000) {
    std::string& text = texts.emplace_back();
    for (size_t n = random() % 6; n; --n) text += "+-0017x9aF "[random() % 11];
  }
  for (const std::string& text : texts)
    for (int fmt = 0; fmt < 16; ++fmt) {
      long got = 99, want = 99;
      EXPECT_EQ(Q::fmtGetLong(text, got, static_cast<Q::tFmt>(fmt)), StreamRead(text, want, fmt))
          << text << " format " << fmt;
      EXPECT_EQ(got, want) << text << " format " << fmt;
    }
}

TEST(SSqueezeIds, OnlyTheStoresOwnIdentifierCounts) {
  uint64_t counter = 77;
  int node = 0;
  Q store;
  store.ss_next(); // nothing to count with yet: no effect
  store.ss_next(&counter);
  EXPECT_EQ(static_cast<uint32_t>(counter), 1u) << "an adopted counter starts anew";
  Q first = store.ss_put(&node);
  first.ss_next();
  EXPECT_EQ(first.ss_get(), &node);
  store.ss_next();
  EXPECT_EQ(first.ss_get(), nullptr);
  EXPECT_EQ(static_cast<uint32_t>(Q::ss_make(0xFFFFFFFFu)), 0u) << "the count wraps below the clock";
}

TEST(SSqueezeIds, ACounterThatServesAgainNeverRevivesAnIdentifier) {
  std::vector<Q> dead;
  for (int store = 0; store < 1000; ++store) {
    Q own;
    own.pulGlobal = zat::CounterTake();
    EXPECT_TRUE(dead.empty() || own.pulGlobal == dead[0].pulGlobal) << "the pool grew";
    for (int write = 0; write < 3; ++write) {
      own.ss_next();
      dead.push_back(own.ss_put(&own));
      for (size_t i = 0; i + 1 < dead.size(); i += 97) EXPECT_EQ(dead[i].ss_get(), nullptr);
    }
    zat::CounterGive(own.pulGlobal);
    EXPECT_EQ(dead.back().ss_get(), nullptr);
  }
}

} // namespace
