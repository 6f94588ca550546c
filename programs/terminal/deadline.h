// Limits of waits, in milliseconds.
#pragma once
#include <algorithm>
#include <chrono>

namespace zat {

class tDeadline {
public:
  explicit tDeadline(int iMs) : oEnd(tClock::now() + std::chrono::milliseconds(iMs)) {}

  bool Over() const { return tClock::now() >= oEnd; }

  // What is left, at most iMax and never below 0: made for poll, which would take -1 for ever.
  int Left(int iMax) const {
    const auto oLeft = std::chrono::ceil<std::chrono::milliseconds>(oEnd - tClock::now()).count();
    return static_cast<int>(std::clamp<decltype(oLeft)>(oLeft, 0, iMax));
  }

private:
  typedef std::chrono::steady_clock tClock;
  tClock::time_point oEnd;
};

} // namespace zat
