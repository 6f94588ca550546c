#include "recordedroad.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>

#include "amount.h"
#include "gabids.h"
#include "uni_iodir.h"
#include "utilf.h"

namespace zat::client {
namespace {

constexpr char kJournal[] = "till.jnl";

struct FateRow {
  Verdict oVerdict;
  Fate oFate;
};
constexpr FateRow kFates[] = {{Verdict::Approved, Fate::Approved}, {Verdict::Done, Fate::Done},
                              {Verdict::Declined, Fate::Declined}, {Verdict::Aborted, Fate::Aborted},
                              {Verdict::Refused, Fate::NotSent},   {Verdict::BadRequest, Fate::NotSent},
                              {Verdict::Unknown, Fate::Unknown}};

Fate FateOf(Verdict verdict) {
  for (const FateRow& row : kFates)
    if (row.oVerdict == verdict) return row.oFate;
  return Fate::Unknown;
}

tString WorkId(tEFTPWorkId id) { return {static_cast<char>(id >> 8), static_cast<char>(id)}; }

tString WithoutFill(tString text) { return text.erase(text.find_last_not_of(' ') + 1); }

// The amounts and references are read from the request as the terminal will read them.
Intent IntentOf(const Request& request, const tString& place) {
  Intent intent = {WorkId(request.oId), TerminalInJournal(request.oTid), 0, "", place};
  Block block;
  const auto* data = reinterpret_cast<const unsigned char*>(request.oData.data());
  tEFTPWorkId id = request.oId;
  EFTPParsData(&block.oFields, id, data, request.oData.size());
  const tString part = block.Field(abisTRram);
  Amount amount;
  if (ReadWireAmount(part.empty() ? block.Field(abisTRamt) : part, amount))
    intent.ulKopecks = static_cast<uint64_t>(amount.inKopecks());
  intent.oRef = WithoutFill(block.Field(abisTRrfn));
  return intent;
}

Ending EndingOf(Block& response) {
  Amount amount;
  ReadWireAmount(response.Field(abisTRamt), amount);
  return {Fate::Unknown,
          response.Field(abisEFrcd),
          static_cast<uint64_t>(amount.inKopecks()),
          WithoutFill(response.Field(abisTRrfn)),
          Source::Till,
          TerminalTime(response.Field(abisTRdtt))};
}

Ending EndingOf(const Outcome& outcome) {
  Ending ending = {FateOf(outcome.verdict), outcome.code, 0, "", Source::Till, 0};
  if (!outcome.response) return ending;
  ending.ulKopecks = static_cast<uint64_t>(outcome.response->amount.inKopecks());
  ending.oRef = outcome.response->rrn;
  ending.oAt = TerminalTime(outcome.response->dateTime);
  return ending;
}

tString Real(const tString& path) {
  char real[PATH_MAX];
  return realpath(path.c_str(), real) ? real : path;
}

// As the library itself finds its place: a link to it makes an installation of its own.
tString Absolute(const tString& path) {
  std::error_code none;
  const std::filesystem::path absolute = std::filesystem::absolute(path, none);
  return none ? path : absolute.lexically_normal().string();
}

tString DirectoryOf(const tString& path) { return path.substr(0, fsplitp(path.c_str())); }

// The root of the installation that a library lies in, ending with '/'.
tString RootOf(const tString& library) {
  tString directory = DirectoryOf(Absolute(library));
  ConvertLocToHome(directory);
  return directory;
}

// How a journal calls a place: a library of its own installation has no name, so that the installation can be moved.
tString PlaceInJournal(const tString& place, const tString& journal) {
  if (IsLink(place)) return place;
  const bool own = Real(RootOf(place)) == Real(DirectoryOf(Absolute(journal)));
  return own ? tString() : Absolute(place);
}

} // namespace

bool IsLink(const tString& place) { return place.starts_with("tcp:") || place.starts_with("serial:"); }

time_t TerminalTime(const tString& text) {
  constexpr size_t kDigits = 14;
  tm when{};
  const char* end = text.size() == kDigits ? strptime(text.c_str(), "%Y%m%d%H%M%S", &when) : nullptr;
  when.tm_isdst = -1;
  return end && *end == 0 ? std::max<time_t>(0, mktime(&when)) : 0;
}

tString JournalOf(const tString& library) { return RootOf(library) + kJournal; }

tString TerminalInJournal(const tString& tid) {
  const size_t zeros = tid.find_first_not_of('0');
  return zeros == tString::npos ? "0" : tid.substr(zeros);
}

RecordedRoad::RecordedRoad(std::unique_ptr<Road> road, const tString& journal, const tString& place)
    : poRoad(std::move(road)), oJournal(journal), oPlace(PlaceInJournal(place, journal)) {}

Outcome RecordedRoad::Run(const Request& request, Listener& listener) {
  const Recorded before = oAt;
  Outcome outcome = RunRecorded(request, listener);
  if (outcome.why == Why::Unfinished) oAt = before; // the road still owes the outcome of the one before
  return outcome;
}

Outcome RecordedRoad::RunRecorded(const Request& request, Listener& listener) {
  const Sort sort = SortOf(WorkId(request.oId));
  oAt = {};
  if (sort != Sort::Other) oAt = {oJournal.Begin(IntentOf(request, oPlace)), sort == Sort::Payment};
  if (sort == Sort::Other || oAt.uNumber)
    return Follow(listener, [&] { return poRoad->Run(request, listener); });
  Outcome refused;
  refused.verdict = Verdict::Refused;
  refused.why = Why::NoJournal;
  refused.text = oJournal.Name() + ": " + oJournal.Fault();
  return refused;
}

Outcome RecordedRoad::Resume(Listener& listener) {
  return Follow(listener, [&] { return poRoad->Resume(listener); });
}

// A response tells the reference number before the end of the exchange does: with it a payment whose end is lost is
// asked for later without a doubt.
Outcome RecordedRoad::Follow(Listener& listener, const std::function<Outcome()>& run) {
  if (oAt.uNumber == 0) return run();
  listener.ShowTo([this](Block& block) {
    if (oAt.fPayment && block.fWhole && (block.oId == eEFTPwidRespons || block.oId == eEFTPwidRespLast))
      oJournal.Note(oAt.uNumber, EndingOf(block));
  });
  Outcome outcome = run();
  listener.ShowTo(nullptr);
  if (outcome.why == Why::NoExchange) return outcome; // nothing was left to wait for: no word on the money
  if (!oJournal.Finish(oAt.uNumber, EndingOf(outcome)))
    outcome.journal = "the outcome of payment " + std::to_string(oAt.uNumber) + " could not be recorded in " +
                      oJournal.Name() + ": " + oJournal.Fault();
  else if (oJournal.WasMended())
    outcome.journal =
        oJournal.Name() + " was damaged; it is written anew, and the damaged one kept with .bad";
  if (outcome.verdict != Verdict::Unknown) oAt = {};
  return outcome;
}

} // namespace zat::client
