// A second pair of eyes while the library waits: a thread that hears Ctrl-C and lets the live line count the
// seconds. The library itself calls back only when its settings allow a break, so it can do neither.
#pragma once
#include <atomic>
#include <functional>
#include <thread>

namespace zat::till {

// One at a time in a process. While it lives SIGINT and SIGTERM are counted in place of ending the process.
class Watch {
public:
  // press: called with 1, 2, ... for each signal; tick: at least four times a second. Both on its thread.
  Watch(std::function<void(int count)> press, std::function<void()> tick);

  // Puts everything back as it was.
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

private:
  void Run();

  std::function<void(int)> procPress;
  std::function<void()> procTick;
  std::atomic<bool> fStop = false;
  std::thread oThread;
};

} // namespace zat::till
