// A till for tests: an installation with the scripted module, the object loaded from it, one session, and the
// answer of the last call.
#pragma once
#include <cstring>
#include <string>

#include "EFTPWork.h"
#include "installation.h"

inline const std::string kTid = "0000000123";

// A message: header and data. A work id is given by its two characters.
inline std::string Message(const char* workId, const std::string& data = "", const std::string& tid = kTid) {
  std::string message;
  EFTPMakeHeader(message, static_cast<tEFTPWorkId>(EFTPWId(workId[0], workId[1])), &tid, &data);
  return message;
}

inline std::string Hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string hex;
  for (unsigned char c : bytes) {
    hex += kDigits[c >> 4];
    hex += kDigits[c & 0xF];
  }
  return hex;
}

inline std::string Block(const std::string& bytes) { return "block " + Hex(bytes) + "\n"; }
inline const std::string kGreet = Block("scripted 1") + "read\n";
inline const std::string kEndOk = Block(Message("#0"));
inline const std::string kEndBad = Block(Message("#1"));

class TestTill : public Installation {
public:
  explicit TestTill(const std::string& script, const char* settings = nullptr, bool module = true)
      : Installation(module ? ZAT_SCRIPTED_MODULE : "") {
    Put("module.script", script);
    if (settings) Put("micromgl.cfg", settings);
    lib = std::make_unique<LoadedObject>(Library());
    session = lib->handle ? lib->create(nullptr) : nullptr;
  }
  ~TestTill() {
    if (session) lib->destroy(session);
  }

  // One call; the answer buffer is zeroed before. An empty request polls.
  int Call(const std::string& request = "", FUN_IDLE idle = nullptr, void* data = nullptr) {
    std::string copy = request;
    memset(buffer, 0, sizeof buffer);
    return lib->call(session, request.empty() ? nullptr : copy.data(), buffer, idle, data);
  }

  // The answer of the last call, by its own header; empty when nothing was written.
  std::string Answer() const {
    if (!buffer[0]) return "";
    size_t length = EFTPParsDLen(reinterpret_cast<const unsigned char*>(buffer) + 12, 2, nullptr);
    return std::string(buffer, 14 + length);
  }

  // What the module got: one line for each request (in hexadecimal) and argument.
  std::string Got() const { return Get("module.got"); }

  std::unique_ptr<LoadedObject> lib;
  void* session = nullptr;
  char buffer[2048] = {};
};
