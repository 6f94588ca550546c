// The storage engine of the parameter store: a tree of nodes, each with one blob of bytes, in one buffer.
// What the blobs mean is the derived class's business (squeezet.h). The buffer is drawn in squeezenode.h.
//
// What holds for every operation:
// - No operation throws. Null, false and 0 are the answers to bad input and to lack of room.
// - A tNode* points into the buffer. It is good until the next operation that stores or frees something;
//   across one, hold the node's number (prop_GetNodNum) and ask node_get again. A number survives until a
//   record with a lower number is removed.
// - Bytes of the buffer are not trusted. Whatever they are, no operation reads or writes outside the buffer
//   or runs without end; a pointer that is no record of the table is refused.
// - One thread at a time.
#pragma once
#include "squeezecheck.h"
#include "squeezenode.h"
#include "ztypes.h"
#include <algorithm>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

// What a step of a walk says about going on, a set of bits: 2 go down, 4 go right, 16 stop.
enum tWalkerCode : uint32_t {
  eWCnone = 0,
  eWCnextdown = 2,
  eWCnextright = 4,
  eWCnextwidth = 6, // down and right
  eWCnextback = 8,
  eWCstop = 16,
  eWCfind = 48,  // stop: this is the node
  eWCerror = 80, // stop: the node cannot be compared
  eWCnull = 144, // stop: there is no node
  eWCfull = 0xFFFFFFFF,
};

// T is a byte type, A its allocator.
template<class T, class A = std::allocator<T>> class basic_squeezem {
  static_assert(sizeof(T) == 1);

public:
  typedef uint64_t size_type;

  // One record of the table. It lies in the buffer at any address: read and write it through prop_... only.
  struct tNode {
    size_type iRight, iDown, nDataLen, nDataOfs;
  };
  static_assert(sizeof(tNode) == zat::kNodeSize);

  static constexpr unsigned char oSQThisZT = zat::kSqueezeFill; // stands in every byte that is not in use
  static constexpr char oSQThisDT = '.';                        // between the components of a path

  // The longest way down that a walk follows; trees that are made through paths have at most 256 levels.
  static constexpr size_type kMaxLevel = 4096;

  T* pbBuffer;       // the one buffer; null when there was no memory for it, and then every operation refuses
  size_type nBuffer; // its length in bytes
  size_type nStep;   // what it grows by; 0: a fixed buffer that never grows nor shrinks
  size_type nUnshrunk; // bytes behind the buffer that belong to its allocation (see mem_squeeze)
  [[no_unique_address]] A oAlloc;

  // An empty store. A size below 32 is raised to 32, the least that holds record 0.
  basic_squeezem(size_type nSize, size_type nGrowBy, const A& oAllocator = A());

  // A deep copy: same size, same bytes. Without memory the new store is unusable (pbBuffer null), the one
  // assigned to is empty: an old value must not pass for the one that was to be copied.
  basic_squeezem(const basic_squeezem& oFrom);
  basic_squeezem& operator=(const basic_squeezem& oFrom);

  // --- what the derived class supplies ---------------------------------------------------------------------

  // Called for every node of a walk without a path (depth 0): where to go from here, or eWCfind.
  virtual tWalkerCode visit(tNode* poNode, size_type nLevel, tNode* poPrev) = 0;

  // 0 when the node's tag equals the component, 1 when it differs, anything else when that cannot be said.
  virtual int compare(tNode* poNode, const tString& oComponent) = 0;

  virtual ~basic_squeezem() { mm_free(pbBuffer, nBuffer + nUnshrunk); }

  // --- nodes -----------------------------------------------------------------------------------------------

  // The record with this number, 0 giving record 0; null when the table has no such record.
  tNode* node_get(size_type nNumber) {
    return nNumber == 0 ? Record0() : nNumber < TableEnd() ? At(nNumber) : nullptr;
  }

  // The empty record with the lowest number; null when Empty is 0 or the table has none.
  tNode* node_findempty();

  // Appends an empty record, whose links keep the filler. Null when fewer than 32 bytes are free.
  tNode* node_addempty();

  // Stores nLen bytes as the blob of a new node without links. Null when there is no room and the buffer may
  // not (fGrow, nStep) or cannot grow, and for null bytes with a length. A refusal can leave one more empty
  // record, and a step that was smaller than the blob stays raised to the blob's length: the step only ever
  // grows.
  tNode* node_putdata(const void* pvBytes, size_type nLen, bool fGrow);

  // Frees a node; the caller has unlinked it. Kept as empty, the record stays for the next blob; otherwise it
  // leaves the table, and every number above it becomes one less.
  void node_delete(tNode* poNode, bool fKeepEmpty) { mem_squeeze(poNode, fKeepEmpty); }

  // Frees a node, everything below it and every sibling to its right with what is below them, then every
  // empty record. Unlink the node first: that also cuts it from its siblings.
  void node_deleteall(tNode* poNode);

  // --- links -----------------------------------------------------------------------------------------------

  // Puts a detached node into the tree: with poPrev null among the top-level nodes, with fChild below poPrev,
  // else right after poPrev. The first of a chain stays the first: a newcomer goes to the second place, not
  // to the end, and callers find siblings in that order. False when there is no node or no such place.
  bool LinkNode(tNode* poPrev, tNode* poNode, bool fChild);

  // Takes poNode out of the chain and gives it back, detached. poPrev is its left sibling, its parent, or
  // poNode itself for the first top-level node. When poNode stands further right under the parent poPrev, it
  // is taken out too but the answer is null, and when it does not stand there at all it is given back
  // untouched: this inverted answer is kept, callers rely on the answer only with the true predecessor.
  tNode* Unlink(tNode* poNode, tNode* poPrev);

  // --- paths and walks -------------------------------------------------------------------------------------

  // Finds the node with this path, starting with poNode and its right siblings as level 1; null when there is
  // none. With fUnlink the node is taken out of its chain as well.
  tNode* Searcher(tNode* poNode, const tString& oPath, bool fUnlink);

  // The general search from poNode at level nLevel of nDepth; a depth of 0 means that of the path, and with
  // no path either, visit decides. A node that matches a component before the last is gone into; when poNode
  // itself is such a node and the rest of the path is not below it, the search is over: siblings have
  // different tags, so none of the others can match. With fDeleteAll everything that poNode begins is freed,
  // whatever the path, all records kept as empty, and the answer is null.
  tNode* SearcherUni(tNode* poNode, const tString& oPath, size_type nLevel, size_type nDepth, tNode* poPrev,
                     bool fUnlink, bool fDeleteAll);

  // One step of a walk: visit's answer at depth 0, else by comparing the node with its level's component.
  tWalkerCode Walker(tNode* poNode, const tString& oPath, size_type nLevel, size_type nDepth, tNode* poPrev);

  // Cuts the component of a level (counted from 1) out of a path into oOut and gives its length; fLast says
  // whether the path ends with it. Without fOnlyOne everything from there to the end is cut, and fLast is
  // false. A level that the path does not have gives 0 and changes neither.
  size_type PathParser(const tString& oPath, size_type nLevel, bool fOnlyOne, bool& fLast, tString& oOut);

  // The number of components; 0 for an empty path and for one that begins with a dot or has two in a row. A
  // dot at the end begins an empty last component.
  size_type PathDeep(const tString& oPath) { return Deep(oPath); }

  // --- memory ----------------------------------------------------------------------------------------------

  T* mm_alloc(size_type nLen); // null when the allocator cannot
  void mm_free(T* pb, size_type nLen) { mm_realloc(pb, nLen, 0); }

  // A new block with the first bytes of the old one, which is overwritten (it may hold card data) and freed.
  // Null for a length of 0, and, with the old block kept, when the allocator cannot.
  T* mm_realloc(T* pb, size_type nOld, size_type nNew);

  // Removes every empty record from the table.
  void mem_freeempty();

  // The bytes between table and data area.
  size_type mem_freesize() const {
    return Sound() && prop_GetDataLst() > prop_GetNodsLen() ? prop_GetDataLst() - prop_GetNodsLen() : 0;
  }

  // Frees a node, see node_delete. Without a node: removes the empty records and, in a buffer that can grow,
  // every free byte; the next blob makes it grow again. When the allocator refuses the smaller block, the
  // store goes on in the old one with the smaller size.
  void mem_squeeze(tNode* poNode = nullptr, bool fKeepEmpty = false);

  // --- properties of the store (record 0) ------------------------------------------------------------------

  // Every word that is read from the buffer or written to it passes through this.
  static constexpr size_type prop_Reform(size_type nWord) { return zat::ReformWord(nWord); }

  size_type prop_GetEmpty() const { return Property(zat::kWordEmpty); }
  void prop_PutEmpty(size_type n) { SetProperty(zat::kWordEmpty, n); }
  void prop_AddEmpty(size_type n) { prop_PutEmpty(prop_GetEmpty() + n); }
  void prop_SubEmpty(size_type n) {
    prop_PutEmpty(prop_GetEmpty() - std::min(n, prop_GetEmpty()));
  } // never below 0

  size_type prop_GetFirst() const { return Property(zat::kWordFirst); }
  void prop_PutFirst(size_type n) { SetProperty(zat::kWordFirst, n); }
  void prop_SubFirst(size_type n) { prop_PutFirst(prop_GetFirst() - n); }

  size_type prop_GetNodsLen() const { return Property(zat::kWordNodsLen); }
  void prop_PutNodsLen(size_type n) { SetProperty(zat::kWordNodsLen, n); }
  size_type prop_GetNodsNum() const { return prop_GetNodsLen() >> zat::kNodeShift; }
  void prop_PutNodsNum(size_type n) { prop_PutNodsLen(n << zat::kNodeShift); }
  void prop_SubNodsNum(size_type n) { prop_PutNodsNum(prop_GetNodsNum() - n); }

  size_type prop_GetDataLst() const { return Property(zat::kWordDataLst); }
  void prop_PutDataLst(size_type n) { SetProperty(zat::kWordDataLst, n); }
  void prop_AddDataLst(size_type n) { prop_PutDataLst(prop_GetDataLst() + n); }
  void prop_SubDataLst(size_type n) { prop_PutDataLst(prop_GetDataLst() - n); }

  // --- properties of a node --------------------------------------------------------------------------------

  // The number of a record of this buffer. For any other address the result says nothing.
  size_type prop_GetNodNum(const tNode* po) const {
    return (Address(po) - Address(pbBuffer)) >> zat::kNodeShift;
  }

  size_type prop_GetRight(const tNode* po) const { return Get(po, zat::kWordRight); }
  void prop_PutRight(tNode* po, size_type n) { Put(po, zat::kWordRight, n); }
  void prop_SubRight(tNode* po, size_type n) { prop_PutRight(po, prop_GetRight(po) - n); }

  size_type prop_GetDown(const tNode* po) const { return Get(po, zat::kWordDown); }
  void prop_PutDown(tNode* po, size_type n) { Put(po, zat::kWordDown, n); }
  void prop_SubDown(tNode* po, size_type n) { prop_PutDown(po, prop_GetDown(po) - n); }

  size_type prop_GetDataLen(const tNode* po) const { return Get(po, zat::kWordDataLen); }
  void prop_PutDataLen(tNode* po, size_type n) { Put(po, zat::kWordDataLen, n); }

  size_type prop_GetDataOfs(const tNode* po) const { return Get(po, zat::kWordDataOfs); }
  void prop_PutDataOfs(tNode* po, size_type n) { Put(po, zat::kWordDataOfs, n); }
  void prop_AddDataOfs(tNode* po, size_type n) { prop_PutDataOfs(po, prop_GetDataOfs(po) + n); }
  void prop_SubDataOfs(tNode* po, size_type n) { prop_PutDataOfs(po, prop_GetDataOfs(po) - n); }

  // Copies nLen bytes of the blob out when the blob has that many and a target is given. The result is nLen
  // either way; compare it with prop_GetDataLen first.
  size_type prop_GetData(const tNode* po, void* pvOut, size_type nLen) const;

  // Overwrites the blob when nLen is its very length; otherwise nothing happens.
  void prop_PutData(tNode* po, const void* pvBytes, size_type nLen);

protected:
  // The component of a level as a piece of the path; fFound is false when the path does not have the level.
  static std::string_view Component(std::string_view oPath, size_type nLevel, bool& fFound);
  static size_type Deep(std::string_view oPath);

  // The record with a number below TableEnd, which is never beyond the buffer.
  tNode* At(size_type nNumber) { return reinterpret_cast<tNode*>(pbBuffer + (nNumber << zat::kNodeShift)); }
  size_type TableEnd() const { return std::min(prop_GetNodsLen(), nBuffer) >> zat::kNodeShift; }

  // node_putdata without the bytes: the caller writes them.
  tNode* Reserve(size_type nLen, bool fGrow);
  // node_deleteall, following the record that has the number *pnFollow while records below it leave the
  // table.
  void DeleteAll(tNode* poNode, size_type* pnFollow);

  // The blob's bytes; null when it does not lie in the data area.
  T* Blob(const tNode* po) const {
    size_type length = prop_GetDataLen(po), offset = prop_GetDataOfs(po);
    return offset != 0 && offset >= prop_GetDataLst() && offset <= nBuffer && length <= nBuffer - offset
               ? pbBuffer + offset
               : nullptr;
  }
  // Whether a pointer is a node of the table.
  bool IsNode(const tNode* po) const {
    size_type offset = Address(po) - Address(pbBuffer);
    return po && offset % zat::kNodeSize == 0 && offset != 0 && offset >> zat::kNodeShift < TableEnd();
  }
  // Invariant 1: the words of record 0 that say where everything is.
  bool Sound() const {
    size_type table = prop_GetNodsLen(), data = prop_GetDataLst();
    return table >= zat::kNodeSize && table % zat::kNodeSize == 0 && table <= data && data <= nBuffer;
  }

private:
  static uintptr_t Address(const void* pv) { return reinterpret_cast<uintptr_t>(pv); }
  static size_type Get(const void* pvRecord, size_t lWord) {
    return prop_Reform(zat::GetWord(pvRecord, lWord));
  }
  static void Put(void* pvRecord, size_t lWord, size_type n) {
    zat::PutWord(pvRecord, lWord, prop_Reform(n));
  }
  bool IsEmpty(const tNode* po) const { return prop_GetDataLen(po) == 0 && prop_GetDataOfs(po) == 0; }
  size_type Property(size_t lWord) const { return pbBuffer ? Get(pbBuffer, lWord) : 0; }
  void SetProperty(size_t lWord, size_type n) {
    if (pbBuffer) Put(pbBuffer, lWord, n);
  }
  tNode* Record0() { return reinterpret_cast<tNode*>(pbBuffer); }
  struct tWalk {
    const tString& oPath;
    bool fUnlink;
    size_type nLeft; // nodes that may still be looked at; a walk that meets more goes in circles

    // Counts the next node; false, and so it stays, when there cannot be one.
    bool Goes() { return nLeft != 0 && nLeft-- != 0; }
  };
  tNode* Search(tWalk& oWalk, tNode* poNode, size_type nLevel, size_type nDepth, tNode* poPrev);

  bool LinkAfter(tNode* poPlace, tNode* poNode);
  void DeleteTree(tNode* poNode);
  void FreeEmpty(size_type* pnFollow);
  bool Grow(size_type nLen);
  size_type FreeBlob(const tNode* poNode);
  void Adjust(size_type nTo, size_type nFrom, size_type nGone, size_type nOffset, size_type nMoved);
  void RemoveRecord(size_type nNumber, size_type nOffset, size_type nMoved);
  void Compact();
  void Format();
};

#include "squeezem_impl.h"
