#include "request.h"

#include "gabids.h"

namespace zat::client {

namespace {
constexpr int kClassBits = 8; // an id's first character, its class, stands above its second
}

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

bool MovesMoney(tEFTPWorkId id) {
  int group = id >> kClassBits;
  return group == eEFTPwidOpClass || group == eEFTPwidClClass;
}

bool NeedsResponse(tEFTPWorkId id) { return MovesMoney(id) || id == eEFTPwidTransDt; }

} // namespace zat::client
