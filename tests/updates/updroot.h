// A scratch installation, and the programs run in it.
#pragma once
#include "scratch.h"
#include <chrono>
#include <cstdlib>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

inline const std::string kUpdater = std::string(ZAT_INSTALLATION) + "/BIN/zat_mu";

// The exit code of a shell command line; -1 when it was killed. Its complaints are not wanted here.
inline int Exit(const std::string& line) {
  const int status = std::system(("(" + line + ") 2>/dev/null").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int RunUpdater(const std::string& first, const std::string& second) {
  return Exit(kUpdater + " \"" + first + "\" \"" + second + "\"");
}

// Waits for something that another process does. False when it did not come about in 10 s.
inline bool Eventually(const std::function<bool()>& fWanted) {
  for (int i = 0; i < 10000; ++i) {
    if (fWanted()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

// Puts the scratch directories made after it into memory, where waiting for the disk costs nothing. Programs may not run
// there.
struct InMemory {
  InMemory() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
  }
  ~InMemory() { unsetenv("TMPDIR"); }
};

inline void PutProgram(const Scratch& oAt, const std::string& name, const std::string& text) {
  chmod(oAt.Put(name, text).c_str(), 0755);
}

// Has another process hold a lock for 0.2 s, leave its file behind and say so in the file "gone".
inline void HoldElsewhere(const Scratch& oAt, const std::string& lock) {
  Exit("cd " + oAt / "" + " && flock " + lock + " sh -c 'touch held; sleep 0.2; touch gone' &");
  if (!Eventually([&] { return oAt.Has("held"); })) std::abort();
}
