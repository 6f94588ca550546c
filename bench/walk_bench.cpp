// A download directory of 10,000 files, walked for their times and for the updates among them, beside reading the
// directory and looking at each file.
#include "scratch.h"
#include "updtlist.h"
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kFiles = 10000;

// Updates 00000001.000 to 00002710.000.
class Download : public Scratch {
public:
  Download() {
    for (int i = 1; i <= kFiles; ++i) close(creat((*this / fmt::format("{:08X}.000", i)).c_str(), 0666));
  }
};

std::string Path() {
  static const Download download;
  return download / "";
}

void Times(benchmark::State& state) {
  const std::string path = Path();
  for (auto _ : state) {
    tFSysMpScExtDT times{};
    times.fMaxMin = true;
    if (FSMSDirExtDT(path.c_str(), &times) != 0 || times.oTBf.oMTime == 0) state.SkipWithError("no walk");
    benchmark::DoNotOptimize(times);
  }
}

// As a launcher looks for updates: the last ten are newer than what is installed.
void Updates(benchmark::State& state) {
  const std::string path = Path();
  const std::string installed = fmt::format("{:08X}.000", kFiles - 10);
  const char* const masks[] = {"HHHHHHHH.000", "HHHHHHHH.000.tmp", nullptr};
  const char* const versions[] = {installed.c_str(), nullptr, nullptr};
  for (auto _ : state) {
    tFListData list;
    list.oIn.ppccMaskLine = masks;
    list.oIn.ppccOrigLine = versions;
    if (FSMSMakeFList(path.c_str(), &list, nullptr) != 0 || list.oOut.oSM.size() != 10)
      state.SkipWithError("not the list that was expected");
  }
}

void Bare(benchmark::State& state) {
  const std::string path = Path();
  for (auto _ : state) {
    int files = 0;
    DIR* directory = opendir(path.c_str());
    while (const dirent* entry = readdir(directory)) {
      struct stat info;
      files += fstatat(dirfd(directory), entry->d_name, &info, 0) == 0 && S_ISREG(info.st_mode);
    }
    closedir(directory);
    if (files != kFiles) state.SkipWithError("not the files that were made");
  }
}

BENCHMARK(Times)->Name("Walk/10000/times")->Unit(benchmark::kMillisecond);
BENCHMARK(Updates)->Name("Walk/10000/updates")->Unit(benchmark::kMillisecond);
BENCHMARK(Bare)->Name("Walk/10000/readdir+fstatat")->Unit(benchmark::kMillisecond);

} // namespace
