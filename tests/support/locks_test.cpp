#include "child.h"
#include "scratch.h"
#include "utilf.h"
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

struct Locks : testing::Test {
  Scratch dir;
  const std::string path = dir / "a.lck";
  const char* const lock = path.c_str();

  // The descriptor that the file names.
  int Descriptor() const {
    int pid = 0, fd = -1;
    EXPECT_EQ(std::sscanf(dir.Get("a.lck").c_str(), "%d\r\n%d", &pid, &fd), 2);
    EXPECT_EQ(pid, getpid());
    return fd;
  }
  // What a process that has nothing to do with the holder gets.
  int TryElsewhere() const {
    return Child([&] { return tryflock(lock); }).End();
  }
};

} // namespace

TEST_F(Locks, FileNamesProcessAndDescriptor) {
  const std::string old(40, 'x'); // no digit that could run on from ours
  dir.Put("a.lck", old);
  const long before = OpenDescriptors();
  ASSERT_EQ(putflock(lock), 0);
  const int fd = Descriptor();
  const std::string text = std::to_string(getpid()) + "\r\n" + std::to_string(fd);
  EXPECT_EQ(dir.Get("a.lck"), text + old.substr(text.size())) << "written over from the start, not cut";
  EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(remflock(lock), 0);
  EXPECT_FALSE(dir.Has("a.lck"));
  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_EQ(remflock(lock), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Locks, SameProcessNeverWaitsForItself) {
  ASSERT_EQ(putflock(lock), 0);
  const std::string other = dir / "./a.lck";
  for (const char* name : {lock, other.c_str()}) {
    EXPECT_EQ(putflock(name), 1);
    EXPECT_EQ(tryflock(name), 1);
    EXPECT_EQ(errno, EWOULDBLOCK);
  }
  EXPECT_EQ(remflock(other.c_str()), 0) << "the same file under another spelling";
  EXPECT_EQ(tryflock(lock), 0);
  EXPECT_EQ(remflock(lock), 0);
}

TEST_F(Locks, HolderKilledIsTakenOver) {
  Gate taken;
  Child holder([&] {
    int rc = putflock(lock);
    taken.Open();
    for (;;) pause();
    return rc;
  });
  taken.Pass();
  EXPECT_EQ(tryflock(lock), 1);
  EXPECT_EQ(errno, EWOULDBLOCK);
  Child waiter([&] { return putflock(lock); });
  ASSERT_TRUE(Eventually([&] { return WaitsForLock(waiter.pid); }));
  EXPECT_EQ(holder.Kill(), -SIGKILL);
  EXPECT_EQ(waiter.End(), 0);
  EXPECT_TRUE(dir.Has("a.lck")) << "a dead holder leaves its file";
  EXPECT_EQ(tryflock(lock), 0);
  EXPECT_EQ(remflock(lock), 0);
}

TEST_F(Locks, FileRemovedWhileAnotherWaits) {
  ASSERT_EQ(putflock(lock), 0);
  Gate end;
  Child waiter([&] {
    int rc = putflock(lock);
    end.Pass();
    return rc;
  });
  ASSERT_TRUE(Eventually([&] { return WaitsForLock(waiter.pid); }));
  ASSERT_EQ(remflock(lock),
            0); // the waiter now gets a lock on a file without a name, and must not be content
  ASSERT_TRUE(Eventually([&] { return dir.Get("a.lck").starts_with(std::to_string(waiter.pid)); }));
  EXPECT_EQ(tryflock(lock), 1);
  end.Open();
  EXPECT_EQ(waiter.End(), 0);
}

TEST_F(Locks, LostFileLeavesNoDescriptor) {
  const long before = OpenDescriptors();
  ASSERT_EQ(putflock(lock), 0);
  fs::remove(path);
  EXPECT_EQ(remflock(lock), -1);
  EXPECT_EQ(OpenDescriptors(), before);
  ASSERT_EQ(putflock(lock), 0);
  fs::remove(path);
  ASSERT_EQ(tryflock(lock), 0) << "the lost lock excludes nobody";
  EXPECT_EQ(remflock(lock), 0);
  EXPECT_EQ(remflock(lock), -1);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(Locks, NeverTwoHolders) {
  struct Shared {
    std::atomic<int> inside, dying, clashes, done;
  };
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto& shared = *new (memory) Shared{};
  auto work = [&](int rounds, bool wait) {
    for (int i = 0; i < rounds; ++i) {
      while ((wait ? putflock(lock) : tryflock(lock)) != 0) {}
      int found = shared.inside.exchange(getpid());
      if (found != 0 && found != shared.dying) ++shared.clashes;
      ++shared.done;
      if (i % 8 == 0) YieldMS(1);
      int own = getpid();
      if (!shared.inside.compare_exchange_strong(own, 0)) ++shared.clashes;
      if (remflock(lock) != 0) ++shared.clashes;
    }
    return 0;
  };
  constexpr int kRounds = 300;
  {
    Child victim([&] { return work(1 << 30, true); });
    Child a([&] { return work(kRounds, true); }), b([&] { return work(kRounds, false); });
    Child c([&] { return work(kRounds, true); });
    EXPECT_TRUE(Eventually([&] { return shared.done > kRounds; }));
    EXPECT_TRUE(Eventually([&] { return shared.inside == victim.pid; })); // most likely killed while it holds
    shared.dying = victim.pid;
    victim.Kill();
    EXPECT_EQ(a.End() + b.End() + c.End(), 0);
  }
  EXPECT_EQ(shared.clashes, 0);
  EXPECT_GE(shared.done, 3 * kRounds);
  munmap(memory, sizeof(Shared));
}

TEST_F(Locks, OnlyRegularFilesOfThatName) {
  const std::string pipe = dir / "pipe", read = dir / "read";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0666) | mkfifo(read.c_str(), 0666), 0);
  const int reader = open(read.c_str(), O_RDONLY | O_NONBLOCK);
  fs::create_directory(dir / "directory");
  fs::create_symlink(dir.Put("target", "untouched"), dir / "link");
  fs::create_symlink(dir / "nowhere", dir / "dangling");
  const long before = OpenDescriptors();
  for (const char* name : {"pipe", "read", "directory", "link", "dangling", "no/such/directory"}) {
    EXPECT_EQ(putflock((dir / name).c_str()), 1) << name;
    EXPECT_EQ(tryflock((dir / name).c_str()), 1) << name;
  }
  for (const char* name : {"", "/dev/null", static_cast<const char*>(nullptr)}) EXPECT_EQ(tryflock(name), 1);
  EXPECT_FALSE(dir.Has("nowhere"));
  for (const char* name : {"pipe", "read", "directory", "link", "dangling"})
    EXPECT_EQ(remflock((dir / name).c_str()), 0) << name << " is removed all the same";
  EXPECT_EQ(dir.Get("target"), "untouched");
  EXPECT_EQ(remflock(nullptr), -1);
  EXPECT_EQ(OpenDescriptors(), before);
  close(reader);
}

TEST_F(Locks, ForkedCopyLeavesItsParentsLock) {
  ASSERT_EQ(putflock(lock), 0);
  const int fd = Descriptor();
  EXPECT_EQ(Child([&] {
              bool good = tryflock(lock) == 1 && remflock(lock) == 0 && fcntl(fd, F_GETFD) == -1;
              return good && tryflock(lock) == 1 ? 0 : 1;
            }).End(),
            0);
  EXPECT_TRUE(dir.Has("a.lck"));
  EXPECT_EQ(TryElsewhere(), 1) << "still locked";
  EXPECT_EQ(remflock(lock), 0);
  EXPECT_EQ(TryElsewhere(), 0);
}

TEST_F(Locks, OnlyOwnDescriptorsAreClosed) {
  // The file names a descriptor of the host's: of another file, and of this very file.
  for (const char* opened : {"hosts.txt", "a.lck"}) {
    dir.Put("a.lck", "x");
    const int host = open(dir.Put(opened, "x").c_str(), O_RDWR);
    dir.Put("a.lck", std::to_string(getpid()) + "\r\n" + std::to_string(host));
    EXPECT_EQ(remflock(lock), 0);
    EXPECT_EQ(close(host), 0) << opened;
  }
  for (const char* content : {"", "garbage", "1\r\n", "99999999999999999999\r\n-5", "-1\r\n0"}) {
    dir.Put("a.lck", content);
    EXPECT_EQ(tryflock(lock), 0) << content;
    EXPECT_EQ(remflock(lock), 0) << content;
  }
  // The host has closed ours behind our back, and the number means another file now.
  ASSERT_EQ(putflock(lock), 0);
  const int fd = Descriptor();
  const std::string other = dir.Put("other", "x");
  const int host = open(other.c_str(), O_RDONLY);
  ASSERT_EQ(dup2(host, fd), fd);
  EXPECT_EQ(tryflock(lock), 0) << "no lock is left that could be waited for";
  EXPECT_EQ(remflock(lock), 0);
  EXPECT_EQ(close(fd), 0);
  close(host);
}

TEST_F(Locks, InheritedLockLivesWithTheProgram) {
  for (bool inherit : {false, true}) {
    // One each: the first program may still have its end open when the second is waited for.
    const std::string hold = dir / (inherit ? "hold" : "let_go");
    ASSERT_EQ(mkfifo(hold.c_str(), 0666), 0);
    EXPECT_EQ(Child([&] {
                int rc = tryflock(lock, inherit);
                return SysCallBegin(("/bin/cat " + hold).c_str()) ? rc : 9; // and dies without a word
              }).End(),
              0);
    const int writer = open(hold.c_str(), O_WRONLY); // once this returns the program runs
    EXPECT_EQ(TryElsewhere(), inherit ? 1 : 0);
    close(writer);
    EXPECT_TRUE(Eventually([&] { return TryElsewhere() == 0; }));
  }
}

// So many a process can hold. One more is refused, and leaves nothing behind; a lock whose file somebody has removed, or
// whose descriptor a host has closed, makes room.
TEST_F(Locks, AFullTableRefusesUntilThereIsRoom) {
  constexpr int kRoom = 256;
  const auto name = [this](int i) { return dir / std::to_string(i) + ".lck"; };
  for (int i = 0; i < kRoom; ++i) ASSERT_EQ(tryflock(name(i).c_str()), 0) << i;
  const long before = OpenDescriptors();
  EXPECT_EQ(tryflock(lock), 1);
  EXPECT_EQ(putflock(lock), 1);
  EXPECT_EQ(OpenDescriptors(), before);
  fs::remove(name(7));
  EXPECT_EQ(tryflock(lock), 0);
  EXPECT_EQ(OpenDescriptors(), before) << "the removed one's is closed";
  close(Descriptor());
  EXPECT_EQ(tryflock((path + "2").c_str()), 0);
  EXPECT_FALSE(holdsflock(lock));
  EXPECT_EQ(remflock((path + "2").c_str()), 0);
  for (int i = 0; i < kRoom; ++i) EXPECT_EQ(remflock(name(i).c_str()), i == 7 ? -1 : 0);
}

TEST_F(Locks, StandardDescriptorsStayFree) {
  EXPECT_EQ(Child([&] {
              for (int fd : {0, 1, 2}) close(fd);
              if (putflock(lock) != 0 || Descriptor() <= 2) return 1;
              for (int fd : {0, 1, 2})
                if (fcntl(fd, F_GETFD) != -1) return 2;
              return fcntl(Descriptor(), F_GETFD) == FD_CLOEXEC ? remflock(lock) : 3;
            }).End(),
            0);
}

namespace {

// Built before every other global and so destroyed after them, as the launcher's state is.
struct Last {
  std::string path;
  int result = 0;
  ~Last() {
    if (!path.empty())
      _exit(tryflock((path + "2").c_str()) + remflock((path + "2").c_str()) + remflock(path.c_str()));
  }
} oLast __attribute__((init_priority(1001)));

} // namespace

TEST_F(Locks, UsableInTheLastDestructor) {
  EXPECT_EQ(Child([&]() -> int {
              oLast.path = path;
              if (putflock(lock) != 0) return 8;
              std::exit(9);
            }).End(),
            0);
  EXPECT_FALSE(dir.Has("a.lck"));
}

TEST_F(Locks, UpdaterIsAtWork) {
  EXPECT_EQ(isflock(lock), 0);
  ASSERT_EQ(putflock(lock), 0);
  EXPECT_EQ(isflock(lock), 0) << "a lock does not count";
  EXPECT_EQ(remflock(lock), 0);
  fs::create_directory(path);
  EXPECT_EQ(isflock(lock), 1);
}

// A full disk takes the file, but not the text that names its holder: such a lock is none, and nothing of it is left.
TEST_F(Locks, OneThatCannotNameItsHolderIsNone) {
  rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit none = {0, before.rlim_max};
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  const long descriptors = OpenDescriptors();
  setrlimit(RLIMIT_FSIZE, &none);
  const bool tried = tryflock(lock) != 0, put = putflock(lock) != 0, brief = zat::TakeBriefLock(lock) < 0;
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, handler);
  EXPECT_TRUE(tried && put && brief);
  EXPECT_TRUE(OpenDescriptors() == descriptors && !holdsflock(lock));
  EXPECT_EQ(TryElsewhere(), 0);
}
