#include "watch.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <iterator>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace zat::till {
namespace {

constexpr int kTickMs = 250;
constexpr uint64_t kPress = 1;
constexpr uint64_t kWake = 1 << 16; // ends the thread's wait, counts as no press

constexpr int kHandled[] = {SIGINT, SIGTERM};

volatile int iEvents = -1; // where the handler counts
struct sigaction moBefore[std::size(kHandled)];

void Count(int) {
  int saved = errno;
  ssize_t ignored = write(iEvents, &kPress, sizeof kPress);
  static_cast<void>(ignored);
  errno = saved;
}

void Install() {
  struct sigaction action = {};
  action.sa_handler = Count;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (size_t i = 0; i < std::size(kHandled); ++i) sigaction(kHandled[i], &action, &moBefore[i]);
}

} // namespace

Watch::Watch(std::function<void(int)> press, std::function<void()> tick)
    : procPress(std::move(press)), procTick(std::move(tick)) {
  iEvents = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  Install();
  oThread = std::thread([this] { Run(); });
}

Watch::~Watch() {
  fStop = true;
  ssize_t ignored = write(iEvents, &kWake, sizeof kWake);
  static_cast<void>(ignored);
  oThread.join();
  for (size_t i = 0; i < std::size(kHandled); ++i) sigaction(kHandled[i], &moBefore[i], nullptr);
  close(iEvents);
  iEvents = -1;
}

void Watch::Run() {
  int count = 0;
  while (!fStop) {
    pollfd event = {iEvents, POLLIN, 0};
    poll(&event, 1, kTickMs);
    uint64_t events = 0;
    if (read(iEvents, &events, sizeof events) == sizeof events)
      for (uint64_t i = 0; i < events % kWake; ++i) procPress(++count);
    if (!fStop) procTick();
  }
}

} // namespace zat::till
