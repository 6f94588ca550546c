#include "serve.h"
#include "SLogger.h"
#include "operations.h"
#include "pipewire.h"
#include "version.h"
#include <climits>
#include <cstdio>

namespace zat {

namespace {

// A till writes its request as soon as it has the greeting. One that has given up on a late greeting may wait for
// the module's end instead, so the module must not wait for ever in its turn.
constexpr int kRequestWait = 45000;

} // namespace

void SetLog(const tFaults& oFaults) {
  if (!oFaults[eFIlog].On() && SLogger::ItIsMe(poGSLog)) poGSLog->SetLevel(INT_MAX);
}

int ServePipes(const tPlace& oPlace, const char* pccExport, const char* pccTId) {
  tPipeWire oWire;
  if (!oWire.Open(pccExport)) {
    fprintf(stderr, "%s: \"%s\" names no pipes of a till. See zat_mm --help.\n", pccModule, pccExport);
    return eXusage;
  }
  const tFaults oFaults = ReadFaults(FaultsFile(oPlace.oRoot, oPlace.oConfig), pccTId);
  SetLog(oFaults);
  tTalk oTalk(oWire, oFaults);
  tRequest oReq;
  oTalk.Greet(pccModule);
  if (oTalk.Listen(oReq, kRequestWait)) AnswerRequest(oTalk, oReq, oPlace.oRoot);
  if (oFaults[eFIexitCode].On()) return static_cast<int>(oFaults[eFIexitCode].lAt);
  return oTalk.Ended() ? eXdone : eXlost;
}

} // namespace zat
