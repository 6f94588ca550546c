// The 40 parameters of a payment in the store, beside the same in a std::map and in a nlohmann-json object:
// building it, finding every value, replacing every value by a longer one, and the bytes that it takes.
#include "EFTPMisc.h"
#include "count_alloc.h"
#include <benchmark/benchmark.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

namespace {

typedef std::pair<std::string, std::string> tParam;

const std::vector<tParam>& Payment() {
  static const std::vector<tParam> params = {
      {abisTMtid, "0012345678"},
      {abisTMmid, "000000123456789"},
      {abisTMgid, "01"},
      {abisTRamt, "000000125000"},
      {abisTRccd, "643"},
      {abisTRtyp, "1"},
      {abisTRtypR, "0"},
      {abisTRchq, "004217"},
      {abisTRdtt, "20261121101530"},
      {abisTRtr2, "4000001234567899=25121011234567890"},
      {abisTRpan, "4000001234567899"},
      {abisTRedt, "2512"},
      {abisTRscd, "101"},
      {abisTRenm, "10"},
      {abisTRcnd, "0"},
      {abisTRpnm, "12"},
      {abisTRrfn, "632510004217"},
      {abisTRacd, "A12345"},
      {abisTRaam, "000000125000"},
      {abisTRreg, "1"},
      {abisTRmdt, "20261121101531"},
      {abisTRpex, "4000001234567899=2512"},
      {abisTRsha, "9F86D081884C7D65"},
      {abisA7type, "000000"},
      {abisA7trn, "004217"},
      {abisA7chn, "0001"},
      {abisA7rcd, "00"},
      {abisA7arc, "A12345"},
      {abisA7msg, "APPROVED"},
      {abisA7ctp, "VISA"},
      {abisA7rst, "1"},
      {abisEFcod, "1"},
      {abisEFrcd, "00"},
      {abisEFctp, "VISA CLASSIC"},
      {abisEFmsg, "APPROVED A12345"},
      {abisEFecd, "00"},
      {abisEFsln, "1"},
      {abisEFfin, "0"},
      {abisEFrep, "1"},
      {abisEFwid, "60"},
  };
  return params;
}

// The three ways to keep parameters, with the same two operations.
struct Store {
  SqueezeT o;
  void Put(const std::string& key, const std::string& value) { o.PutData(key, value.data(), value.size()); }
  bool Get(const std::string& key, std::string& value) { return o.GetData(o.Find(key), &value) == eDTpdata; }
};

struct Map {
  std::map<std::string, std::string> o;
  void Put(const std::string& key, const std::string& value) { o[key] = value; }
  bool Get(const std::string& key, std::string& value) {
    auto it = o.find(key);
    if (it == o.end()) return false;
    value = it->second;
    return true;
  }
};

struct Json {
  nlohmann::json o = nlohmann::json::object();
  void Put(const std::string& key, const std::string& value) { o[key] = value; }
  bool Get(const std::string& key, std::string& value) {
    auto it = o.find(key);
    if (it == o.end()) return false;
    value = it->get_ref<const std::string&>();
    return true;
  }
};

template<class K> void Fill(K& kept) {
  for (const tParam& param : Payment()) kept.Put(param.first, param.second);
}

template<class K> void Build(benchmark::State& state) {
  for (auto _ : state) {
    K kept;
    Fill(kept);
    benchmark::DoNotOptimize(kept);
  }
  size_t before = bench::lLiveBytes;
  auto kept = std::make_unique<K>();
  Fill(*kept);
  state.counters["bytes"] = static_cast<double>(bench::lLiveBytes - before);
}

template<class K> void Find(benchmark::State& state) {
  K kept;
  Fill(kept);
  std::string value;
  for (auto _ : state)
    for (const tParam& param : Payment()) {
      if (!kept.Get(param.first, value)) state.SkipWithError("a parameter is missing");
      benchmark::DoNotOptimize(value);
    }
}

template<class K> void Replace(benchmark::State& state) {
  K kept;
  Fill(kept);
  std::vector<tParam> longer = Payment();
  for (tParam& param : longer) param.second += "+";
  bool turn = false;
  for (auto _ : state) {
    for (const tParam& param : turn ? Payment() : longer) kept.Put(param.first, param.second);
    turn = !turn;
  }
}

// A payment from its first parameter to the end: built, every value read once, every value replaced once.
template<class K> void Whole(benchmark::State& state) {
  std::vector<tParam> longer = Payment();
  for (tParam& param : longer) param.second += "+";
  std::string value;
  for (auto _ : state) {
    K kept;
    Fill(kept);
    for (const tParam& param : Payment()) kept.Get(param.first, value);
    for (const tParam& param : longer) kept.Put(param.first, param.second);
    benchmark::DoNotOptimize(kept);
  }
}

BENCHMARK(Build<Store>)->Name("Store/Build/squeeze");
BENCHMARK(Build<Map>)->Name("Store/Build/map");
BENCHMARK(Build<Json>)->Name("Store/Build/json");
BENCHMARK(Find<Store>)->Name("Store/Find/squeeze");
BENCHMARK(Find<Map>)->Name("Store/Find/map");
BENCHMARK(Find<Json>)->Name("Store/Find/json");
BENCHMARK(Replace<Store>)->Name("Store/Replace/squeeze");
BENCHMARK(Replace<Map>)->Name("Store/Replace/map");
BENCHMARK(Replace<Json>)->Name("Store/Replace/json");
BENCHMARK(Whole<Store>)->Name("Store/Whole/squeeze");
BENCHMARK(Whole<Map>)->Name("Store/Whole/map");
BENCHMARK(Whole<Json>)->Name("Store/Whole/json");

} // namespace
