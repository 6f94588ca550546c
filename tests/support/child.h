// A forked copy of the test, and what tests ask about processes.
#pragma once
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

class Child {
public:
  // Runs `work` in the copy and ends it with the result as its exit status.
  explicit Child(const std::function<int()>& work) : pid(fork()) {
    if (pid == 0) _exit(work());
  }
  ~Child() {
    kill(pid, SIGKILL); // a test that failed before the end of its child must not leave it behind
    End();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Waits; the exit status, or minus the signal's number.
  int End() {
    int status = 0;
    if (!ended && waitpid(pid, &status, 0) == pid) {
      ended = true;
      result = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return result;
  }
  int Kill() {
    kill(pid, SIGKILL);
    return End();
  }

  const pid_t pid;

private:
  bool ended = false;
  int result = -1;
};

// Looks every millisecond until it is so; false when it has not become so within 20 s.
template<typename Condition> bool Eventually(Condition condition) {
  for (int i = 0; i < 20000 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return condition();
}

// Whether a process waits in flock: the kernel lists it behind an arrow.
inline bool WaitsForLock(pid_t pid) {
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);)
    if (line.find("-> FLOCK") != line.npos && line.find(" " + std::to_string(pid) + " ") != line.npos)
      return true;
  return false;
}

inline long OpenDescriptors() {
  std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

inline bool HasNoChildren() { return waitpid(-1, nullptr, WNOHANG) < 0; }

// A moment that one process waits for and another brings about.
class Gate {
public:
  Gate() {
    if (pipe(mi) != 0) std::abort();
  }
  ~Gate() {
    for (int fd : mi) close(fd);
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  void Open() const {
    if (write(mi[1], "", 1) != 1) std::abort();
  }
  void Pass() const {
    char c;
    while (read(mi[0], &c, 1) != 1) {}
  }

private:
  int mi[2];
};
