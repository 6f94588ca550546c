#include "message.h"
#include "util.h"
#include <cassert>

namespace zat {

constexpr size_t kAmount = 12; // digits

tString tRequest::Text(const char* pccTag) {
  tString oText;
  if (oPars.GetData(oPars.Find(pccTag), &oText) != eDTpdata) return "";
  return oText.substr(0, oText.find_last_not_of(' ') + 1);
}

uint64_t tRequest::Amount(const char* pccTag) {
  const tString oText = Text(pccTag);
  uint64_t ul = 0;
  if (oText.size() <= kAmount)
    for (char c : oText) ul = c >= '0' && c <= '9' ? ul * 10 + static_cast<uint64_t>(c - '0') : ul;
  return ul;
}

bool ReadRequest(const tString& oBlock, tRequest& oOut) {
  if (oBlock.size() < kHeadSize) return false;
  const auto* pb = reinterpret_cast<const unsigned char*>(oBlock.data());
  const size_t lData = oBlock.size() - kHeadSize;
  char cFound = 0;
  oOut.oWId = static_cast<tEFTPWorkId>(EFTPWId(oBlock[0], oBlock[1]));
  oOut.oTId = oBlock.substr(kHeadTid, kTidSize);
  oOut.fWhole = EFTPParsDLen(pb + kHeadLen, kHeadSize - kHeadLen, &cFound) == lData && cFound;
  tEFTPWorkId oVariant = oOut.oWId; // the parser tells variants apart; an answer goes by the plain code
  oOut.fGood = oOut.fWhole && EFTPParsData(&oOut.oPars, oVariant, pb + kHeadSize, lData);
  return true;
}

tFields& tFields::Put(const char* pccTag, const tString& oValue) {
  if (!oValue.empty()) oPars.PutData(pccTag, oValue.data(), oValue.size());
  return *this;
}

tString MakeMessage(tEFTPWorkId oWId, const tString& oTId, tFields& oFields) {
  tPadsData oPads{&oFields.oPars, nullptr, oWId, nullptr};
  tString oData, oMsg;
  const bool fMade = EFTPMakeData(&oPads, oData);
  assert(fMade);
  if (fMade) EFTPMakeHeader(oMsg, oWId, &oTId, &oData);
  return oMsg;
}

} // namespace zat
