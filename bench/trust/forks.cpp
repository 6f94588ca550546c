// A host that forks while another of its threads is inside the table of locks: the child must not wait for a thread
// that it does not have.
#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <thread>

#include <fmt/core.h>

#include "guest.h"
#include "scratch.h"
#include "shared.h"
#include "shop.h"
#include "utilf.h"

namespace trust {

namespace {

// A forked copy ends the session that it has inherited, in the middle of a sale. False when the parent feels it.
bool CopyEndsSession() {
  Shop shop;
  LoadedObject object(shop.Library());
  void* session = object.create(nullptr);
  bool ended = false;
  const Sale sale = Sell(object, session, "0000000001", nullptr, nullptr, [&] {
    const pid_t child = Forked([&] {
      alarm(5);
      object.destroy(session);
      return 0;
    });
    int status = -1;
    waitpid(child, &status, 0);
    ended = status == 0;
  });
  object.destroy(session);
  return ended && sale == Sale::paid && !shop.Has("cid1.lck");
}

} // namespace

Finding MeasureForks(const Extent& extent) {
  const int wanted = extent.Of(2000, 200);
  Scratch place;
  const std::string mine = place / "mine", other = place / "other";
  std::atomic<bool> over = false;
  std::vector<std::thread> busy;
  putflock(mine.c_str());
  for (int i = 0; i < 2; ++i)
    busy.emplace_back([&] {
      while (!over) holdsflock(mine.c_str());
    });
  int forks = 0, wrong = 0;
  for (; forks < wanted && wrong == 0; ++forks) {
    const pid_t child = Forked([&] {
      alarm(5);
      return remflock(mine.c_str()) + tryflock(other.c_str()) + remflock(other.c_str());
    });
    int status = -1;
    waitpid(child, &status, 0);
    wrong += status != 0;
  }
  over = true;
  for (std::thread& thread : busy) thread.join();
  const bool kept = holdsflock(mine.c_str());
  const bool unmoved = CopyEndsSession();
  return {
      "a fork leaves a child that can lock, and a parent that does not feel what it does",
      fmt::format(
          "{} forks beside threads in the lock table; a copy that ends the session in the middle of a sale",
          forks),
      fmt::format("{} children hang or fail, the parent's lock is {}, its sale is {}", wrong,
                  kept ? "kept" : "LOST", unmoved ? "paid" : "SPOILT"),
      wrong == 0 && kept && unmoved && remflock(mine.c_str()) == 0};
}

} // namespace trust
