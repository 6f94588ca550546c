// A shop for the measurements: an installation with the simulated terminal, and sales in it.
#pragma once
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>

#include <fmt/core.h>

#include "installation.h"

namespace trust {

constexpr char kBin[] = ZAT_INSTALLATION "/BIN/";

class Shop : public Installation {
public:
  explicit Shop(const std::string& settings = "[ENV]\nLOGLEVEL=H\n")
      : Installation(std::string(kBin) + "zat_mm") {
    Put("micromgl.cfg", settings);
  }

  // Forgets the sales of a terminal: the simulated one keeps a day file that each sale makes longer.
  void NewDay(const std::string& id) const {
    std::error_code none;
    std::filesystem::remove(*this / ("simulator-" + id.substr(id.find_first_not_of('0')) + ".day"), none);
  }
};

enum class Sale {
  paid,    // approved, and a good end
  refused, // before anything reached the terminal: the till may ask again
  unclear, // anything else
};

// A sale of 12.50 with a card that the till has read itself, so that nothing is waited for. `turn` is held for each
// call, because the calls of one process come one at a time; null where there is one caller only. The number of calls
// is added to *piCalls. `between` happens after the first of them.
inline Sale Sell(const LoadedObject& object, void* session, const std::string& id, std::mutex* turn = nullptr,
                 int* piCalls = nullptr, const std::function<void()>& between = nullptr) {
  const std::string data = "0000000012504000001234567899=2512101123";
  std::string request = fmt::format("10{}{:02X}{}", id, data.size(), data);
  char answer[ZAT_MS_BUFFER];
  bool approved = false;
  int calls = 0, result;
  do {
    memset(answer, 0, sizeof answer);
    std::unique_lock<std::mutex> mine;
    if (turn) mine = std::unique_lock(*turn);
    result = object.call(session, calls++ == 0 ? request.data() : nullptr, answer, nullptr, nullptr);
    constexpr int kCodeAt = ZAT_MS_HEADER + 1 + 12 + 3 + 14 + 15 + 12;
    if (memcmp(answer, "60", 2) == 0) approved = memcmp(answer + kCodeAt, "00", 2) == 0;
    if (calls == 1 && between) between();
  } while (result == ZAT_MS_MORE);
  if (piCalls) *piCalls += calls;
  if (result == ZAT_MS_END && answer[0] == 0 && approved) return Sale::paid;
  const char* const code = answer + ZAT_MS_HEADER;
  const bool nothingSent = memcmp(code, ZAT_MS_PIPES, 2) == 0 || memcmp(code, ZAT_MS_NO_MODULE, 2) == 0;
  return result == ZAT_MS_END && calls == 1 && memcmp(answer, "5X", 2) == 0 && nothingSent ? Sale::refused
                                                                                           : Sale::unclear;
}

} // namespace trust
