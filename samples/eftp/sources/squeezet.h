// The parameter store: a tree of tagged, typed values in one buffer, addressed by dotted paths ("TR.AMT").
// The buffer and the invariants are drawn in squeezenode.h, the engine under it is squeezem.h, whose general
// rules hold here too: nothing throws, and nodes move with every write.
#pragma once
#include "export.h"
#include "squeezem.h"

template<class T, class A = std::allocator<T>> class basic_squeezet : public basic_squeezem<T, A> {
  typedef basic_squeezem<T, A> tBase;

public:
  using typename tBase::size_type;
  using typename tBase::tNode;

  // The deepest path that can be written.
  static constexpr size_type kMaxDeep = 256;

  SSqueeze oSelf; // the store's own identifier, with its counter of writes

  // An empty store of nSize bytes that grows by nGrowBy; 0 makes it one of a fixed size.
  explicit basic_squeezet(size_type nSize = 256, size_type nGrowBy = 256, const A& oAllocator = A())
      : tBase(nSize, nGrowBy, oAllocator) {
    oSelf.pulGlobal = zat::CounterTake();
  }
  // A deep copy, whose identifiers are its own: those of oFrom do not name anything in it.
  basic_squeezet(const basic_squeezet& oFrom) : tBase(oFrom) { oSelf.pulGlobal = zat::CounterTake(); }
  basic_squeezet& operator=(const basic_squeezet& oFrom) {
    oSelf.ss_next();
    tBase::operator=(oFrom);
    return *this;
  }
  ~basic_squeezet() override { zat::CounterGive(oSelf.pulGlobal); }

  // --- by identifier ---------------------------------------------------------------------------------------
  // Every write to a store makes all its identifiers stale. A stale one, a null one and one of another store are
  // answered with eDTnull.

  // The node with this path, searched from the node oStart and its right siblings on; from the top when
  // oStart does not name a node (any more). An identifier of no node when there is none or the path is not
  // one.
  SSqueeze Find(const tString& oPath, SSqueeze oStart = SSqueeze());

  // The type of a node; its value and its tag, each when asked for. Values are given back as bytes, whatever
  // the type. With a negative result the strings say nothing.
  tDataType GetData(SSqueeze oId, tString* poValue = nullptr, tString* poTag = nullptr) {
    return GetDataEx(Redeem(oId), poValue, poTag);
  }

  // The number in a node: eDTlong when there is one. A short or damaged number is eDTwrong; any other result
  // is the node's type. lOut is changed only for eDTlong.
  tDataType GetLong(SSqueeze oId, long& lOut);

  // Writes a value at a path, making the nodes above it when they are missing. What was there is deleted
  // first, with all that was below it, and the value goes into a fresh node; so when there is no room for it,
  // the old value is gone, and the result is an identifier of no node. No bytes (lLen 0) make an empty value
  // (eDTpempel).
  SSqueeze PutData(const tString& oPath, const void* pvBytes, size_t lLen);
  SSqueeze PutLong(const tString& oPath, long lValue);

  // --- by node: these leave identifiers as they are, so they belong to whoever writes to the store ---------

  tNode* FindEx(const tString& oPath, tNode* poStart, bool fUnlink);
  tDataType GetDataEx(tNode* poNode, tString* poValue, tString* poTag);

  // What PutData does, with the type given; eDTnode with no bytes makes an inner node. Null for a type that
  // cannot be stored, for a path that is none, that has more than kMaxDeep components or that ends with a dot
  // (the nodes before the dot are made all the same).
  tNode* PutDataEx(const tString& oPath, const void* pvBytes, size_t lLen, tDataType oType);

  // Makes a node and links it: below poParent, or right after it when fChild is false; at the top level when
  // poParent is null. In a chain that is not empty it gets the second place (LinkNode). Does not look for a
  // node with the same tag. Null when there is no room, poParent is no node, or the type cannot be stored.
  tNode* LinkData(tNode* poParent, const tString& oTag, const void* pvBytes, size_t lLen, tDataType oType,
                  bool fChild);

  // --- for the engine --------------------------------------------------------------------------------------

  tWalkerCode visit(tNode*, size_type, tNode*) override { return eWCnextwidth; }
  // Final, because searches inside the store compare directly.
  int compare(tNode* poNode, const tString& oComponent) final {
    return this->IsNode(poNode) && HasTag(poNode, zat::TagKey(oComponent)) ? 0 : 1;
  }

private:
  const tHeaderD* Header(const tNode* po) const { return reinterpret_cast<const tHeaderD*>(this->Blob(po)); }
  tNode* Redeem(const SSqueeze& oId) const {
    return oId.pulGlobal == oSelf.pulGlobal ? static_cast<tNode*>(oId.ss_get()) : nullptr;
  }
  bool HasTag(const tNode* po, const zat::TagKey& oKey) const {
    const tHeaderD* header = Header(po);
    return header &&
           oKey.Matches(header, this->prop_GetDataLen(po), this->nBuffer - this->prop_GetDataOfs(po));
  }
  size_type FirstBelow(size_type nParent) {
    return nParent != 0 ? this->prop_GetDown(this->At(nParent)) : this->prop_GetFirst();
  }

  static std::string_view Cut(std::string_view& oRest);
  size_type Sibling(size_type nNumber, const zat::TagKey& oKey, size_type* pnPrev, size_type* pnLeft);
  tNode* FindFrom(size_type nNumber, std::string_view oRest, size_type nDeep, size_type nPrev, bool fUnlink,
                  size_type* pnLeft);
  tNode* Link(size_type nParent, std::string_view oTag, const void* pvBytes, size_t lLen, tDataType oType,
              bool fChild);
  void Remove(size_type* pnParent, std::string_view oTag);
};

template<class T, class A> SSqueeze basic_squeezet<T, A>::Find(const tString& oPath, SSqueeze oStart) {
  return oSelf.ss_put(FindEx(oPath, Redeem(oStart), false));
}

template<class T, class A>
auto basic_squeezet<T, A>::FindEx(const tString& oPath, tNode* poStart, bool fUnlink) -> tNode* {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  size_type deep = this->Deep(oPath), left = this->TableEnd();
  if (deep == 0 || deep > this->kMaxLevel || (poStart && !this->IsNode(poStart))) return nullptr;
  size_type first = poStart ? this->prop_GetNodNum(poStart) : this->prop_GetFirst();
  return FindFrom(first, oPath, deep, first, fUnlink, &left);
}

// The component that a path begins with, taken off it together with its dot.
template<class T, class A> std::string_view basic_squeezet<T, A>::Cut(std::string_view& oRest) {
  size_t length = 0;
  while (length < oRest.size() && oRest[length] != tBase::oSQThisDT) ++length;
  std::string_view part = oRest.substr(0, length);
  oRest.remove_prefix(std::min(length + 1, oRest.size()));
  return part;
}

// The first node with a tag, from node nNumber on to the right; 0 when there is none. *pnPrev becomes its
// left sibling, if it has one here; *pnLeft counts down the nodes that may still be looked at.
template<class T, class A>
auto basic_squeezet<T, A>::Sibling(size_type nNumber, const zat::TagKey& oKey, size_type* pnPrev,
                                   size_type* pnLeft) -> size_type {
  // Half the time of a search is spent here, so what does not change is kept in local variables, and a node is
  // looked at closely only when the bytes at its blob's place are those of the tag.
  const size_type end = this->TableEnd(), quick = this->nBuffer - std::min(this->nBuffer, zat::TagKey::kRead);
  const zat::TagKey key = oKey;
  size_type prev = *pnPrev, left = *pnLeft, found = 0;
  for (; nNumber != 0 && nNumber < end && left != 0; --left) {
    const tNode* node = this->At(nNumber);
    const size_type offset = this->prop_GetDataOfs(node);
    if ((offset >= quick || key.MayMatch(this->pbBuffer + offset)) && HasTag(node, oKey)) {
      found = nNumber;
      --left; // it counts too: a circle may be of nodes that all match
      break;
    }
    prev = std::exchange(nNumber, this->prop_GetRight(node));
  }
  *pnPrev = prev;
  *pnLeft = left;
  return found;
}

// What SearcherUni does for a path, but by comparing directly and cutting each component once. A level that
// begins with a match ends with it; in any other, further nodes with the same tag are gone into as well.
template<class T, class A>
auto basic_squeezet<T, A>::FindFrom(size_type nNumber, std::string_view oRest, size_type nDeep,
                                    size_type nPrev, bool fUnlink, size_type* pnLeft) -> tNode* {
  zat::TagKey key(Cut(oRest));
  size_type number = nNumber;
  while ((number = Sibling(number, key, &nPrev, pnLeft)) != 0) {
    tNode* node = this->At(number);
    if (nDeep == 1) return fUnlink ? this->Unlink(node, this->At(nPrev)) : node;
    size_type down = this->prop_GetDown(node);
    tNode* found = down != 0 ? FindFrom(down, oRest, nDeep - 1, number, fUnlink, pnLeft) : nullptr;
    if (found || number == nNumber) return found;
    nPrev = std::exchange(number, this->prop_GetRight(node));
  }
  return nullptr;
}

template<class T, class A>
tDataType basic_squeezet<T, A>::GetDataEx(tNode* poNode, tString* poValue, tString* poTag) {
  if (!this->IsNode(poNode)) return eDTnull;
  const tHeaderD* header = Header(poNode);
  size_type length = this->prop_GetDataLen(poNode), size = 0;
  const char* value = header ? header->DataMem(length, &size) : nullptr;
  if (!value) return eDTnone;
  try {
    if (poValue) poValue->assign(value, size);
    if (poTag) poTag->assign(header->TagMem(length), header->oTagLen);
  } catch (const std::exception&) { return eDTnone; }
  return static_cast<tDataType>(header->oDataType);
}

template<class T, class A> tDataType basic_squeezet<T, A>::GetLong(SSqueeze oId, long& lOut) {
  tNode* node = Redeem(oId);
  tDataType type = GetDataEx(node, nullptr, nullptr);
  if (type == eDTshort) return eDTwrong;
  if (type != eDTlong) return type;
  size_type size = 0;
  const char* value = Header(node)->DataMem(this->prop_GetDataLen(node), &size);
  if (size < sizeof lOut) return eDTwrong;
  memcpy(&lOut, value, sizeof lOut);
  return eDTlong;
}

template<class T, class A>
SSqueeze basic_squeezet<T, A>::PutData(const tString& oPath, const void* pvBytes, size_t lLen) {
  oSelf.ss_next();
  return oSelf.ss_put(PutDataEx(oPath, pvBytes, lLen, eDTpdata));
}

template<class T, class A> SSqueeze basic_squeezet<T, A>::PutLong(const tString& oPath, long lValue) {
  static_assert(sizeof lValue == 8, "a stored number has 8 bytes");
  oSelf.ss_next();
  return oSelf.ss_put(PutDataEx(oPath, &lValue, sizeof lValue, eDTlong));
}

template<class T, class A>
auto basic_squeezet<T, A>::PutDataEx(const tString& oPath, const void* pvBytes, size_t lLen, tDataType oType)
    -> tNode* {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCtags);
  size_type deep = this->Deep(oPath), parent = 0; // a number: nodes move
  if (deep == 0 || deep > kMaxDeep || (!pvBytes && lLen > 0) || !tHeader::CanStore(oType)) return nullptr;
  std::string_view rest = oPath;
  for (size_type level = 1; level < deep; ++level) {
    std::string_view part = Cut(rest);
    size_type prev = 0, left = this->TableEnd(),
              number = Sibling(FirstBelow(parent), zat::TagKey(part), &prev, &left);
    if (number == 0) {
      tNode* made = Link(parent, part, nullptr, 0, eDTnode, true);
      if (!made) return nullptr;
      number = this->prop_GetNodNum(made);
    }
    parent = number;
  }
  if (rest.empty()) return nullptr;
  Remove(&parent, rest);
  return Link(parent, rest, pvBytes, lLen, oType, true);
}

// Deletes the child with this tag, or the top-level node when *pnParent is 0. *pnParent follows its record.
template<class T, class A> void basic_squeezet<T, A>::Remove(size_type* pnParent, std::string_view oTag) {
  size_type prev = *pnParent, left = this->TableEnd(), first = FirstBelow(*pnParent);
  size_type number = Sibling(first, zat::TagKey(oTag), &prev, &left);
  if (number == 0) return;
  // The first top-level node is unlinked from record 0 as if that were a node: its second word is First where
  // a node has its first child, and its first word is Empty where a node has its right sibling. With Empty
  // equal to the node's number the wrong link would be changed, so there must be no empty record.
  if (*pnParent == 0 && number == first) {
    this->mem_freeempty();
    number = this->prop_GetFirst();
  }
  tNode* node = this->node_get(number);
  if (node) node = this->Unlink(node, this->node_get(prev));
  if (node) this->DeleteAll(node, pnParent);
}

template<class T, class A>
auto basic_squeezet<T, A>::LinkData(tNode* poParent, const tString& oTag, const void* pvBytes, size_t lLen,
                                    tDataType oType, bool fChild) -> tNode* {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCtags);
  if ((!pvBytes && lLen > 0) || !tHeader::CanStore(oType) || (poParent && !this->IsNode(poParent)))
    return nullptr;
  return Link(poParent ? this->prop_GetNodNum(poParent) : 0, oTag, pvBytes, lLen, oType, fChild);
}

// LinkData below or beside the node with this number; 0 is the top level.
template<class T, class A>
auto basic_squeezet<T, A>::Link(size_type nParent, std::string_view oTag, const void* pvBytes, size_t lLen,
                                tDataType oType, bool fChild) -> tNode* {
  size_type length = tHeaderD::CalcMemLen(oTag.size(), lLen);
  tNode* node = length != 0 ? this->Reserve(length, true) : nullptr;
  if (!node) return nullptr;
  // Written straight into its place: a blob made apart first would cost an allocation for each value.
  reinterpret_cast<tHeaderD*>(this->pbBuffer + this->prop_GetDataOfs(node))
      ->Place(oType, oTag, pvBytes, lLen);
  tNode* place = nParent != 0 ? this->node_get(nParent) : nullptr;
  if ((nParent == 0 || place) && this->LinkNode(place, node, fChild)) return node;
  this->node_delete(node, false);
  return nullptr;
}

typedef basic_squeezet<char> SqueezeT;
extern template class ZAT_API basic_squeezem<char>;
extern template class ZAT_API basic_squeezet<char>;
