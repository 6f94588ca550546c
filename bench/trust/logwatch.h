// A log under many writers, watched from outside while they write and read as a whole afterwards.
#pragma once
#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

#include "scratch.h"

namespace trust {

// Keeps every file that the log has been, so that nothing is lost to the second move, and takes the log's lock now and
// then to see that nobody writes meanwhile. It knows the lock's rule, not its code.
class LogWatch {
public:
  explicit LogWatch(const std::string& log);
  ~LogWatch() { Stop(); }
  LogWatch(const LogWatch&) = delete;
  LogWatch& operator=(const LogWatch&) = delete;

  void Stop();

  // The files that the log was, in their order.
  std::vector<std::string> Files() const;

  // How many of them grew after they had been moved: lines that the next move takes away.
  int Late() const;

  unsigned long ulLargest = 0;      // bytes
  int iHeld = 0, iWrittenUnder = 0; // how often the lock was held here, and the log grew under it

private:
  void Watch();
  void Look();
  void Hold();

  const std::string log;
  Scratch kept;
  std::vector<ino_t> seen;
  std::vector<unsigned long> moved; // the size of each when the next one was there
  std::atomic<bool> over = false;
  std::thread thread;
};

// What stands in the lines of one process, by the beginning of the text.
struct LogCounts {
  std::map<std::string, int> oLines;
  std::map<int, int> oAnswers; // how many lines follow a greeting up to the end of its exchange -> how often
};

struct LogRead {
  std::map<int, LogCounts> oByProcess;
  long lLines = 0, lMalformed = 0;
  int iLateStarts = 0; // most modules started in one file beyond the limit
  std::string oLastVersion;
};

// The beginnings of lines that are counted, and where in them those of locks stand.
extern const char* const mpccCounted[14];
constexpr int kRemovedClient = 10, kPut = 12, kRemoved = 13;

LogRead ReadLog(const std::vector<std::string>& files, unsigned long limit);

} // namespace trust
