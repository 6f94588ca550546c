// What the terminal's last payment says about payments whose outcome nobody knows: no payment is ever taken for
// another one, and where two readings are possible it stays unknown.
#include "judge.h"

#include <gtest/gtest.h>

using namespace zat::client;

namespace {

time_t Noon() {
  tm day{};
  day.tm_year = 126, day.tm_mon = 10, day.tm_mday = 21, day.tm_hour = 12, day.tm_isdst = -1;
  return mktime(&day);
}

// An entry so many seconds after noon.
Entry Made(time_t at, uint64_t amount, Fate fate, const char* ref = "", const char* work = "10") {
  Entry entry;
  entry.oIntent = {work, "1", amount, "", ""};
  entry.oWhen = Noon() + at;
  entry.oEnding.oFate = fate;
  entry.oEnding.oRef = ref;
  return entry;
}
Entry Open(time_t at, uint64_t amount, const char* ref = "") { return Made(at, amount, Fate::Unknown, ref); }
// A minute before noon, by a terminal whose clock is so many seconds ahead: 3 s behind its intent, 5 s before its outcome.
Entry Clocked(time_t ahead) {
  Entry entry = Made(-60, 100, Fate::Approved, "R1");
  entry.oEnding.oAt = entry.oWhen + 3 + ahead;
  entry.oTold = entry.oWhen + 8;
  return entry;
}
Entry Running(time_t at, uint64_t amount) {
  Entry entry = Open(at, amount);
  entry.fRunning = true;
  return entry;
}

Told LastOne(time_t at, uint64_t amount, const char* ref = "R9", const char* code = "00") {
  return {Told::ePayment, amount, ref, code, Noon() + at};
}
const Told kNone = {Told::eNone, 0, "", "", 0};

constexpr time_t kHour = 3600, kDay = 24 * kHour;

TEST(Judge, EveryCase) {
  using enum Ground;
  const Fate ok = Fate::Approved;
  struct Case {
    const char* pccCase;
    size_t lAsked; // which of the entries
    Entries oEntries;
    Told oTold;
    Ground oGround;
    time_t oNow = 60;
    bool fExclusive = true;
  };
  const Entry dayEnd = Made(20, 0, Fate::Done, "", "21"), sale = Open(0, 500), known = Open(0, 500, "R9");
  // clang-format off
  const Case cases[] = {
      {"it is the last", 0, {sale}, LastOne(1, 500), Last},
      {"in the very second", 0, {sale}, LastOne(0, 500), Last},
      {"the same amount of this journal before", 1, {Made(-9, 500, ok, "R9"), sale}, LastOne(-9, 500), NothingSince},
      {"made in the same second", 1, {Made(0, 500, ok, "R9"), sale}, LastOne(0, 500), NothingSince},
      {"zeros in front of the reference", 1, {Made(-9, 500, ok, "9"), sale}, LastOne(-9, 500, "009 "), NothingSince},
      {"the same amount of no journal, just before", 0, {sale}, LastOne(-1, 500), OtherTill},
      {"and hours before", 0, {sale}, LastOne(-2 * kHour, 500), NothingSince},
      {"another amount, after it", 0, {sale}, LastOne(5, 501), OtherTill},
      {"the same amount, long after it", 0, {sale}, LastOne(kHour, 500), OtherTill, 2 * kHour},
      {"hidden by a later one", 0, {sale, Made(30, 500, ok, "R9")}, LastOne(30, 500), Hidden},
      {"whose reference was not told", 0, {sale, Made(30, 500, ok)}, LastOne(31, 500), Hidden},
      {"hidden by one that is being made", 0, {sale, Running(30, 500)}, LastOne(31, 500), Hidden},
      {"a later one that came to nothing", 0, {sale, Made(30, 700, Fate::Declined)}, LastOne(1, 500), Last},
      {"two unknown, the first was made", 0, {sale, Open(30, 500)}, LastOne(3, 500), Last},
      {"so the second was not", 1, {sale, Open(30, 500)}, LastOne(3, 500), NothingSince},
      {"two unknown in one second", 0, {sale, Open(1, 500)}, LastOne(1, 500), TwoAlike},
      {"neither is taken for the other", 1, {sale, Open(1, 500)}, LastOne(1, 500), TwoAlike},
      {"a reference that comes again", 1, {Made(-kDay, 500, ok, "R9"), sale}, LastOne(1, 500), Last},
      {"a clock that is known to be slow", 1, {Clocked(-300), sale}, LastOne(-295, 500), Last},
      {"as far as it is known", 1, {Clocked(-300), sale}, LastOne(-298, 500), OtherTill},
      {"one that is known to be fast", 1, {Clocked(300), sale}, LastOne(310, 500), Last},
      {"by which it was before", 1, {Clocked(300), sale}, LastOne(290, 500), OtherTill},
      {"a clock that was set since", 2, {Clocked(900), Clocked(-300), sale}, LastOne(-295, 500), Last},
      {"no payment today", 0, {sale}, kNone, EmptyDay},
      {"none since the end of day", 2, {Made(-30, 500, ok, "R9"), Made(-20, 0, Fate::Done, "", "21"), sale}, kNone, EmptyDay},
      {"the day was closed after it", 0, {sale, dayEnd}, kNone, DayClosed},
      {"or may have been", 0, {sale, Made(20, 0, Fate::Unknown, "", "21")}, kNone, DayClosed},
      {"but not by one that was never sent", 0, {sale, Made(20, 0, Fate::NotSent, "", "21")}, kNone, EmptyDay},
      {"somebody else has closed it", 1, {Made(-30, 500, ok, "R9"), sale}, kNone, DayClosed},
      {"asked on the next day", 0, {sale}, kNone, DayClosed, kDay},
      {"by its reference", 0, {known, Made(30, 500, ok, "R10")}, LastOne(1, 500), Reference},
      {"gone again", 0, {known}, kNone, Gone},
      {"gone with its day", 0, {known, dayEnd}, kNone, DayClosed},
      {"another one's reference", 0, {known}, LastOne(1, 700), OtherTill},
      {"no answer", 0, {sale}, {}, NoAnswer},
      {"a reversal is not shown", 0, {Made(0, 500, Fate::Unknown, "", "1A")}, LastOne(1, 500), NotShown},
      {"a terminal without a till may go on", 0, {sale}, kNone, TooEarly, 60, false},
      {"but not for ever", 0, {sale}, kNone, EmptyDay, 300, false},
      {"and what it has done it has done", 0, {sale}, LastOne(1, 500), Last, 60, false},
  };
  // clang-format on
  for (Case c : cases) {
    SCOPED_TRACE(c.pccCase);
    uint32_t number = 0;
    for (Entry& entry : c.oEntries) entry.uNumber = ++number;
    const Question question = {&c.oEntries, Noon() + c.oNow, c.fExclusive};
    const Ruling ruling = Judge(question, c.oEntries[c.lAsked], c.oTold);
    EXPECT_EQ(static_cast<int>(ruling.oGround), static_cast<int>(c.oGround));
    const bool made = c.oGround == Reference || c.oGround == Last;
    const bool notMade = c.oGround == NothingSince || c.oGround == EmptyDay || c.oGround == Gone;
    EXPECT_EQ(ruling.oEnding.oFate, made ? ok : notMade ? Fate::NotMade : Fate::Unknown);
    EXPECT_EQ(ruling.oEnding.oRef, made ? "R9" : "");
  }
  const Entries one = {sale};
  EXPECT_EQ(Judge({&one, Noon() + 60, true}, one[0], LastOne(1, 500, "R9", "51")).oEnding.oFate,
            Fate::Declined);
}

} // namespace
