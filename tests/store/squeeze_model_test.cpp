// Random operations on a store beside a model that shares nothing with it: nested vectors, and the sizes by
// arithmetic. After each operation the whole tree is compared and the invariants are checked.
#include "EFTPMisc.h"
#include "odd_alloc.h"
#include <gtest/gtest.h>
#include <random>

namespace {

struct Node {
  std::string tag, value;
  int type = eDTnode;
  std::vector<Node> kids;
  uint64_t Size() const { // of the records and blobs from here down
    uint64_t n = 32 + 2 + tag.size() + value.size();
    for (const Node& kid : kids) n += kid.Size();
    return n;
  }
};

// The top is a nameless node whose own 2 bytes stand for nothing.
struct Model {
  Node top;
  uint64_t size, step, empty = 0;

  uint64_t Used() const { return top.Size() - 2 + 32 * empty; }

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
  Node* Find(const std::vector<std::string>& path, Node** ppoParent) {
    Node* at = &top;
    for (size_t i = 0; at && i < path.size(); ++i) at = Child(*(*ppoParent = at), path[i]);
    return at;
  }
};

struct Pair {
  OddStore oStore;
  Model oModel;
  std::mt19937 random;
  std::string sValue, sTag;

  void Operation() {
    std::vector<std::string> path;
    std::string dotted, value(random() % (random() % 8 ? 12 : 70), static_cast<char>('0' + random() % 10));
    for (size_t deep = 1 + random() % 4; deep; --deep) {
      path.push_back(std::string(1 + random() % 2, static_cast<char>('a' + random() % 3)));
      dotted += (dotted.empty() ? "" : ".") + path.back();
    }
    const unsigned kind = random() % 16;
    if (kind < 4) return LookUp(dotted, path, kind != 0);
    if (kind == 4) {
      oStore.mem_squeeze();
      oModel.empty = 0;
      if (oModel.step != 0) oModel.size = oModel.Used();
    } else if (kind == 5) {
      OddStore copy(oStore);
      oStore = OddStore(32, 7);
      oStore = copy;
    } else if (kind == 6) {
      auto* node = oStore.node_putdata(value.data(), value.size(), false);
      ASSERT_EQ(node != nullptr, oModel.Take(value.size(), false));
      bool keep = random() % 2;
      if (node) oStore.node_delete(node, keep);
      oModel.empty += node && keep;
    } else {
      const bool number = kind == 7;
      const long count = static_cast<long>(random());
      if (number) value.assign(reinterpret_cast<const char*>(&count), sizeof count);
      SSqueeze before = oStore.Find(dotted), id = number ? oStore.PutLong(dotted, count)
                                                         : oStore.PutData(dotted, value.data(), value.size());
      ASSERT_EQ(id.ss_get() != nullptr, oModel.Put(path, value, number ? eDTlong : eDTpdata)) << dotted;
      ASSERT_EQ(oStore.GetData(before), eDTnull);
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

  void LookUp(const std::string& dotted, const std::vector<std::string>& path, bool erase) {
    SSqueeze id = oStore.Find(dotted);
    Node *parent = nullptr, *kid = oModel.Find(path, &parent);
    ASSERT_EQ(oStore.GetData(id, &sValue, &sTag), kid ? kid->type : int{eDTnull}) << dotted;
    auto* first = oStore.prop_GetFirst() != 0 ? oStore.node_get(oStore.prop_GetFirst()) : nullptr;
    ASSERT_EQ(oStore.Searcher(first, dotted, false), id.ss_get());
    if (!kid || !erase) return;
    oStore.node_deleteall(oStore.FindEx(dotted, nullptr, true));
    oModel.Erase(*parent, *kid);
  }

  bool Same(uint64_t number, const std::vector<Node>& chain) {
    for (const Node& kid : chain) {
      auto* node = number != 0 ? oStore.node_get(number) : nullptr;
      if (!node || oStore.GetDataEx(node, &sValue, &sTag) != kid.type || sTag != kid.tag ||
          sValue != kid.value || !Same(oStore.prop_GetDown(node), kid.kids))
        return false;
      number = oStore.prop_GetRight(node);
    }
    return number == 0;
  }
};

// A store's first size and its step: growing, by bytes, at odd sizes; and fixed, tiny or running full.
typedef std::pair<uint64_t, uint64_t> Shape;
class SqueezeModel : public testing::TestWithParam<Shape> {};
INSTANTIATE_TEST_SUITE_P(OddStores, SqueezeModel,
                         testing::Values(Shape{256, 256}, Shape{32, 1}, Shape{77, 51}, Shape{150, 0},
                                         Shape{900, 0}));

TEST_P(SqueezeModel, AgreesStepByStep) {
  zat::SqueezeGuard::fEnabled = false; // every step is checked below
  for (unsigned seed = 1; seed <= 4 && !HasFatalFailure(); ++seed) {
    const auto [size, step] = GetParam();
    Pair pair{OddStore(size, step), {{}, size, step}, std::mt19937(seed), "", ""};
    for (int i = 0; i < 10000 && !HasFatalFailure(); ++i) {
      pair.Operation();
      pair.Compare();
    }
  }
  zat::SqueezeGuard::fEnabled = true;
  EXPECT_FALSE(OddMemory::fBroken);
  EXPECT_EQ(OddMemory::nLive, 0u);
}

} // namespace
