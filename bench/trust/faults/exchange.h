// One sale as a till makes it, without an allocation of its own, and what can be said of it.
#pragma once
#include "plan.h"
#include "zat_ms.h"

namespace faults {

// The object, loaded.
struct Object {
  void* pvHandle = nullptr;
  zat_ms_create_fn create = nullptr;
  zat_ms_do_fn call = nullptr;
  zat_ms_destroy_fn destroy = nullptr;

  bool Load(const char* path);
  void Unload();
};

struct Sale {
  int iResult = -1;        // of the last call; -1: no session
  char mcReason[3] = "--"; // why it did not end well; "ok" when it did
  bool fApproved = false;  // an approving response came
  bool fLost = false;      // the link was lost once: from then on the outcome is unknown
  bool fOdd = false;       // a block came that the module had not sent, or not then
  bool fMissed = false;    // a block did not come although a later one did
  int iBlocks = 0;
  double dWorstMs = 0; // the longest call, by the till's clock
  bool Paid() const { return fApproved && iResult == ZAT_MS_END && mcReason[0] == 'o'; }
};

// Calls until the exchange is over or refused.
void Pay(const Object& object, void* session, Sale& sale);

// Collects what is left of an exchange after a lost link.
void Collect(const Object& object, void* session, Sale& sale);

// What is wrong about a sale's outcome, by the module's own record; null when nothing is.
const char* Judge(const Sale& sale, const Plan& plan);

} // namespace faults
