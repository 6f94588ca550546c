#include "logwatch.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/core.h>

namespace trust {

namespace {

unsigned long SizeOf(const std::string& file) {
  struct stat info = {};
  return stat(file.c_str(), &info) == 0 ? static_cast<unsigned long>(info.st_size) : 0;
}

} // namespace

LogWatch::LogWatch(const std::string& oLog) : log(oLog), thread([this] { Watch(); }) {}

void LogWatch::Stop() {
  over = true;
  if (thread.joinable()) thread.join();
}

std::vector<std::string> LogWatch::Files() const {
  std::vector<std::string> files;
  for (size_t i = 0; i < seen.size(); ++i) files.push_back(kept / std::to_string(i));
  return files;
}

int LogWatch::Late() const {
  int late = 0;
  for (size_t i = 0; i < moved.size(); ++i) late += SizeOf(kept / std::to_string(i)) != moved[i];
  return late;
}

void LogWatch::Watch() {
  for (int round = 1; !over; ++round) {
    Look();
    if (round % 40 == 0) Hold();
    usleep(500);
  }
  Look();
}

void LogWatch::Look() {
  struct stat info = {};
  if (stat(log.c_str(), &info) != 0) return;
  ulLargest = std::max(ulLargest, static_cast<unsigned long>(info.st_size));
  if (std::find(seen.begin(), seen.end(), info.st_ino) != seen.end()) return;
  const std::string name = kept / std::to_string(seen.size());
  if (link(log.c_str(), name.c_str()) != 0 || stat(name.c_str(), &info) != 0) return;
  if (!seen.empty()) moved.push_back(SizeOf(kept / std::to_string(seen.size() - 1)));
  seen.push_back(info.st_ino);
}

// As every writer does: the lock is whose flock is on the file that the name leads to; freed by unlinking it first.
void LogWatch::Hold() {
  const std::string name = log + ".lck";
  const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  struct stat held = {}, named = {}, before = {}, after = {};
  if (flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &held) == 0 && stat(name.c_str(), &named) == 0 &&
      held.st_ino == named.st_ino) {
    const bool there = stat(log.c_str(), &before) == 0;
    usleep(1000);
    if (there) {
      ++iHeld;
      iWrittenUnder +=
          stat(log.c_str(), &after) != 0 || before.st_ino != after.st_ino || before.st_size != after.st_size;
    }
    unlink(name.c_str());
  }
  close(fd);
}

const char* const mpccCounted[14] = {
    "[eftp_do] in: ",      "[eftp_do] block break func", "[eftp_do] out: ",         "[eftp_do] ReqHdr: ",
    "[MicroS] Open UP: ",  "[MicroS] LocVer: ",          "[MicroS] Cmd: ",          "[MicroS] Started: ",
    "[MicroS] B: ",        "[MicroS] WriteBlock: ",      "[MicroS] Rem lock [I]: ", "[MicroS] Close UP",
    "[MicroS] Put lock: ", "[MicroS] Rem lock: "};

namespace {

// "2026-11-21 15.20.04 {00002929} : "
constexpr char kStart[] = "9999-99-99 99.99.99 {FFFFFFFF} : ";
constexpr size_t kStartLength = sizeof kStart - 1;
constexpr size_t kProcessAt = 21, kProcessLength = 8;

bool Starts(const std::string& text, size_t at) {
  if (text.size() < at + kStartLength) return false;
  for (size_t i = 0; i < kStartLength; ++i) {
    const char want = kStart[i], is = text[at + i];
    const bool fits = want == '9'   ? isdigit(static_cast<unsigned char>(is)) != 0
                      : want == 'F' ? isxdigit(static_cast<unsigned char>(is)) != 0
                                    : want == is;
    if (!fits) return false;
  }
  return true;
}

// A whole line: one start, one line end behind it.
bool WellFormed(const std::string& line) {
  if (!Starts(line, 0) || line.back() != '\r' || line.find('\r') != line.size() - 1) return false;
  for (size_t at = kStartLength; (at = line.find(" {", at)) != std::string::npos; ++at)
    if (Starts(line, at - (kProcessAt - 2))) return false;
  return true;
}

// Where each process is in its exchange: the lines since the greeting, -1 before it.
typedef std::map<int, int> Places;

void Count(const std::string& line, LogRead& read, Places& places) {
  const int process = std::stoi(line.substr(kProcessAt, kProcessLength), nullptr, 16);
  const std::string text = line.substr(kStartLength, line.size() - kStartLength - 1);
  LogCounts& counts = read.oByProcess[process];
  for (const char* beginning : mpccCounted)
    if (text.compare(0, strlen(beginning), beginning) == 0) ++counts.oLines[beginning];
  int& place = places.try_emplace(process, -1).first->second;
  if (text.rfind("[MicroS] B: ", 0) == 0) {
    place = 0;
    read.oLastVersion = text.substr(strlen("[MicroS] B: "));
  }
  if (place >= 0) ++place;
  if (text == "[MicroS] Close UP") {
    ++counts.oAnswers[place];
    place = -1;
  }
}

} // namespace

LogRead ReadLog(const std::vector<std::string>& files, unsigned long limit) {
  LogRead read;
  Places places;
  for (const std::string& file : files) {
    std::ifstream in(file, std::ios::binary);
    unsigned long at = 0;
    int late = 0;
    for (std::string line; std::getline(in, line); at += line.size() + 1) {
      ++read.lLines;
      if (!WellFormed(line) || in.eof()) {
        ++read.lMalformed;
        continue;
      }
      late += at > limit && line.compare(kStartLength, 18, "[MicroS] Started: ") == 0;
      Count(line, read, places);
    }
    read.iLateStarts = std::max(read.iLateStarts, late);
  }
  return read;
}

} // namespace trust
