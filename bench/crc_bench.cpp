// The checksum over 2000 bytes, beside the usual way to compute it: one byte a step by a table of 256 entries.
#include "MiscFunc.h"
#include <benchmark/benchmark.h>
#include <numeric>
#include <vector>

namespace {

std::vector<unsigned char> Bytes() {
  std::vector<unsigned char> bytes(2000);
  std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
  return bytes;
}

uint16_t ByTable(const void* start, uint16_t length, uint16_t crc) {
  const unsigned char* bytes = static_cast<const unsigned char*>(start);
  for (; length; --length) crc = static_cast<uint16_t>(crc << 8 ^ musCrc16Tab[crc >> 8] ^ *bytes++);
  return crc;
}

template<procCRC crc> void Sum(benchmark::State& state) {
  std::vector<unsigned char> bytes = Bytes();
  const uint16_t length = static_cast<uint16_t>(bytes.size());
  if (crc(bytes.data(), length, 0) != ByTable(bytes.data(), length, 0)) state.SkipWithError("a wrong sum");
  for (auto _ : state) {
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
    benchmark::DoNotOptimize(crc(bytes.data(), length, 0));
  }
  state.SetBytesProcessed(state.iterations() * length);
}

BENCHMARK(Sum<flatcrc16>)->Name("Crc/2000/flatcrc16");
BENCHMARK(Sum<ByTable>)->Name("Crc/2000/table");

} // namespace
