#include "journal.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <map>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "util.h"
#include "utilf.h"

namespace zat::client {
namespace {

constexpr uint16_t kLogId = 0x4A31; // "J1": this form of records
constexpr tTicks kLockMs = 5000; // an append takes milliseconds; who holds the lock longer has been stopped

// ---- records ----
//
// Fields with tabs between them; the first names the kind:
//
//   B  number                                          entries of this file begin with this number; first record
//   I  number time owner operation tid amount ref road   an intent
//   N  number time fate code amount ref source at        told before the end
//   O  number time fate code amount ref source at        the outcome
//   L  number                                          an intent that was lost in a damaged file
//
// Times are seconds since 1970 ("at" is the terminal's), amounts kopecks.
enum Kind : char { eBase = 'B', eIntent = 'I', eNote = 'N', eOutcome = 'O', eLost = 'L' };
constexpr char kTab = '\t';
constexpr size_t kCodeWidth = 8, kRefWidth = 12, kTidWidth = 10, kIdWidth = 2, kRoadWidth = 4096;

struct FateRow {
  Fate oFate;
  const char* pccName;
};
constexpr FateRow kFates[] = {{Fate::Unknown, "unknown"},   {Fate::Approved, "approved"},
                              {Fate::Declined, "declined"}, {Fate::Aborted, "aborted"},
                              {Fate::NotSent, "notSent"},   {Fate::NotMade, "notMade"},
                              {Fate::Done, "done"}};

// A text as one field: what could be taken for the end of it is replaced.
tString Clean(const tString& text, size_t width) {
  tString field = text.substr(0, width);
  for (char& c : field)
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') c = '?';
  return field;
}

tString Joined(std::initializer_list<tString> fields) {
  tString record;
  for (const tString& field : fields) record += (record.empty() ? "" : "\t") + field;
  return record;
}

tString Number(uint64_t value) { return std::to_string(value); }

tString BaseRecord(uint32_t number) { return Joined({tString(1, eBase), Number(number)}); }
tString LostRecord(uint32_t number) { return Joined({tString(1, eLost), Number(number)}); }

tString IntentRecord(const Entry& entry) {
  const Intent& intent = entry.oIntent;
  return Joined({tString(1, eIntent), Number(entry.uNumber), Number(static_cast<uint64_t>(entry.oWhen)),
                 entry.oOwner, Clean(intent.oWorkId, kIdWidth), Clean(intent.oTid, kTidWidth),
                 Number(intent.ulKopecks), Clean(intent.oRef, kRefWidth), Clean(intent.oRoad, kRoadWidth)});
}

tString EndingRecord(char kind, uint32_t number, time_t when, const Ending& ending) {
  return Joined({tString(1, kind), Number(number), Number(static_cast<uint64_t>(when)), NameOf(ending.oFate),
                 Clean(ending.oCode, kCodeWidth), Number(ending.ulKopecks), Clean(ending.oRef, kRefWidth),
                 Number(static_cast<uint64_t>(ending.oSource)), Number(static_cast<uint64_t>(ending.oAt))});
}

std::vector<std::string_view> Split(std::string_view record) {
  std::vector<std::string_view> fields;
  for (size_t at; (at = record.find(kTab)) != record.npos; record.remove_prefix(at + 1))
    fields.push_back(record.substr(0, at));
  fields.push_back(record);
  return fields;
}

template<class T> bool ReadNumber(std::string_view text, T& value) {
  auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  return fault == std::errc() && end == text.data() + text.size();
}

bool ReadFate(std::string_view name, Fate& fate) {
  for (const FateRow& row : kFates)
    if (name == row.pccName) {
      fate = row.oFate;
      return true;
    }
  return false;
}

// ---- processes ----

tString FirstLine(const tString& name) {
  char text[512];
  const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t got = fd < 0 ? 0 : read(fd, text, sizeof text);
  if (fd >= 0) close(fd);
  const tString line(text, static_cast<size_t>(std::max<ssize_t>(0, got)));
  return line.substr(0, line.find('\n'));
}

// A process as no other one is ever called: its number comes again, in a till that starts with its machine often for
// the same program, so the time of its start and the start of the machine belong to it.
tString ProcessName(const tString& pid) {
  constexpr int kStartTime = 20; // blanks behind the program's name
  const tString stat = FirstLine("/proc/" + pid + "/stat");
  size_t at = stat.rfind(')');
  if (at == tString::npos || stat.compare(at, 3, ") Z") == 0)
    return ""; // only its parent has not noticed yet
  for (int i = 0; i < kStartTime && at != tString::npos; ++i) at = stat.find(' ', at + 1);
  if (at == tString::npos) return "";
  const tString start = stat.substr(at + 1, stat.find(' ', at + 1) - at - 1);
  return pid + "." + start + "." + FirstLine("/proc/sys/kernel/random/boot_id");
}

bool Lives(const tString& owner) {
  return !owner.empty() && ProcessName(owner.substr(0, owner.find('.'))) == owner;
}

// ---- what the records come to ----

bool TakeIntent(const std::vector<std::string_view>& fields, Entry& entry) {
  int64_t when;
  Intent& intent = entry.oIntent;
  if (fields.size() != 9 || !ReadNumber(fields[2], when) || !ReadNumber(fields[6], intent.ulKopecks))
    return false;
  entry.oWhen = when;
  entry.oOwner = fields[3];
  intent.oWorkId = fields[4];
  intent.oTid = fields[5];
  intent.oRef = fields[7];
  intent.oRoad = fields[8];
  return true;
}

bool TakeEnding(const std::vector<std::string_view>& fields, Entry& entry) {
  int64_t when, at;
  unsigned source;
  Ending ending;
  if (fields.size() != 9 || !ReadNumber(fields[2], when) || !ReadFate(fields[3], ending.oFate) ||
      !ReadNumber(fields[5], ending.ulKopecks) || !ReadNumber(fields[7], source) ||
      !ReadNumber(fields[8], at))
    return false;
  ending.oCode = fields[4];
  ending.oRef = fields[6];
  ending.oAt = at;
  if (ending.oFate == Fate::Unknown && ending.oRef.empty()) { // what was told before is still true
    ending.oRef = entry.oEnding.oRef;
    ending.ulKopecks = entry.oEnding.ulKopecks;
  }
  ending.oSource = static_cast<Source>(std::min(source, static_cast<unsigned>(Source::Person)));
  entry.oEnding = ending;
  if (fields[0][0] == eOutcome) entry.oTold = when;
  return true;
}

} // namespace

const char* NameOf(Fate fate) {
  for (const FateRow& row : kFates)
    if (row.oFate == fate) return row.pccName;
  return kFates[0].pccName;
}

Sort SortOf(const tString& workId) {
  static constexpr struct {
    const char* pccIds; // the second characters
    char cGroup;
    Sort oSort;
  } kSorts[] = {{"9ABCGH", '1', Sort::Change},
                {"JLMOP", '1', Sort::Other}, // a card's balance and the like
                {"1", '2', Sort::DayEnd}};
  if (workId.size() != kIdWidth) return Sort::Other;
  for (const auto& row : kSorts)
    if (row.cGroup == workId[0] && tString(row.pccIds).find(workId[1]) != tString::npos) return row.oSort;
  return workId[0] == '1' ? Sort::Payment : workId[0] == '8' ? Sort::Change : Sort::Other;
}

bool Entry::IsUnknown() const {
  const Sort sort = SortOf(oIntent.oWorkId);
  return oEnding.oFate == Fate::Unknown && !fRunning &&
         (!fKnown || sort == Sort::Payment || sort == Sort::Change);
}

// Both files as they were read.
struct Journal::Image {
  std::map<uint32_t, Entry> oEntries;
  Contents oContents; // of the file itself
  uint32_t uBase = 0; // of the file itself; 0: its record is lost
  uint32_t uNext = 1;

  // One record; what this program does not understand is passed over.
  void Take(const tString& record, bool older) {
    const std::vector<std::string_view> fields = Split(record);
    uint32_t number;
    if (fields.size() < 2 || fields[0].size() != 1 || !ReadNumber(fields[1], number) || number == 0) return;
    const char kind = fields[0][0];
    if (kind == eBase) {
      if (!older) uBase = number;
      uNext = std::max(uNext, number);
      return;
    }
    Entry entry;
    entry.uNumber = number;
    if (kind == eIntent && !TakeIntent(fields, entry)) return;
    if (kind == eLost) entry.fKnown = false;
    if (kind == eIntent || kind == eLost) oEntries[number] = entry;
    if (kind == eNote || kind == eOutcome) {
      entry.fKnown = false; // where the file has lost the intent
      TakeEnding(fields, oEntries.emplace(number, entry).first->second);
    }
    uNext = std::max(uNext, number + 1);
  }

  // Entries whose intent was lost between others: numbers are given without a gap.
  std::vector<uint32_t> Lost() const {
    std::vector<uint32_t> lost;
    if (oContents.lInside == 0) return lost;
    for (uint32_t number = uBase; uBase && number < uNext; ++number)
      if (!oEntries.count(number)) lost.push_back(number);
    return lost;
  }

  JournalState State() const {
    JournalState state;
    std::map<uint32_t, Entry> all = oEntries;
    for (uint32_t number : Lost()) {
      all[number].uNumber = number;
      all[number].fKnown = false;
    }
    for (auto& [number, entry] : all) {
      entry.fRunning = entry.oEnding.oFate == Fate::Unknown && entry.oTold == 0 && Lives(entry.oOwner);
      state.oEntries.push_back(entry);
    }
    state.fDamaged = oContents.lInside > 0;
    return state;
  }
};

// The lock for one piece of work.
class Journal::Guard {
public:
  explicit Guard(const tString& name) : oName(name + ".lck") {
    const tTicks begin = TicksGet();
    while ((iFd = TakeBriefLock(oName.c_str())) < 0 && errno == EWOULDBLOCK && !TicksEnd(begin, kLockMs))
      YieldMS(1);
  }
  ~Guard() {
    if (iFd >= 0) FreeBriefLock(oName.c_str(), iFd);
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

  bool IsHeld() const { return iFd >= 0; }

private:
  tString oName;
  int iFd = -1;
};

Journal::Journal(const tString& name, size_t mostRecords)
    : oFile(name, kLogId), oOlder(name + ".old", kLogId), lMost(mostRecords) {}

bool Journal::Failed() {
  const bool held = errno == EWOULDBLOCK; // the lock, for longer than an append takes
  oFault =
      held ? "another program does not let go of " + Name() + ".lck" : std::generic_category().message(errno);
  return false;
}

// An older file that cannot be read hides nothing but entries that have ended.
bool Journal::Load(Image& image) {
  Contents older;
  oOlder.Read(older);
  for (const tString& record : older.oRecords) image.Take(record, true);
  const uint32_t after = image.uNext;
  if (!oFile.Read(image.oContents)) return Failed();
  for (const tString& record : image.oContents.oRecords) image.Take(record, false);
  if (image.uBase == 0) image.uBase = after;
  return true;
}

// Reads everything and makes the file fit for an append. Wants the lock.
bool Journal::Prepare(Image& image) {
  if (!Load(image)) return false;
  if (!oFile.IsSound() && !Mend(image)) return Failed();
  return true;
}

// An unfinished record at the end is what a crash leaves, and no loss: nobody was told that it was written. But a last
// record that was damaged later looks the same, so the file is kept in any case.
bool Journal::Mend(const Image& image) {
  if (!oFile.CopyTo(Name() + ".bad")) return false;
  Records records = image.oContents.oRecords;
  for (uint32_t number : image.Lost()) records.push_back(LostRecord(number));
  return fMended = oFile.Replace(records);
}

// Begins a new file with what is not over. The old one is complete in its place until the new one takes it.
bool Journal::Rotate(Image& image) {
  Records records{BaseRecord(image.uNext)};
  for (const auto& [number, entry] : image.oEntries) {
    // One that is being made counts as unknown here: whether its process lives was not asked.
    if (!entry.IsUnknown()) continue;
    records.push_back(entry.fKnown ? IntentRecord(entry) : LostRecord(number));
    if (entry.oTold || !entry.oEnding.oRef.empty())
      records.push_back(EndingRecord(entry.oTold ? eOutcome : eNote, number, entry.oTold, entry.oEnding));
  }
  return records.size() < lMost && oFile.CopyTo(oOlder.Name()) && oFile.Replace(records);
}

uint32_t Journal::Begin(const Intent& intent) {
  const Guard guard(Name());
  Image image;
  if (!guard.IsHeld()) return Failed();
  if (!Prepare(image)) return 0;
  if (image.oContents.oRecords.size() >= lMost) Rotate(image); // where it fails the old one will do for long
  Entry entry;
  entry.uNumber = image.uNext;
  entry.oIntent = intent;
  entry.oWhen = time(nullptr);
  entry.oOwner = ProcessName(Number(static_cast<uint64_t>(getpid())));
  if (image.oContents.oRecords.empty() && !oFile.Append(BaseRecord(image.uNext))) return Failed();
  return oFile.Append(IntentRecord(entry)) ? entry.uNumber : Failed();
}

// What the file holds matters only where it is damaged, and where somebody may have told the outcome meanwhile.
bool Journal::Tell(uint32_t number, char kind, const Ending& ending, bool onlyUnknown) {
  const Guard guard(Name());
  Image image;
  if (!guard.IsHeld()) return Failed();
  if ((onlyUnknown || !oFile.IsSound()) && !Prepare(image)) return false;
  const auto found = image.oEntries.find(number);
  if (onlyUnknown && found != image.oEntries.end() && found->second.oEnding.oFate != Fate::Unknown)
    return true;
  return oFile.Append(EndingRecord(kind, number, time(nullptr), ending)) || Failed();
}

bool Journal::Note(uint32_t number, const Ending& soFar) {
  Ending note = soFar;
  note.oFate = Fate::Unknown;
  return Tell(number, eNote, note, false);
}

bool Journal::Finish(uint32_t number, const Ending& ending) { return Tell(number, eOutcome, ending, false); }

bool Journal::Settle(uint32_t number, const Ending& ending) { return Tell(number, eOutcome, ending, true); }

bool Journal::Read(JournalState& state) {
  const Guard guard(Name()); // who may only read does without: what is being written looks unfinished then
  Image image;
  if (!Load(image)) return false;
  state = image.State();
  state.fDamaged |= guard.IsHeld() && !oFile.IsSound();
  return true;
}

} // namespace zat::client
