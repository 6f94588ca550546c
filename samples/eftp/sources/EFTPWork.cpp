#include "EFTPWork.h"
#include "MiscFunc.h"
#include "ssqueeze.h"
#include "util.h"

using namespace zat;

namespace {

constexpr int32_t kTextLenMax = 254; // longest data whose length is written as text

} // namespace

// ---- header -------------------------------------------------------------------------------------------------

uint64_t EFTPMakeHeader(tString& oMsg, tEFTPWorkId oWId, const tString* poId, const tString* poData) {
  oMsg += static_cast<char>(oWId >> 8);
  oMsg += static_cast<char>(oWId);
  if (poId && !poId->empty())
    AppendStrPad(oMsg, poId->c_str(), kTidSize, '0', false);
  else
    oMsg.append(kTidSize, '?');

  int32_t len = poData ? static_cast<int32_t>(poData->length()) : 0;
  tString field;
  if (len <= kTextLenMax) {
    SSqueeze::fmtLongToString(len, field, 2, SSqueeze::eFhexajr, '0');
  } else {
    const char low = static_cast<char>(len);
    len >>= 8; // for 255 bytes nothing is left, and below they are not appended
    field = {static_cast<char>(len), low};
  }
  oMsg += field;
  if (len != 0) oMsg += *poData;
  return oMsg.length();
}

uint64_t EFTPParsDLen(const unsigned char* pbCmd, size_t lD, char* poFind) {
  if (pbCmd[0] >= '0') return GetNumbers(pbCmd, lD, &IsTo, 16, poFind, nullptr);
  if (poFind) *poFind = 1;
  return pbCmd[1] + pbCmd[0] * 256u;
}
