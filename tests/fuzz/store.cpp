// The parameter store: a program of puts, finds, deletions and copies beside a model; and the same program on a store
// whose bytes somebody has changed.
#include <cstdlib>
#include <map>
#include <new>

#include "EFTPMisc.h"
#include "fuzz.h"

namespace {

struct Value {
  int type;
  std::string bytes;
};
// Blocks that are just as long as was asked for, so that the sanitizer sees the first byte behind them; and none beyond a
// limit.
size_t limit = ~size_t{0};
template<class T> struct TightAlloc {
  typedef T value_type;
  T* allocate(size_t n) {
    void* memory = n > limit ? nullptr : malloc(n);
    if (!memory) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }
  void deallocate(T* p, size_t) { free(p); }
};
typedef basic_squeezet<char, TightAlloc<char>> TightStore;

// Every node by its path. It shares nothing with the store: the sizes, the places and the order are not in it.
typedef std::map<std::string, Value> Model;

// A path of the letters a to c, dots where they may and may not be.
std::string Path(fuzz::Bytes& in) {
  std::string path;
  for (unsigned length = in.Below(10); length; --length) path += "abc.ab.c"[in.Below(8)];
  return path;
}

bool IsPath(const std::string& path) {
  return !path.empty() && path[0] != '.' && path.find("..") == std::string::npos;
}

void Erase(Model& model, const std::string& path) {
  std::erase_if(model,
                [&](const auto& node) { return node.first == path || node.first.starts_with(path + "."); });
}

// What the store promises for a put that finds room: the inner nodes, and a fresh node in the place of the old one with
// all that was below it. True when there is a value afterwards.
bool Put(Model& model, const std::string& path, Value value) {
  if (!IsPath(path)) return false;
  for (size_t dot = path.find('.'); dot != path.npos; dot = path.find('.', dot + 1))
    model.try_emplace(path.substr(0, dot), Value{eDTnode, ""});
  if (path.back() == '.') return false;
  Erase(model, path);
  if (value.bytes.empty()) value.type = eDTpempel;
  model[path] = value;
  return true;
}

// Whether a put without a result has still made all the nodes that the path asks for.
template<class Store> bool Roomy(const Store& store, const std::string& path) {
  return store.nStep != 0 || !IsPath(path);
}

void Same(SqueezeT& store, const Model& model) {
  FUZZ_HOLDS(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags));
  FUZZ_HOLDS(store.prop_GetNodsNum() - 1 - store.prop_GetEmpty() == model.size());
  for (const auto& [path, value] : model) {
    std::string bytes, tag;
    FUZZ_HOLDS(store.GetData(store.Find(path), &bytes, &tag) == value.type && bytes == value.bytes);
    FUZZ_HOLDS(path.ends_with(tag));
  }
}

// One operation on both. False when the store had no room: what it then lost is its own affair.
template<class Store> bool Step(Store& store, Model& model, fuzz::Bytes& in) {
  const unsigned kind = in.Below(8);
  const std::string path = Path(in);
  const auto known = model.find(path);
  if (kind < 3) {
    const std::string bytes = in.Text(in.Below(100));
    const bool put = store.PutData(path, bytes.data(), bytes.size()).ss_get() != nullptr;
    const bool wanted = Put(model, path, {eDTpdata, bytes});
    FUZZ_HOLDS(!put || wanted);
    return put || (!wanted && Roomy(store, path));
  }
  if (kind == 3) {
    const long number = static_cast<long>(in.Word());
    const bool put = store.PutLong(path, number).ss_get() != nullptr;
    const bool wanted = Put(model, path, {eDTlong, {reinterpret_cast<const char*>(&number), sizeof number}});
    long read = -1;
    FUZZ_HOLDS(!put || (wanted && store.GetLong(store.Find(path), read) == eDTlong && read == number));
    return put || (!wanted && Roomy(store, path));
  }
  if (kind == 4) {
    if (auto* node = store.FindEx(path, nullptr, true)) store.node_deleteall(node);
    Erase(model, path);
  }
  if (kind == 5) store.mem_squeeze();
  if (kind == 6) {
    Store copy(store);
    store = Store(32, store.nStep);
    store = copy;
  }
  if (kind == 7) FUZZ_HOLDS((store.Find(path).ss_get() != nullptr) == (known != model.end()));
  return true;
}

template<class Store> Store Fresh(fuzz::Bytes& in) {
  const unsigned size = 32 + in.Byte() * 4;
  return Store(size, in.Below(64));
}

// Everything that reads or writes, without a look at the results: they need only end, inside the buffer.
void UseAll(TightStore& store, const std::string& path) {
  std::string text;
  long number;
  store.GetLong(store.Find(path), number);
  for (uint64_t n = 0; n < 16; ++n) {
    auto* node = store.node_get(n);
    if (!node) break;
    store.GetDataEx(node, &text, nullptr);
    store.Searcher(node, path, false);
    store.SearcherUni(node, path, 1, path.size() % 4, node, n & 1, false);
    char part[64] = {};
    store.prop_GetData(node, n & 2 ? part : nullptr, n * 4);
    store.prop_PutData(node, n & 2 ? part : nullptr,
                       store.prop_GetDataLen(node) < sizeof part ? store.prop_GetDataLen(node) : 0);
    store.LinkData(node, path, nullptr, n & 1, n & 4 ? eDTnode : static_cast<tDataType>(3), true);
  }
  FUZZ_HOLDS(!store.node_putdata(nullptr, 1, true) && !store.PutDataEx("a", nullptr, 1, eDTpdata));
  const TightStore& self = store;
  store = self;
  TightStore other(64, 0);
  other = store;
  if (auto* node = store.node_get(1)) store.SearcherUni(node, "", 1, 0, node, false, false);
  zat::SqueezeDump(store.pbBuffer, store.nBuffer);
}

} // namespace

FUZZ_TARGET(store) {
  SqueezeT store = Fresh<SqueezeT>(in);
  Model model;
  bool room = true;
  while (room && !in.Empty()) {
    room = Step(store, model, in);
    if (room) Same(store, model);
  }
  FUZZ_HOLDS(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags));
}

FUZZ_TARGET(damage) {
  zat::SqueezeGuard::fEnabled = false; // sound before is not sound after, when the damage comes in between
  const unsigned memory = in.Byte();
  TightStore store = Fresh<TightStore>(in);
  Model ignored;
  for (unsigned steps = in.Below(8); steps && Step(store, ignored, in); --steps) {}
  limit = memory & 1 ? memory * 8 : ~size_t{0}; // a longer block is refused from now on
  while (!in.Empty()) {
    for (unsigned words = in.Below(4); words && store.pbBuffer; --words) {
      const uint64_t at = in.Word() % store.nBuffer;
      const unsigned kind = in.Byte();
      if (kind & 1)
        store.pbBuffer[at] = static_cast<char>(kind);
      else if (at + 8 <= store.nBuffer) // a word: a small one, one near the end, a huge one
        zat::PutWord(store.pbBuffer + at / 8 * 8, 0,
                     kind & 2   ? in.Word()
                     : kind & 4 ? store.nBuffer - kind / 8
                                : ~uint64_t{kind});
    }
    const std::string path = Path(in), bytes = in.Text(in.Below(40));
    switch (in.Below(8)) {
    case 0: store.PutData(path, bytes.data(), bytes.size()); break;
    case 1:
      if (auto* node = store.FindEx(path, nullptr, true)) store.node_deleteall(node);
      break;
    case 2: store.mem_squeeze(); break;
    case 3: store.node_delete(store.node_get(in.Byte()), in.Byte() & 1); break;
    case 4:
      store.LinkNode(store.node_get(in.Byte()), store.node_putdata(bytes.data(), bytes.size(), true),
                     in.Byte() & 1);
      break;
    case 5: store.Unlink(store.node_get(in.Byte()), store.node_get(in.Byte())); break;
    case 6:
      if (auto* node = store.node_get(in.Byte())) store.SearcherUni(node, path, 1, 0, node, false, true);
      break;
    case 7: store = TightStore(store); break;
    }
    UseAll(store, path);
  }
  limit = ~size_t{0};
  zat::SqueezeGuard::fEnabled = true;
}
