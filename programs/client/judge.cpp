#include "judge.h"

#include <algorithm>
#include <cstdlib>

namespace zat::client {
namespace {

constexpr char kApproved[] = "00";
constexpr time_t kClocks = 65 * 60; // till and terminal may be apart by the hour of summer time, and a little
constexpr time_t kLongest = 10 * 60; // from the intent to the time that the terminal gives a payment
constexpr time_t kAtWork = 3 * 60;   // how long a terminal without a till may go on with a payment

bool SameRef(const tString& a, const tString& b) {
  const auto bare = [](const tString& ref) {
    const size_t begin = ref.find_first_not_of("0 "), end = ref.find_last_not_of(' ');
    return begin == tString::npos ? tString() : ref.substr(begin, end + 1 - begin);
  };
  return !bare(a).empty() && bare(a) == bare(b);
}

bool SameDay(time_t a, time_t b) {
  tm one{}, other{};
  localtime_r(&a, &one);
  localtime_r(&b, &other);
  return one.tm_year == other.tm_year && one.tm_yday == other.tm_yday;
}

bool IsPayment(const Entry& entry) { return entry.fKnown && SortOf(entry.oIntent.oWorkId) == Sort::Payment; }

// Reference numbers begin anew some day: amount and time have to fit too.
bool OwnsByReference(const Entry& entry, const Told& told) {
  const uint64_t amount = entry.oEnding.ulKopecks ? entry.oEnding.ulKopecks : entry.oIntent.ulKopecks;
  return IsPayment(entry) && SameRef(entry.oEnding.oRef, told.oRef) && amount == told.ulKopecks &&
         std::abs(told.oWhen - entry.oWhen) <= kClocks;
}

// By how much the terminal's clock is surely ahead of the till's (below zero: behind), from the payments of the last two
// days that both have a time of: each was made between its intent and its outcome. 0 when it cannot be said.
time_t ClockAhead(const Entries& entries, time_t now) {
  constexpr time_t kRecent = 48 * 60 * 60;
  time_t least = -kClocks, most = kClocks;
  for (auto entry = entries.rbegin(); entry != entries.rend() && entry->oWhen > now - kRecent; ++entry) {
    const Ending& ending = entry->oEnding;
    if (ending.oFate != Fate::Approved || ending.oSource != Source::Till || !ending.oAt || !entry->oTold)
      continue;
    const time_t low = std::max(least, ending.oAt - entry->oTold),
                 high = std::min(most, ending.oAt - entry->oWhen);
    if (low > high) break; // a clock was set in between
    least = low;
    most = high;
  }
  return least > 0 ? least : std::min<time_t>(most, 0);
}

// Never an older payment: not a second before the intent.
bool OwnsByAmount(const Entry& entry, const Told& told, time_t ahead) {
  const bool open = entry.oEnding.oFate == Fate::Unknown || entry.oEnding.oFate == Fate::Approved;
  const time_t after = told.oWhen - ahead - entry.oWhen;
  return IsPayment(entry) && open && entry.oEnding.oRef.empty() &&
         entry.oIntent.ulKopecks == told.ulKopecks && after >= 0 && after <= kLongest;
}

struct Owner {
  const Entry* poEntry = nullptr;
  bool fTwoAlike = false;
};

// The youngest entry that fits. Within the second of its intent the payment may still be the one before, made as fast.
Owner OwnerOf(const Question& question, const Told& told) {
  const Entries& entries = *question.poEntries;
  const time_t ahead = ClockAhead(entries, question.oNow);
  Owner owner;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
    if (OwnsByReference(*entry, told)) return {&*entry, false};
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    if (!OwnsByAmount(*entry, told, ahead)) continue;
    if (owner.poEntry) return {owner.poEntry, owner.poEntry->oWhen == told.oWhen - ahead};
    owner.poEntry = &*entry;
  }
  return owner;
}

bool Closes(const Entry& entry) {
  return SortOf(entry.oIntent.oWorkId) == Sort::DayEnd && entry.oEnding.oFate != Fate::NotSent;
}

// The terminal's day was closed after the entry: as the journal knows, or by itself, as terminals do at night.
bool ClosedSince(const Question& question, const Entry& entry) {
  const Entries& entries = *question.poEntries;
  return !SameDay(entry.oWhen, question.oNow) ||
         std::any_of(entries.begin(), entries.end(),
                     [&](const Entry& other) { return other.uNumber > entry.uNumber && Closes(other); });
}

// A terminal that has no payment at all has forgotten the entry, or may have: so too when it has forgotten one before.
bool MayBeForgotten(const Question& question, const Entry& entry) {
  bool approved = false; // today, before the entry, and not forgotten by an end of day since
  for (const Entry& other : *question.poEntries) {
    if (other.uNumber >= entry.uNumber) break;
    if (Closes(other)) approved = false;
    if (IsPayment(other) && other.oEnding.oFate == Fate::Approved && SameDay(other.oWhen, entry.oWhen))
      approved = true;
  }
  return approved || ClosedSince(question, entry);
}

Ruling Stays(Ground ground) { return {ground, {}}; }

Ruling NotMade(const Question& question, const Entry& entry, Ground ground) {
  if (!question.fExclusive && question.oNow - entry.oWhen < kAtWork) return Stays(Ground::TooEarly);
  return {ground, {Fate::NotMade, "", 0, "", Source::Terminal, 0}};
}

Ruling Made(const Told& told, Ground ground) {
  const Fate fate = told.oCode == kApproved ? Fate::Approved : Fate::Declined;
  return {ground, {fate, told.oCode, told.ulKopecks, told.oRef, Source::Terminal, told.oWhen}};
}

Ruling JudgeByReference(const Question& question, const Entry& entry, const Told& told) {
  if (told.oKind == Told::ePayment)
    return OwnsByReference(entry, told) ? Made(told, Ground::Reference) : Stays(Ground::OtherTill);
  if (ClosedSince(question, entry)) return Stays(Ground::DayClosed);
  return NotMade(question, entry, Ground::Gone);
}

Ruling JudgeByLast(const Question& question, const Entry& entry, const Told& told) {
  if (told.oKind == Told::eNone)
    return MayBeForgotten(question, entry) ? Stays(Ground::DayClosed)
                                           : NotMade(question, entry, Ground::EmptyDay);
  const Owner owner = OwnerOf(question, told);
  if (!owner.poEntry)
    return told.oWhen < entry.oWhen - kClocks ? NotMade(question, entry, Ground::NothingSince)
                                              : Stays(Ground::OtherTill);
  if (entry.uNumber < owner.poEntry->uNumber)
    return Stays(owner.fTwoAlike ? Ground::TwoAlike : Ground::Hidden);
  if (owner.fTwoAlike && &entry == owner.poEntry) return Stays(Ground::TwoAlike);
  return &entry == owner.poEntry ? Made(told, Ground::Last) : NotMade(question, entry, Ground::NothingSince);
}

} // namespace

bool CanBeAsked(const Entry& entry) { return entry.IsUnknown() && IsPayment(entry); }

tString ReferenceOf(const Entry& entry) { return entry.oEnding.oRef; }

Ruling Judge(const Question& question, const Entry& entry, const Told& told) {
  if (!entry.fKnown) return Stays(Ground::Lost);
  if (!IsPayment(entry)) return Stays(Ground::NotShown);
  if (told.oKind == Told::eNothing) return Stays(Ground::NoAnswer);
  return ReferenceOf(entry).empty() ? JudgeByLast(question, entry, told)
                                    : JudgeByReference(question, entry, told);
}

} // namespace zat::client
