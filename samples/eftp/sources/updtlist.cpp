#include "updtlist.h"
#include "MiscFunc.h"
#include <algorithm>
#include <cstring>

namespace {

enum : size_t { eFinished, eBeingWritten }; // the places of the pattern line

// Entry i of a null-terminated line; null when the line is shorter or missing.
const char* LineEntry(const char* const* ppccLine, size_t i) {
  if (!ppccLine) return nullptr;
  for (size_t k = 0; k < i; ++k)
    if (!ppccLine[k]) return nullptr;
  return ppccLine[i];
}

bool LineHolds(const char* const* ppccLine, const char* pccName) {
  for (; ppccLine && *ppccLine; ++ppccLine)
    if (!strcmp(*ppccLine, pccName)) return true;
  return false;
}

// Whether a pattern covers the whole name: the mask test alone is content when the mask ends before the text, and
// would take "0000001A.000.tmp" for a finished update.
bool Covers(const char* pccMask, const char* pccName) {
  size_t lName = strlen(pccName);
  if (strlen(pccMask) > lName) return false;
  size_t lMask = 0;
  while (lMask <= lName && oMaskParser(pccMask, lMask, nullptr) != eMCNone) ++lMask;
  if (lMask != lName) return false;
  tString oText(pccName, lName + 1); // the test rewrites its text
  return cMaskTestString(pccMask, oText.data(), &lName, nullptr, true);
}

bool VersionFits(const tFListData::tIn& oIn, size_t i, const char* pccName) {
  const char* pccInstalled = LineEntry(oIn.ppccOrigLine, i);
  return (!pccInstalled || UL_SCmp(pccName, pccInstalled) > 0) &&
         (!oIn.pccHi || UL_SCmp(pccName, oIn.pccHi) <= 0);
}

// "0000001A.000.tmp" gives "0000001A.*": whatever stands there of that number is not to be trusted.
void AddBeingWritten(tStrStrMap& oMap, const char* pccName, const tString& oPath) {
  const char* pccDot = strchr(pccName, '.');
  if (!pccDot || !pccDot[1]) return;
  const tString oKey = tString(pccName, pccDot + 1) + "*";
  const tString oDir = oPath.substr(0, oPath.rfind('/') + 1);
  // The shorter directory: deleting walks down from it and reaches the deeper one as well.
  const auto oAt = oMap.find(oKey);
  if (oAt == oMap.end() || oAt->second.size() > oDir.size()) oMap[oKey] = oDir;
}

} // namespace

int UL_SCmp(const char* pccA, const char* pccB) {
  const size_t lA = strlen(pccA), lB = strlen(pccB), lMax = std::max(lA, lB);
  if (lA == lB) return strcmp(pccA, pccB);
  return (tString(lMax - lA, '0') + pccA).compare(tString(lMax - lB, '0') + pccB);
}

int FSysMpScMakeFL(tFSysMpScData* poData) {
  auto* poFLD = static_cast<tFListData*>(poData->pvUser);
  const char* pccName = poData->oWork.pccMask;
  if (poData->oFType == eFSMSFTdir)
    return LineHolds(poFLD->oIn.ppccDirList, pccName) ? eFSMSCgood : eFSMSCretg;
  if (poData->oFType != eFSMSFTfile || !poData->fBefore) return eFSMSCgood;
  for (size_t i = 0; const char* pccMask = LineEntry(poFLD->oIn.ppccMaskLine, i); ++i) {
    if (!Covers(pccMask, pccName) || !VersionFits(poFLD->oIn, i, pccName)) continue;
    if (i == eFinished) poFLD->oOut.oSM[pccName] = poData->oWork.pccPathIn;
    if (i == eBeingWritten) AddBeingWritten(poFLD->oOut.oSMb, pccName, poData->oWork.pccPathIn);
  }
  return eFSMSCgood;
}

int FSMSMakeFList(const char* pccDirPath, tFListData* poFLD, const char* pccHi) {
  if (!poFLD) return eFSMSCbad;
  poFLD->oIn.pccHi = pccHi;
  poFLD->oOut.oSM.clear();
  poFLD->oOut.oSMb.clear();
  if (!LineEntry(poFLD->oIn.ppccMaskLine, 0)) return eFSMSCstop;
  tFSysMpScData oWalk = {};
  oWalk.oInit.pccPathIn = pccDirPath;
  oWalk.pvUser = poFLD;
  return FSysMpSc(&oWalk, FSysMpScMakeFL, false, 2); // the directory itself and one below
}
