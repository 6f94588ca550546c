// The fuzzer of one target:  zat_fuzz --target=NAME [libFuzzer's options and directories]
#include <cstring>

#include "fuzz.h"

namespace {

const fuzz::Target* chosen = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  constexpr std::string_view kOption = "--target="; // libFuzzer leaves options with two dashes alone
  for (int i = 1; i < *argc; ++i)
    for (const fuzz::Target& target : fuzz::Targets())
      if ((*argv)[i] == std::string(kOption) + target.name) chosen = &target;
  if (chosen) return 0;
  for (const fuzz::Target& target : fuzz::Targets()) puts(target.name);
  exit(*argc > 1 && !strcmp((*argv)[1], "--list") ? 0 : 2);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  chosen->tryOne({data, size});
  return 0;
}
