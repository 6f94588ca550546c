#include "request.h"

#include <algorithm>

namespace zat::client {

namespace {

constexpr int kClassBits = 8; // an id's first character, its class, stands above its second
constexpr size_t kReferenceSize = 12, kTextOfId = 2;

bool IsAlnum(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool IsName(std::string_view text, size_t limit) {
  return !text.empty() && text.size() <= limit && std::all_of(text.begin(), text.end(), IsAlnum);
}

} // namespace

bool CanBeSent(const Request& request) {
  return request.oTid.size() <= kTidSize && request.oData.size() <= kMaxData &&
         request.oData.size() != kImpossibleData;
}

bool MakeData(tEFTPWorkId id, std::initializer_list<Field> fields, tString& data) {
  SqueezeT store;
  for (const Field& field : fields)
    if (field.poText) store.PutData(field.pccTag, field.poText->data(), field.poText->size());
  tPadsData pads = {&store, nullptr, id, nullptr};
  return EFTPMakeData(&pads, data);
}

bool NeedsResponse(tEFTPWorkId id) {
  int group = id >> kClassBits;
  return group == eEFTPwidOpClass || group == eEFTPwidClClass || id == eEFTPwidTransDt;
}

bool IsTid(std::string_view text) { return IsName(text, kTidSize); }

bool IsReference(std::string_view text) { return IsName(text, kReferenceSize); }

bool IsWorkId(std::string_view text) {
  return text.size() == kTextOfId &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7F'; });
}

} // namespace zat::client
