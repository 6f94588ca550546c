#include "zat_client.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "amount.h"
#include "gabids.h"
#include "recordedroad.h"
#include "session.h"
#include "util.h"

namespace zat {
namespace {

constexpr size_t kTrack2Width = 37;
constexpr char kLastTransaction[] = "000000000000"; // the terminal knows the day's last one by this reference
constexpr char kNoReference[] = " ";

// A text that is overwritten before its memory is given back: it may hold a track 2.
struct Secret : tString {
  using tString::tString;
  ~Secret() { explicit_bzero(data(), size()); }
};

// While it lives the till is at work.
struct Busy {
  explicit Busy(bool& flag) : fBusy(flag) { fBusy = true; }
  ~Busy() { fBusy = false; }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;
  bool& fBusy;
};

TillOptions OptionsOf(std::string library, std::string config) {
  TillOptions options;
  options.library = std::move(library);
  options.config = std::move(config);
  return options;
}

// A request of the typed kind: what the operation needs beside its id. Null: the operation does not have it.
struct Asked {
  tEFTPWorkId oId;
  const Amount* poAmount = nullptr;
  const std::string_view* poRrn = nullptr;
  const Track2* poCard = nullptr;
  const Amount* poPart = nullptr;
};

// What is wrong with it; "" when nothing is.
const char* FaultOf(const Asked& asked) {
  if (asked.poAmount && *asked.poAmount == Amount()) return "the amount is zero";
  if (asked.poPart && *asked.poPart == Amount()) return "the part is zero";
  if (asked.poPart && *asked.poPart > *asked.poAmount) return "the part is more than the whole";
  if (asked.poRrn && !client::IsReference(*asked.poRrn))
    return "the reference number is not 1 to 12 letters and digits";
  return "";
}

} // namespace

struct Till::Impl {
  TillOptions oOptions;
  LoadFault oFault = LoadFault::None;
  tString oDetail;
  std::unique_ptr<client::Road> poRoad;
  std::atomic<bool> fBreakOff = false;
  bool fBusy = false;

  void Load();
  void Record(const tString& place);
  Outcome Ask(const Asked& asked, const Callbacks& callbacks);
  Outcome Send(tEFTPWorkId id, std::string_view data, const Callbacks& callbacks);
  Outcome Carry(const client::Request* request, const Callbacks& callbacks);
  Outcome Wrong(const char* text) const;
  Outcome NotReady() const;
};
static_assert(std::atomic<bool>::is_always_lock_free, "breakOff is called from signal handlers");

void Till::Impl::Load() {
  oDetail.clear();
  std::unique_ptr<client::Library> library = client::Library::Load(oOptions.library, oFault, oDetail);
  if (!library) return;
  auto session = std::make_unique<client::Session>(std::move(library), oOptions.config);
  if (!session->IsOpen()) oFault = LoadFault::NoSession;
  poRoad = std::move(session);
  Record(oOptions.library);
}

void Till::Impl::Record(const tString& place) {
  if (!oOptions.journal.empty())
    poRoad = std::make_unique<client::RecordedRoad>(std::move(poRoad), oOptions.journal, place);
}

Outcome Till::Impl::Ask(const Asked& asked, const Callbacks& callbacks) {
  const char* fault = FaultOf(asked);
  if (*fault) return Wrong(fault);
  Secret track(asked.poCard ? asked.poCard->text : "");
  if (asked.poCard && (ShrinkTrack2(track) != 0 || track.size() > kTrack2Width))
    return Wrong("this is not a track 2");

  bool totals = asked.oId == eEFTPwidFinAmount; // asked for as a whole: no reference, no amount
  const tString amount = client::WireAmount(asked.poAmount ? *asked.poAmount : Amount());
  const tString part = client::WireAmount(asked.poPart ? *asked.poPart : Amount());
  const tString rrn(asked.poRrn ? *asked.poRrn : kNoReference);
  Secret data;
  bool made = client::MakeData(asked.oId,
                               {{abisTRrfn, asked.poRrn || totals ? &rrn : nullptr},
                                {abisTRamt, asked.poAmount || totals ? &amount : nullptr},
                                {abisTRram, asked.poPart ? &part : nullptr},
                                {abisTRtr2, asked.poCard ? &track : nullptr}},
                               data);
  return made ? Send(asked.oId, data, callbacks) : Wrong("no message can be made of the request");
}

Outcome Till::Impl::Send(tEFTPWorkId id, std::string_view data, const Callbacks& callbacks) {
  if (!client::IsTid(oOptions.terminal)) return Wrong("the terminal id is not 1 to 10 letters and digits");
  constexpr std::chrono::seconds longest = std::chrono::hours(24);
  std::chrono::seconds pause = std::clamp(oOptions.pause, std::chrono::seconds(0), longest);
  client::Request request = {id, oOptions.terminal, tString(data), static_cast<int>(pause.count())};
  Outcome outcome = Carry(&request, callbacks);
  explicit_bzero(request.oData.data(), request.oData.size());
  return outcome;
}

// Every request of every Till passes here. Null: the answer that is still out.
Outcome Till::Impl::Carry(const client::Request* request, const Callbacks& callbacks) {
  if (fBusy || !poRoad) return NotReady();
  Busy busy(fBusy);
  fBreakOff = false;
  client::Listener listener(callbacks, fBreakOff);
  Outcome outcome = request ? poRoad->Run(*request, listener) : poRoad->Resume(listener);
  listener.GiveTo(outcome);
  return outcome;
}

Outcome Till::Impl::Wrong(const char* text) const {
  Outcome outcome;
  outcome.verdict = Verdict::BadRequest;
  outcome.why = Why::BadRequest;
  outcome.text = text;
  return outcome;
}

Outcome Till::Impl::NotReady() const {
  Outcome outcome;
  outcome.verdict = Verdict::Refused;
  outcome.why = fBusy ? Why::Unfinished : Why::NoLibrary;
  outcome.text = fBusy ? "" : oDetail;
  return outcome;
}

Till::Till(TillOptions options) : poImpl(std::make_unique<Impl>()) {
  poImpl->oOptions = std::move(options);
  poImpl->Load();
}

Till::Till(std::string library, std::string config)
    : Till(OptionsOf(std::move(library), std::move(config))) {}

Till::Till(TillOptions options, std::unique_ptr<client::Road> road) : poImpl(std::make_unique<Impl>()) {
  poImpl->oOptions = std::move(options);
  poImpl->poRoad = std::move(road);
  poImpl->Record(poImpl->poRoad->Place());
}

Till::~Till() = default;

LoadFault Till::loadFault() const noexcept { return poImpl->oFault; }
const std::string& Till::loadDetail() const noexcept { return poImpl->oDetail; }

Outcome Till::sale(Amount amount, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidSale, .poAmount = &amount}, callbacks);
}

Outcome Till::sale(Amount amount, Track2 card, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidSale, .poAmount = &amount, .poCard = &card}, callbacks);
}

Outcome Till::refund(Amount amount, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidCredit, .poAmount = &amount}, callbacks);
}

Outcome Till::refund(Amount amount, Track2 card, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidCredit, .poAmount = &amount, .poCard = &card}, callbacks);
}

Outcome Till::preauthorise(Amount amount, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidPreA, .poAmount = &amount}, callbacks);
}

Outcome Till::preauthorise(Amount amount, Track2 card, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidPreA, .poAmount = &amount, .poCard = &card}, callbacks);
}

Outcome Till::reverse(std::string_view rrn, Amount amount, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidRevSale, .poAmount = &amount, .poRrn = &rrn}, callbacks);
}

Outcome Till::reversePart(std::string_view rrn, Amount amount, Amount part, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidRevSale, .poAmount = &amount, .poRrn = &rrn, .poPart = &part},
                     callbacks);
}

Outcome Till::voidPayment(std::string_view rrn, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidVoid, .poRrn = &rrn}, callbacks);
}

Outcome Till::transaction(std::string_view rrn, const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidTransDt, .poRrn = &rrn}, callbacks);
}

Outcome Till::lastTransaction(const Callbacks& callbacks) { return transaction(kLastTransaction, callbacks); }

Outcome Till::login(const Callbacks& callbacks) { return poImpl->Ask({.oId = eEFTPwidLogin}, callbacks); }

Outcome Till::totals(const Callbacks& callbacks) {
  return poImpl->Ask({.oId = eEFTPwidFinAmount}, callbacks);
}

Outcome Till::endOfDay(const Callbacks& callbacks) { return poImpl->Ask({.oId = eEFTPwidFinDay}, callbacks); }

Outcome Till::raw(std::string_view workId, std::string_view data, const Callbacks& callbacks) {
  if (!client::IsWorkId(workId)) return poImpl->Wrong("the work id is not two printable ASCII characters");
  return poImpl->Send(static_cast<tEFTPWorkId>(EFTPWId(workId[0], workId[1])), data, callbacks);
}

Outcome Till::resume(const Callbacks& callbacks) { return poImpl->Carry(nullptr, callbacks); }

LoadFault Till::reopen() {
  if (poImpl->fBusy) return poImpl->oFault;
  if (poImpl->poRoad)
    poImpl->oFault = poImpl->poRoad->Reopen() ? LoadFault::None : LoadFault::NoSession;
  else
    poImpl->Load();
  return poImpl->oFault;
}

void Till::breakOff() noexcept { poImpl->fBreakOff = true; }

} // namespace zat
