// The names of the enumerators for logs and documents.
#include "zat_client.h"

namespace zat {
namespace {

template<class Key> struct NameRow {
  Key oKey;
  const char* pccName;
};

constexpr NameRow<Verdict> kVerdicts[] = {
    {Verdict::Approved, "approved"}, {Verdict::Done, "done"},       {Verdict::Declined, "declined"},
    {Verdict::Aborted, "aborted"},   {Verdict::Refused, "refused"}, {Verdict::BadRequest, "usage"},
    {Verdict::Unknown, "unknown"},
};

constexpr NameRow<Why> kWhys[] = {
    {Why::Response, "response"},
    {Why::Refusal, "refusal"},
    {Why::NotLoggedIn, "notLoggedIn"},
    {Why::NoReference, "noReference"},
    {Why::Ended, "ended"},
    {Why::GoodEnd, "goodEnd"},
    {Why::Break, "break"},
    {Why::NoResponse, "noResponse"},
    {Why::Broken, "damagedResponse"},
    {Why::Contradiction, "contradiction"},
    {Why::Endless, "endless"},
    {Why::Unfinished, "unfinished"},
    {Why::BadRequest, "badRequest"},
    {Why::ModuleMissing, "moduleMissing"},
    {Why::Pause, "pause"},
    {Why::Lost, "lost"},
    {Why::Handle, "handle"},
    {Why::State, "state"},
    {Why::Command, "command"},
    {Why::NoExchange, "noExchange"},
    {Why::OtherId, "otherTid"},
    {Why::Pipes, "pipes"},
    {Why::Nested, "nested"},
    {Why::NoModule, "noModule"},
    {Why::NoLibrary, "noLibrary"},
    {Why::NoJournal, "noJournal"},
    {Why::Strange, "strange"},
};

constexpr NameRow<Status> kStatuses[] = {
    {Status::Connecting, "connecting"},
    {Status::Pause, "pause"},
    {Status::Ok, "ok"},
    {Status::NotLoggedIn, "notLoggedIn"},
    {Status::Pin, "pin"},
    {Status::Online, "online"},
    {Status::NoReference, "noReference"},
    {Status::Hold, "hold"},
    {Status::Confirm, "confirm"},
    {Status::Info, "info"},
    {Status::Break, "break"},
    {Status::NoBreak, "noBreak"},
};

template<class Key, size_t N> const char* Find(const NameRow<Key> (&table)[N], Key key) {
  for (const NameRow<Key>& row : table)
    if (row.oKey == key) return row.pccName;
  return "?";
}

} // namespace

const char* name(Verdict verdict) noexcept { return Find(kVerdicts, verdict); }
const char* name(Why why) noexcept { return Find(kWhys, why); }
const char* name(Status status) noexcept { return Find(kStatuses, status); }

} // namespace zat
