// What every program that meets faults does around a trial: takes the order, arms the faults, and looks at what is left.
#pragma once
#include <iosfwd>
#include <set>
#include <string>

#include "plan.h"

namespace faults {

// One line of orders: SCENE ROLE PLACE AT SPAN ERROR WHAT CUT-HOW CUT, the fields of the record. AT 0 is no fault.
struct Order {
  std::string oScene;
  int iRole = eNobody;
  uint64_t ulAt = 0;
  long lAt = 0, lSpan = 1;
  int iError = 0, iWhat = eCalls, iCutHow = eNoCut, iCut = 0;
};

std::istream& operator>>(std::istream& in, Order& order);

// Puts an order into the record; the faults begin when the record names whose calls count.
void Arm(Plan& plan, const Order& order);
void Disarm(Plan& plan);

// The module's record, for a new sale.
void ResetRecord(Plan& plan);

std::set<int> OpenDescriptors();

// What a trial has left open, running or held in this process and in the installation; empty when it is nothing.
std::string LeftBehind(const std::string& root, const std::set<int>& before);

// Waits until no installation is under way there; false when one is still after the time.
bool AwaitInstalled(const std::string& root, int ms);

} // namespace faults
