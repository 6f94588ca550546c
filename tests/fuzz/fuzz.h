// Fuzz targets: functions that make one trial of some bytes that come from outside. The fuzzer (engine/) looks for
// bytes that break one; the tests replay the bytes it has found worth keeping (corpus/<target>/).
#pragma once
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// The bytes of one trial, taken from the front. Past their end every number is 0 and every text empty.
class Bytes {
public:
  Bytes(const uint8_t* data, size_t size) : left(reinterpret_cast<const char*>(data), size) {}

  bool Empty() const { return left.empty(); }
  unsigned Byte() {
    if (left.empty()) return 0;
    const unsigned byte = static_cast<unsigned char>(left[0]);
    left.remove_prefix(1);
    return byte;
  }
  unsigned Below(unsigned limit) { return Byte() % limit; }
  unsigned Word() {
    const unsigned low = Byte();
    return low | Byte() << 8;
  }
  // A copy of its own, so that the sanitizer sees a read beyond its end.
  std::string Text(size_t length) {
    std::string text(left.substr(0, length));
    left.remove_prefix(text.size());
    return text;
  }
  // A text as long as the byte before it says.
  std::string Short() { return Text(Byte()); }
  std::string Rest() { return Text(left.size()); }

private:
  std::string_view left;
};

struct Target {
  const char* name;
  void (*tryOne)(Bytes);
};

// All targets of the program. A function's own variable: targets add themselves before main.
inline std::vector<Target>& Targets() {
  static std::vector<Target> targets;
  return targets;
}
inline bool Add(Target target) {
  Targets().push_back(target);
  return true;
}

// A promise that is kept whatever the bytes are.
inline void Holds(bool kept, const char* promise, int line) {
  if (kept) return;
  fprintf(stderr, "broken promise in line %d: %s\n", line, promise);
  abort();
}

} // namespace fuzz

#define FUZZ_HOLDS(promise) fuzz::Holds(promise, #promise, __LINE__)

// FUZZ_TARGET(name) { ... in ... }: a target of that name, which tries what is in `in`.
#define FUZZ_TARGET(name)                                                                                    \
  static void Try_##name(fuzz::Bytes in);                                                                    \
  [[maybe_unused]] static const bool added_##name = fuzz::Add({#name, &Try_##name});                         \
  static void Try_##name([[maybe_unused]] fuzz::Bytes in)
