// A payment library that plays a script, so that a till can be shown everything a library may ever answer. It
// shares no code with the real one.
//
// The file named by FAKE_SCRIPT holds one step a line; a call of eftp_do plays steps up to one that returns. Each
// request, "create" with the configuration path and "destroy" become lines of the file named by FAKE_RECORD.
//
//   block ID DATA    returns a block, "\e" in the data is an ESC
//   empty            returns as with a block, but leaves the buffer alone
//   good, bad        the end; bad leaves the "XA" block
//   stop XN TEXT     refused or lost
//   pause            too early: the refusal and the "XA" block over it
//   old N            an old-style result; old 10 with "pause" behind it leaves the refusal of the pause
//   sleep MS         waits and never calls back
//   idle MS          waits and calls back; a break asked for goes on behind the line "broken", else behind this one
//   mark TEXT        writes a line into the record
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "zat_ms.h"

#define FAKE_API extern "C" __attribute__((visibility("default")))

namespace {

constexpr char kTid[] = "0000000001";
constexpr char kPause[] = "I3Timeout violation between inquiries from cash desk";
std::ifstream oScript;
int iSession;

void Record(const std::string& line) {
  if (const char* name = getenv("FAKE_RECORD"))
    std::ofstream(name, std::ios::app | std::ios::binary) << line << "\n";
}

std::string Escapes(std::string text) {
  for (size_t at; (at = text.find("\\e")) != text.npos;) text.replace(at, 2, "\x1B");
  return text;
}

void Put(char* answer, const std::string& id, const std::string& data) {
  char length[3];
  snprintf(length, sizeof length, "%02X", static_cast<unsigned>(data.size()));
  std::string block = id + kTid + length + data;
  memcpy(answer, block.data(), block.size());
}

// True when a break was asked for; the script then stands behind "broken".
bool WaitIdle(int ms, FUN_IDLE idle, void* data) {
  for (int i = 0; i < ms; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
    if (!idle || !idle(data)) continue;
    Record("break");
    for (std::string line; std::getline(oScript, line) && line != "broken";) {}
    return true;
  }
  return false;
}

struct Step {
  std::string oWord, oFirst, oRest;
  explicit Step(const std::string& line) {
    std::istringstream in(line);
    in >> oWord >> oFirst;
    std::getline(in.ignore(1), oRest);
  }
};

// The result of a step, or -1 when the script goes on.
int Play(const Step& step, char* answer, FUN_IDLE idle, void* data) {
  if (step.oWord == "block") return Put(answer, step.oFirst, Escapes(step.oRest)), 0;
  if (step.oWord == "empty") return 0;
  if (step.oWord == "good") return 9;
  if (step.oWord == "bad") return Put(answer, "5X", "XAbad final"), 9;
  if (step.oWord == "stop") return Put(answer, "5X", step.oFirst + step.oRest), 9;
  if (step.oWord == "pause") return Put(answer, "5X", kPause), Put(answer, "5X", "XAbad final"), 9;
  if (step.oWord == "old" && step.oRest == "pause") Put(answer, "5X", kPause);
  if (step.oWord == "old") return std::stoi(step.oFirst);
  if (step.oWord == "sleep") std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(step.oFirst)));
  if (step.oWord == "idle") WaitIdle(std::stoi(step.oFirst), idle, data);
  if (step.oWord == "mark") Record(step.oFirst);
  return -1;
}

} // namespace

FAKE_API void* eftp_create(char* path) {
  Record(std::string("create ") + (path ? path : "(null)"));
  if (!oScript.is_open())
    oScript.open(getenv("FAKE_SCRIPT"), std::ios::binary); // a second session goes on with it
  return getenv("FAKE_NO_SESSION") ? nullptr : &iSession;
}

FAKE_API void eftp_destroy(void*) { Record("destroy"); }

FAKE_API int eftp_do(void*, char* request, char* answer, FUN_IDLE idle, void* data) {
  if (request) Record(std::string("request ") + request);
  for (std::string line; std::getline(oScript, line);)
    if (int result = Play(Step(line), answer, idle, data); result >= 0) return result;
  Record("script is over");
  abort();
}
