// The measurements of trust: what was tried on the system, what was found, and whether that is what it promises. Each
// area is one function and one row of the table in main.cpp.
#pragma once
#include <chrono>
#include <string>
#include <vector>

namespace trust {

// How much an area may try.
struct Extent {
  bool fShort = false; // a second or two for the area: what the tests run each time
  double dSeconds = 0; // longer than the bounded form: what a soak has for the area; 0: the bounded form

  // The size of a run: `whole` in the bounded form, `little` in the short one.
  template <class T> T Of(T whole, T little) const { return fShort ? little : whole; }
};

struct Finding {
  std::string oWhat;  // the promise
  std::string oTried; // numbers of what was done
  std::string oFound; // numbers of what came of it
  bool fGood;         // what was found is what is promised
};

typedef std::vector<Finding> Findings;

} // namespace trust
