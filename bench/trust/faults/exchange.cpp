#include "exchange.h"
#include "script.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>

namespace faults {

namespace {

constexpr int kMostCalls = 20; // an exchange that is not over then goes round in circles

// Compares a block with what the module sends, in its order.
void Look(const char* block, Sale& sale) {
  int which = -1;
  for (int i = 0; i + 1 < static_cast<int>(std::size(kAnswers)); ++i)
    if (memcmp(block, kAnswers[i].data(), kAnswers[i].size()) == 0 && !block[kAnswers[i].size()]) which = i;
  if (which < sale.iBlocks) sale.fOdd = true;
  if (which > sale.iBlocks) sale.fMissed = true;
  sale.iBlocks = which + 1;
  if (which == static_cast<int>(kResponse)) sale.fApproved = true;
}

void Call(const Object& object, void* session, char* request, Sale& sale) {
  static char answer[ZAT_MS_BUFFER];
  memset(answer, 0, sizeof answer);
  BeginCall();
  const double begin = NowMs();
  sale.iResult = object.call(session, request, answer, nullptr, nullptr);
  sale.dWorstMs = std::max(sale.dWorstMs, NowMs() - begin);
  if (sale.iResult == ZAT_MS_MORE)
    Look(answer, sale);
  else
    memcpy(sale.mcReason, answer[0] ? answer + kHeader : "ok", 2);
  sale.fLost = sale.fLost || memcmp(sale.mcReason, ZAT_MS_LOST, 2) == 0;
  Plan& plan = *Attach();
  if (plan.iCutHow == eClockBack && plan.iCut == sale.iBlocks) plan.iWallSkewS = -3600;
}

} // namespace

bool Object::Load(const char* path) {
  ForgetImages();
  pvHandle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (!pvHandle) return false;
  create = reinterpret_cast<zat_ms_create_fn>(dlsym(pvHandle, "eftp_create"));
  call = reinterpret_cast<zat_ms_do_fn>(dlsym(pvHandle, "eftp_do"));
  destroy = reinterpret_cast<zat_ms_destroy_fn>(dlsym(pvHandle, "eftp_destroy"));
  return create && call && destroy;
}

void Object::Unload() {
  if (pvHandle) dlclose(pvHandle);
  pvHandle = nullptr;
}

void Pay(const Object& object, void* session, Sale& sale) {
  char request[kSale.size()];
  memcpy(request, kSale.data(), sizeof request);
  Call(object, session, request, sale);
  Collect(object, session, sale);
}

void Collect(const Object& object, void* session, Sale& sale) {
  for (int i = 0; i < kMostCalls && sale.iResult == ZAT_MS_MORE; ++i) Call(object, session, nullptr, sale);
}

const char* Judge(const Sale& sale, const Plan& plan) {
  static constexpr char kReasons[] = "-- ok XL X6 X8 XA";
  const bool known = strstr(kReasons, sale.mcReason);
  const bool nothingSent = strstr("-- X6 X8", sale.mcReason) && sale.iBlocks == 0;
  if (sale.iResult != -1 && sale.iResult != ZAT_MS_END) return "does not end";
  if (!known) return "an end without a reason that is known";
  if (sale.fOdd) return "a block that was not sent";
  if (sale.Paid() && (plan.iApprovals != 1 || plan.iEnds != 1)) return "a wrong approved";
  if (sale.fMissed && !sale.fLost) return "a block is missing";
  if (!sale.Paid() && sale.mcReason[0] == 'o' && !sale.fLost) return "a good end without an approval";
  if (!strcmp(sale.mcReason, ZAT_MS_END_BAD) && plan.iApprovals > 0)
    return "refused although the module approves";
  if (nothingSent && plan.iRequests > 0) return "said that nothing was sent";
  return nullptr;
}

} // namespace faults
