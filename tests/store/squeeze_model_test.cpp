// Random operations on a store beside a model that shares nothing with it: nested vectors, and the sizes by
// arithmetic. After each operation the whole tree is compared and the invariants are checked.
#include "EFTPMisc.h"
#include "odd_alloc.h"
#include <gtest/gtest.h>
#include <random>

namespace {

typedef basic_squeezet<char, OddAlloc<char>> Store;

struct Node {
  std::string tag, value;
  int type = eDTnode;
  std::vector<Node> kids;
  uint64_t Nodes() const {
    uint64_t n = 1;
    for (const Node& kid : kids) n += kid.Nodes();
    return n;
  }
  uint64_t Bytes() const {
    uint64_t n = 2 + tag.size() + value.size();
    for (const Node& kid : kids) n += kid.Bytes();
    return n;
  }
};

// The top is a nameless node whose own 2 bytes stand for nothing.
struct Model {
  Node top;
  uint64_t size, step, empty = 0;

  uint64_t Used() const { return 32 * (top.Nodes() + empty) + top.Bytes() - 2; }

  // Takes a record and length bytes; what a refusal leaves behind is left behind here too.
  bool Take(uint64_t length, bool grow = true) {
    for (;;) {
      if (empty == 0 && size - Used() >= 32) ++empty;
      if (empty > 0 && size - Used() >= length) break;
      if (step == 0 || !grow) return false;
      step = std::max(step, length);
      size += step;
    }
    --empty;
    return true;
  }

  static Node* Child(Node& parent, const std::string& tag) {
    for (Node& kid : parent.kids)
      if (kid.tag == tag) return &kid;
    return nullptr;
  }
  static Node* Insert(Node& parent, Node kid) {
    return &*parent.kids.insert(parent.kids.begin() + (parent.kids.empty() ? 0 : 1), std::move(kid));
  }

  bool Put(const std::vector<std::string>& path, const std::string& value, int type) {
    Node* at = &top;
    for (size_t i = 0; i + 1 < path.size(); ++i) {
      Node* next = Child(*at, path[i]);
      if (!next && !Take(2 + path[i].size())) return false;
      at = next ? next : Insert(*at, {path[i], "", eDTnode, {}});
    }
    if (Node* old = Child(*at, path.back())) Erase(*at, *old);
    if (!Take(2 + path.back().size() + value.size())) return false;
    Insert(*at, {path.back(), value, value.empty() && type != eDTnode ? int{eDTpempel} : type, {}});
    return true;
  }
  void Erase(Node& parent, Node& kid) {
    parent.kids.erase(parent.kids.begin() + (&kid - parent.kids.data()));
    empty = 0;
  }
  Node* Find(const std::vector<std::string>& path, Node** ppoParent = nullptr) {
    Node* at = &top;
    for (const std::string& tag : path) {
      if (ppoParent) *ppoParent = at;
      at = Child(*at, tag);
      if (!at) return nullptr;
    }
    return at;
  }
  void Squeeze() {
    empty = 0;
    if (step != 0) size = Used();
  }
};

class Pair {
public:
  Pair(uint64_t nSize, uint64_t nStep, unsigned seed)
      : oStore(nSize, nStep), oModel{{}, nSize, nStep}, random(seed) {}

  void Operation() {
    std::vector<std::string> path;
    std::string dotted, value(random() % (random() % 8 ? 12 : 70), static_cast<char>('0' + random() % 10));
    for (size_t deep = 1 + random() % 4; deep; --deep) {
      path.push_back(std::string(1 + random() % 2, static_cast<char>('a' + random() % 3)));
      dotted += (dotted.empty() ? "" : ".") + path.back();
    }
    SSqueeze before = oStore.Find(dotted);
    switch (random() % 16) {
    default: {
      SSqueeze id = oStore.PutData(dotted, value.data(), value.size());
      ASSERT_EQ(id.ss_get() != nullptr, oModel.Put(path, value, eDTpdata)) << dotted;
      ASSERT_EQ(oStore.GetData(before), eDTnull);
      break;
    }
    case 0: {
      long number = static_cast<long>(random());
      SSqueeze id = oStore.PutLong(dotted, number);
      ASSERT_EQ(id.ss_get() != nullptr, oModel.Put(path, {reinterpret_cast<char*>(&number), 8}, eDTlong))
          << dotted;
      break;
    }
    case 1:
    case 2:
    case 3: Delete(dotted, path); break;
    case 4:
      oStore.mem_squeeze();
      oModel.Squeeze();
      break;
    case 5: Lookup(dotted, path, before); break;
    case 7: {
      Store copy(oStore);
      oStore = Store(32, 7);
      oStore = copy;
      break;
    }
    case 8: {
      auto* node = oStore.node_putdata(value.data(), value.size(), false);
      ASSERT_EQ(node != nullptr, oModel.Take(value.size(), false));
      bool keep = random() % 2;
      if (node) oStore.node_delete(node, keep);
      oModel.empty += node && keep;
      break;
    }
    }
  }

  void Compare() {
    ASSERT_EQ(oStore.nBuffer, oModel.size);
    ASSERT_EQ(oStore.nStep, oModel.step);
    ASSERT_EQ(oStore.prop_GetEmpty(), oModel.empty);
    ASSERT_EQ(oStore.nBuffer - oStore.mem_freesize(), oModel.Used());
    ASSERT_TRUE(Same(oStore.prop_GetFirst(), oModel.top.kids))
        << zat::SqueezeDump(oStore.pbBuffer, oStore.nBuffer);
    zat::tSqueezeFault fault;
    ASSERT_TRUE(zat::SqueezeCheck(oStore.pbBuffer, oStore.nBuffer, zat::eSCtags, &fault)) << fault.pccWhat;
  }

private:
  void Delete(const std::string& dotted, const std::vector<std::string>& path) {
    Node* parent = nullptr;
    Node* kid = oModel.Find(path, &parent);
    auto* node = oStore.FindEx(dotted, nullptr, true);
    ASSERT_EQ(node != nullptr, kid != nullptr) << dotted;
    if (!node) return;
    oStore.node_deleteall(node);
    oModel.Erase(*parent, *kid);
  }

  void Lookup(const std::string& dotted, const std::vector<std::string>& path, SSqueeze id) {
    Node* kid = oModel.Find(path);
    ASSERT_EQ(oStore.GetData(id, &sValue, &sTag), kid ? kid->type : int{eDTnull}) << dotted;
    auto* first = oStore.node_get(oStore.prop_GetFirst());
    ASSERT_EQ(oStore.Searcher(oStore.prop_GetFirst() != 0 ? first : nullptr, dotted, false), id.ss_get());
  }

  bool Same(uint64_t number, const std::vector<Node>& chain) {
    for (const Node& kid : chain) {
      auto* node = number != 0 ? oStore.node_get(number) : nullptr;
      if (!node || oStore.GetDataEx(node, &sValue, &sTag) != kid.type || sTag != kid.tag ||
          sValue != kid.value)
        return false;
      if (!Same(oStore.prop_GetDown(node), kid.kids)) return false;
      number = oStore.prop_GetRight(node);
    }
    return number == 0;
  }

  Store oStore;
  Model oModel;
  std::mt19937 random;
  std::string sValue, sTag;
};

struct Shape {
  const char* name;
  uint64_t size, step;
};
class SqueezeModel : public testing::TestWithParam<Shape> {};

TEST_P(SqueezeModel, AgreesStepByStep) {
  zat::SqueezeGuard::fEnabled = false; // every step is checked below
  for (unsigned seed = 1; seed <= 4 && !HasFatalFailure(); ++seed) {
    Pair pair(GetParam().size, GetParam().step, seed);
    for (int i = 0; i < 10000 && !HasFatalFailure(); ++i) {
      pair.Operation();
      pair.Compare();
    }
  }
  zat::SqueezeGuard::fEnabled = true;
  EXPECT_FALSE(OddMemory::fBroken);
  EXPECT_EQ(OddMemory::nLive, 0u);
}

INSTANTIATE_TEST_SUITE_P(Stores, SqueezeModel,
                         testing::Values(Shape{"Growing", 256, 256}, Shape{"GrowingByBytes", 32, 1},
                                         Shape{"GrowingOdd", 77, 51}, Shape{"FixedTiny", 150, 0},
                                         Shape{"FixedRunningFull", 900, 0}),
                         [](const auto& o) { return std::string(o.param.name); });

} // namespace
