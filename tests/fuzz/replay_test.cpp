// Every trial worth keeping, once more: what the fuzzer found to go new ways through the code, and what once broke it.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ostream>

#include <gtest/gtest.h>

#include "fuzz.h"

namespace fuzz {

void PrintTo(const Target& target, std::ostream* out) { *out << target.name; } // in the names of the cases

} // namespace fuzz

namespace {

class Corpus : public testing::TestWithParam<fuzz::Target> {};

TEST_P(Corpus, Replays) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(ZAT_FUZZ_CORPUS "/") + GetParam().name))
    files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  EXPECT_FALSE(files.empty());
  for (const auto& file : files) {
    fprintf(stderr, "%s\n", file.c_str()); // the last one named is the one that broke the program
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    GetParam().tryOne({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(fuzz::Targets()),
                         [](const auto& row) { return std::string(row.param.name); });

} // namespace
