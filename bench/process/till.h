// A till for measurements: an installation in a scratch directory, the object loaded from it, one session.
#pragma once
#include "answer.h"
#include "installation.h"
#include <fmt/core.h>
#include <stdexcept>

namespace bench {

constexpr char kModule[] = ZAT_BENCH_DIR "/bench_module";
constexpr char kSimulator[] = ZAT_INSTALLATION "/BIN/zat_mm";

// A message: header and data, at most 254 bytes of it.
inline std::string Message(const char* workId, const std::string& data, const std::string& id = kId) {
  return fmt::format("{}{}{:02X}{}", workId, id, data.size(), data);
}

// A request to bench_module: work for so long, then answer with a block of that kind.
inline std::string Order(unsigned us, const char* workId, const std::string& id = kId) {
  return Message("10", fmt::format("{} {}", us, workId), id);
}

// Settings with a log level: 'L' writes nothing when all goes well, 'M' is what a shop gets.
class Shop : public Installation {
public:
  explicit Shop(const std::string& module, char level = 'M') : Installation(module) {
    Put("micromgl.cfg", fmt::format("[ENV]\nLOGLEVEL={}\n[TILL]\nBREAK=1\n", level));
    setenv("ZAT_L_LEVEL", std::string(1, level).c_str(), 1);
  }
};

class Till {
public:
  explicit Till(const Shop& shop) : object(shop.Library()) {
    session = object.handle ? object.create(nullptr) : nullptr;
    if (!session) throw std::runtime_error("the object does not load");
  }
  ~Till() {
    if (session) object.destroy(session);
  }

  // One call; an empty request polls. The block is then in `answer`.
  int Call(const std::string& request, FUN_IDLE idle = nullptr, void* data = nullptr) {
    std::string copy = request;
    const int result = object.call(session, request.empty() ? nullptr : copy.data(), answer, idle, data);
    returned = NowNs();
    return result;
  }

  // A request that is answered with one block and leaves the exchange open.
  void Ask(const std::string& request, FUN_IDLE idle = nullptr, void* data = nullptr) {
    memset(answer, 0, kHeader);
    if (Call(request, idle, data) != ZAT_MS_MORE)
      throw std::runtime_error("the module did not answer: " + std::string(answer, kHeader + 30));
  }

  char answer[ZAT_MS_BUFFER] = {};
  int64_t returned = 0; // when the last call did

private:
  LoadedObject object;
  void* session = nullptr;
};

} // namespace bench
