#include "EFTPIds.h"

namespace {

constexpr tEFTPWorkIdName kNames[] = {
#define EFTP_ROW(name, value, text) {name, #name, text},
    EFTP_WORK_IDS(EFTP_ROW)
#undef EFTP_ROW
};

} // namespace

const tEFTPWorkIdName* EFTPWorkIdNames(size_t* plCount) {
  *plCount = sizeof kNames / sizeof kNames[0];
  return kNames;
}

const tEFTPWorkIdName* EFTPWorkIdName(int iId) {
  for (const tEFTPWorkIdName& row : kNames)
    if (row.oId == iId) return &row;
  return nullptr;
}
