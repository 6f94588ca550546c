// A "60" response built from a store and parsed into one, beside copying its bytes. "allocs" is the number of
// heap allocations per message, "fields" how many parameters it has.
#include "EFTPTable.h"
#include "EFTPWork.h"
#include "SLogger.h"
#include "count_alloc.h"
#include <benchmark/benchmark.h>
#include <cstring>

namespace {

void Fill(SqueezeT& store) {
  const std::pair<const char*, std::string> params[] = {
      {abisTMtid, "0012345678"},     {abisEFcod, "0"},
      {abisTRamt, "000000125000"},   {abisTRccd, "643"},
      {abisTRdtt, "20261121101530"}, {abisTMmid, "000000123456789"},
      {abisTRrfn, "632510004217"},   {abisEFrcd, "00"},
      {abisTRacd, "A12345"},         {abisTRpex, "4000001234567899=2512"},
      {abisEFctp, "VISA CLASSIC"},   {abisEFmsg, "APPROVED, THANK YOU FOR YOUR PURCHASE"},
  };
  for (const auto& [tag, value] : params) store.PutData(tag, value.data(), value.size());
}

tString Response() {
  SqueezeT store;
  Fill(store);
  tPadsData pads{&store, nullptr, eEFTPwidRespons, nullptr};
  tString data;
  if (!EFTPMakeData(&pads, data)) std::abort(); // the table has changed: mend the parameters above
  return data;
}

// Runs a piece of work in the benchmark's loop and counts what it allocates.
template<class Work> void Measure(benchmark::State& state, size_t bytes, Work work) {
  if (SLogger::ItIsMe(poGSLog)) poGSLog->close(); // not measured: the log of an installation around it
  const size_t before = bench::lAllocations;
  for (auto _ : state) work();
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(bench::lAllocations - before) /
                                                static_cast<double>(state.iterations()));
  state.counters["fields"] = static_cast<double>(zat::EFTPRowOf(eEFTPwidRespons)->oFields.size());
}

void CodecCopy(benchmark::State& state) {
  const tString data = Response();
  char to[2048];
  Measure(state, data.size(), [&] {
    memcpy(to, data.data(), data.size());
    benchmark::DoNotOptimize(to);
    benchmark::ClobberMemory();
  });
}
BENCHMARK(CodecCopy);

// Data part alone, the text kept from message to message.
void CodecBuild(benchmark::State& state) {
  SqueezeT store;
  Fill(store);
  tPadsData pads{&store, nullptr, eEFTPwidRespons, nullptr};
  tString data;
  Measure(state, Response().size(), [&] {
    EFTPMakeData(&pads, data);
    benchmark::DoNotOptimize(data.data());
  });
}
BENCHMARK(CodecBuild);

// The whole frame in a port's buffer.
void CodecBuildFrame(benchmark::State& state) {
  SqueezeT store;
  Fill(store);
  tPadsData pads{&store, nullptr, eEFTPwidRespons, nullptr};
  auto port = std::make_unique<PortSEtx_tag>();
  EFTPWorkInit(
      port.get(), nullptr, nullptr, [](PortSEtx_tag*, void*, tPortCmd*) -> tBool { return 1; }, true);
  Measure(state, Response().size(), [&] { benchmark::DoNotOptimize(port->MakeCmd(port.get(), &pads)); });
}
BENCHMARK(CodecBuildFrame);

// Into a store made for each message.
void CodecParse(benchmark::State& state) {
  const tString data = Response();
  Measure(state, data.size(), [&] {
    SqueezeT store(2048);
    tEFTPWorkId id = eEFTPwidRespons;
    benchmark::DoNotOptimize(
        EFTPParsData(&store, id, reinterpret_cast<const unsigned char*>(data.data()), data.size()));
  });
}
BENCHMARK(CodecParse);

} // namespace
