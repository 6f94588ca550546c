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
  in.flags(std::ios_base::fmtflags());
  if (fmt & Q::eFdec)
    in.setf(std::ios_base::dec);
  else if (fmt & Q::eFhex)
    in.setf(std::ios_base::hex);
  long got = 0;
  in >> got;
  value = in.eof() && !in.fail() ? got : 0;
  return in.eof() && !in.fail() ? text.size() : 0;
}

const int kFormats[] = {Q::eFnone,   Q::eFdec,    Q::eFajl,    Q::eFajr,    Q::eFhex,
                        Q::eFdecajl, Q::eFdecajr, Q::eFhexajl, Q::eFhexajr, 15};

// A host's locale must not put separators into wire numbers.
struct tGrouping : std::numpunct<char> {
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(SSqueezeNumbers, WritesWhateverTheHostsLocale) {
  const long kLeast = std::numeric_limits<long>::min();
  const size_t kMost = std::numeric_limits<size_t>::max();
  struct {
    long value;
    size_t width;
    int fmt;
    const char* text;
  } const rows[] = {
      {5, 3, Q::eFdecajr, "005"},
      {5, 3, Q::eFdecajl, "500"},
      {5, 3, Q::eFnone, "005"},
      {-5, 4, Q::eFdecajr, "00-5"},
      {1234567, 0, 0, "1234567"},
      {1234, 3, Q::eFdec, "1234"},
      {0, 0, Q::eFhex, "0"},
      {171, 4, Q::eFhexajr, "00AB"},
      {171, 4, Q::eFhexajl, "AB00"},
      {-1, 3, 8, "FFFFFFFFFFFFFFFF"},
      {10, 4, 15, "1000"},
      {171, 4, Q::eFajl, "1710"},
      {kLeast, 0, 1, "-9223372036854775808"},
      {kLeast, 0, 8, "8000000000000000"},
      {5, kMost, 1, ""},
  };
  std::locale before = std::locale::global(std::locale(std::locale::classic(), new tGrouping));
  for (const auto& row : rows) {
    std::string out = "left over";
    EXPECT_EQ(Q::fmtLongToString(row.value, out, row.width, static_cast<Q::tFmt>(row.fmt), '0'),
              strlen(row.text));
    EXPECT_EQ(out, row.text);
  }
  std::locale::global(before);
}

TEST(SSqueezeNumbers, ReadsAsAClassicStream) {
  std::istringstream listed(
      "0|-|+5|-7|12x| 12|12 |ff|FF|0x1F|0X1f|0x|-0x8|007|08|00|x1|+-1|1,000|1.5|0x-1|--1|0777||"
      "9223372036854775807|9223372036854775808|-9223372036854775808|-9223372036854775809|ffffffffffffffff|"
      "7fffffffffffffff|99999999999999999999999");
  std::vector<std::string> texts = {std::string("1\0", 2)};
  for (std::string text; std::getline(listed, text, '|');) texts.push_back(text);
  std::mt19937 random(7);
  for (int i = 0; i < 5000; ++i) {
    std::string text;
    for (size_t n = random() % 6; n; --n) text += "+-0017x9aF "[random() % 11];
    texts.push_back(text);
  }
  for (const std::string& text : texts)
    for (int fmt : kFormats) {
      long got = 99, want = 99;
      EXPECT_EQ(Q::fmtGetLong(text, got, static_cast<Q::tFmt>(fmt)), StreamRead(text, want, fmt))
          << text << " format " << fmt;
      EXPECT_EQ(got, want) << text << " format " << fmt;
    }
}

TEST(SSqueezeIds, AWriteMakesEarlierIdentifiersStale) {
  uint64_t counter = 77;
  Q store;
  store.ss_next(); // nothing to count with yet: no effect
  EXPECT_EQ(store.pulGlobal, nullptr);
  store.ss_next(&counter);
  EXPECT_EQ(static_cast<uint32_t>(counter), 1u) << "an adopted counter starts anew";

  int node = 0;
  Q first = store.ss_put(&node);
  EXPECT_EQ(first.ss_get(), &node);
  first.ss_next(); // only the store's own identifier counts
  EXPECT_EQ(first.ss_get(), &node);
  store.ss_next();
  EXPECT_EQ(first.ss_get(), nullptr);
  EXPECT_EQ(store.ss_put(&node).ss_get(), &node);
  EXPECT_EQ(SQNull.ss_get(), nullptr);
  EXPECT_EQ(static_cast<uint32_t>(Q::ss_make(0xFFFFFFFFu)), 0u) << "the count wraps below the clock";
}

TEST(SSqueezeIds, ACounterThatServesAgainNeverRevivesAnIdentifier) {
  std::vector<Q> dead;
  uint64_t* pulSeen = nullptr;
  for (int store = 0; store < 1000; ++store) {
    Q own;
    own.pulGlobal = zat::CounterTake();
    if (store == 0) pulSeen = own.pulGlobal;
    EXPECT_EQ(own.pulGlobal, pulSeen) << "the pool grew";
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
