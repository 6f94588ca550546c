// The bodies of basic_squeezem. Included by squeezem.h only.
#pragma once

template<class T, class A>
basic_squeezem<T, A>::basic_squeezem(size_type nSize, size_type nGrowBy, const A& oAllocator)
    : pbBuffer(nullptr), nBuffer(0), nStep(nGrowBy), nUnshrunk(0), oAlloc(oAllocator) {
  nSize = std::max(nSize, size_type{zat::kNodeSize});
  pbBuffer = mm_alloc(nSize);
  if (!pbBuffer) return;
  nBuffer = nSize;
  Format();
}

template<class T, class A>
basic_squeezem<T, A>::basic_squeezem(const basic_squeezem& oFrom)
    : pbBuffer(nullptr), nBuffer(0), nStep(oFrom.nStep), nUnshrunk(0),
      oAlloc(std::allocator_traits<A>::select_on_container_copy_construction(oFrom.oAlloc)) {
  if (oFrom.pbBuffer) pbBuffer = mm_alloc(oFrom.nBuffer);
  if (!pbBuffer) return;
  nBuffer = oFrom.nBuffer;
  memcpy(pbBuffer, oFrom.pbBuffer, nBuffer);
}

template<class T, class A>
basic_squeezem<T, A>& basic_squeezem<T, A>::operator=(const basic_squeezem& oFrom) {
  if (this == &oFrom) return *this;
  nStep = oFrom.nStep;
  T* pb = oFrom.pbBuffer ? mm_alloc(oFrom.nBuffer) : nullptr;
  if (!pb) {
    if (pbBuffer) Format();
    return *this;
  }
  memcpy(pb, oFrom.pbBuffer, oFrom.nBuffer);
  mm_free(pbBuffer, nBuffer + nUnshrunk);
  pbBuffer = pb;
  nBuffer = oFrom.nBuffer;
  nUnshrunk = 0;
  return *this;
}

// An empty store in the buffer as it is.
template<class T, class A> void basic_squeezem<T, A>::Format() {
  memset(pbBuffer, oSQThisZT, nBuffer);
  prop_PutEmpty(0);
  prop_PutFirst(0);
  prop_PutNodsNum(1);
  prop_PutDataLst(nBuffer);
}

// --- nodes -------------------------------------------------------------------------------------------------

template<class T, class A> auto basic_squeezem<T, A>::node_findempty() -> tNode* {
  if (prop_GetEmpty() == 0) return nullptr;
  for (size_type i = 1, end = TableEnd(); i < end; ++i)
    if (IsEmpty(At(i))) return At(i);
  return nullptr;
}

template<class T, class A> auto basic_squeezem<T, A>::node_addempty() -> tNode* {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  if (mem_freesize() < zat::kNodeSize) return nullptr;
  size_type number = prop_GetNodsNum();
  prop_PutNodsNum(number + 1);
  prop_AddEmpty(1);
  prop_PutDataLen(At(number), 0);
  prop_PutDataOfs(At(number), 0);
  return At(number);
}

template<class T, class A>
auto basic_squeezem<T, A>::node_putdata(const void* pvBytes, size_type nLen, bool fGrow) -> tNode* {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  if (!pvBytes && nLen > 0) return nullptr;
  tNode* po = Reserve(nLen, fGrow);
  if (po && nLen > 0) memcpy(pbBuffer + prop_GetDataOfs(po), pvBytes, nLen);
  return po;
}

template<class T, class A> auto basic_squeezem<T, A>::Reserve(size_type nLen, bool fGrow) -> tNode* {
  do {
    tNode* po = node_findempty();
    if (!po) po = node_addempty();
    if (po && mem_freesize() >= nLen) {
      prop_SubEmpty(1);
      prop_SubDataLst(nLen);
      prop_PutDataOfs(po, prop_GetDataLst());
      prop_PutDataLen(po, nLen);
      prop_PutRight(po, 0);
      prop_PutDown(po, 0);
      return po;
    }
  } while (fGrow && Grow(nLen));
  return nullptr;
}

// Makes the buffer one step longer; the new bytes join the gap. The two ends are copied straight to where
// they go, and the gap is filled whole: nothing of what has been moved stays readable in it (invariant 7).
template<class T, class A> bool basic_squeezem<T, A>::Grow(size_type nLen) {
  if (nStep == 0 || !Sound()) return false;
  nStep = std::max(nStep, nLen);
  if (nStep > std::numeric_limits<size_type>::max() - nBuffer) return false;
  T* pb = mm_alloc(nBuffer + nStep);
  if (!pb) return false;
  size_type table = prop_GetNodsLen(), data = prop_GetDataLst(), moved = data + nStep;
  memcpy(pb, pbBuffer, table);
  memset(pb + table, oSQThisZT, moved - table);
  memcpy(pb + moved, pbBuffer + data, nBuffer - data);
  mm_free(pbBuffer, nBuffer + nUnshrunk);
  pbBuffer = pb;
  nUnshrunk = 0;
  nBuffer += nStep;
  for (size_type i = 1, end = TableEnd(); i < end; ++i)
    if (prop_GetDataOfs(At(i)) != 0) prop_AddDataOfs(At(i), nStep);
  prop_PutDataLst(moved);
  return true;
}

template<class T, class A> void basic_squeezem<T, A>::node_deleteall(tNode* poNode) {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  DeleteAll(poNode, nullptr);
}

template<class T, class A> void basic_squeezem<T, A>::DeleteAll(tNode* poNode, size_type* pnFollow) {
  // A lone node is the usual case: its record can go at once instead of being looked for among all.
  if (IsNode(poNode) && prop_GetEmpty() == 0 && prop_GetRight(poNode) == 0 && prop_GetDown(poNode) == 0) {
    if (pnFollow && prop_GetNodNum(poNode) < *pnFollow) --*pnFollow;
    return mem_squeeze(poNode, false);
  }
  DeleteTree(poNode);
  FreeEmpty(pnFollow);
}

// Frees a node, its right siblings and all that is below them, keeping the records. The children's chain is
// put before the rest of the chain instead of being gone into: a deep tree needs no deep stack, and each
// chain is run along once. Links that lead in circles come to a record that is empty already.
template<class T, class A> void basic_squeezem<T, A>::DeleteTree(tNode* poNode) {
  while (Sound() && IsNode(poNode) && !IsEmpty(poNode)) {
    size_type right = prop_GetRight(poNode), down = prop_GetDown(poNode);
    tNode* tail = down != 0 ? node_get(down) : nullptr;
    if (tail) {
      for (size_type left = TableEnd(); left > 0 && prop_GetRight(tail) != 0; --left) {
        tNode* next = node_get(prop_GetRight(tail));
        if (!next) break;
        tail = next;
      }
      prop_PutRight(tail, right);
      right = down;
    }
    mem_squeeze(poNode, true);
    poNode = right != 0 ? node_get(right) : nullptr;
  }
}

// --- links -------------------------------------------------------------------------------------------------

// A node is never linked to itself, which damaged links could ask for.
template<class T, class A> bool basic_squeezem<T, A>::LinkAfter(tNode* poPlace, tNode* poNode) {
  if (!poPlace || poPlace == poNode) return false;
  prop_PutRight(poNode, prop_GetRight(poPlace));
  prop_PutRight(poPlace, prop_GetNodNum(poNode));
  return true;
}

template<class T, class A> bool basic_squeezem<T, A>::LinkNode(tNode* poPrev, tNode* poNode, bool fChild) {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  if (!IsNode(poNode) || (poPrev && !IsNode(poPrev))) return false;
  if (poPrev && !fChild) return LinkAfter(poPrev, poNode);
  size_type first = poPrev ? prop_GetDown(poPrev) : prop_GetFirst();
  if (first != 0) return LinkAfter(node_get(first), poNode);
  if (poPrev)
    prop_PutDown(poPrev, prop_GetNodNum(poNode));
  else
    prop_PutFirst(prop_GetNodNum(poNode));
  return true;
}

template<class T, class A> auto basic_squeezem<T, A>::Unlink(tNode* poNode, tNode* poPrev) -> tNode* {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  if (!IsNode(poNode) || (poPrev != Record0() && !IsNode(poPrev))) return nullptr;
  size_type number = prop_GetNodNum(poNode), right = prop_GetRight(poNode);
  if (poNode == poPrev) {
    if (prop_GetFirst() != number) return nullptr;
    prop_PutFirst(right);
  } else if (prop_GetRight(poPrev) == number) {
    prop_PutRight(poPrev, right);
  } else if (prop_GetDown(poPrev) == 0) {
    return nullptr;
  } else if (prop_GetDown(poPrev) == number) {
    prop_PutDown(poPrev, right);
  } else {
    tNode* po = node_get(prop_GetDown(poPrev));
    for (size_type left = TableEnd(); po && left > 0; --left) {
      size_type next = prop_GetRight(po);
      if (next == number) {
        prop_PutRight(po, right);
        prop_PutRight(poNode, 0);
        return nullptr; // taken out, and denied: see the header
      }
      po = next != 0 ? node_get(next) : nullptr;
    }
    return poNode;
  }
  prop_PutRight(poNode, 0);
  return poNode;
}

// --- paths and walks ---------------------------------------------------------------------------------------

template<class T, class A>
std::string_view basic_squeezem<T, A>::Component(std::string_view oPath, size_type nLevel, bool& fFound) {
  size_t begin = 0;
  for (size_type i = 1; i != nLevel; ++i) {
    size_t dot = oPath.find(oSQThisDT, begin);
    fFound = dot != oPath.npos;
    if (!fFound) return {};
    begin = dot + 1;
  }
  fFound = true;
  return oPath.substr(begin, oPath.find(oSQThisDT, begin) - begin);
}

template<class T, class A> auto basic_squeezem<T, A>::Deep(std::string_view oPath) -> size_type {
  if (oPath.empty()) return 0;
  size_type count = 1;
  char before = oSQThisDT;
  for (char c : oPath) {
    if (c == oSQThisDT && before == oSQThisDT) return 0;
    count += c == oSQThisDT;
    before = c;
  }
  return count;
}

template<class T, class A>
auto basic_squeezem<T, A>::PathParser(const tString& oPath, size_type nLevel, bool fOnlyOne, bool& fLast,
                                      tString& oOut) -> size_type {
  bool found;
  std::string_view part = Component(oPath, nLevel, found);
  if (!found) return 0;
  const char* end = oPath.data() + oPath.size();
  bool last = fOnlyOne && part.data() + part.size() == end;
  if (!fOnlyOne) part = {part.data(), static_cast<size_t>(end - part.data())};
  try {
    tString(part).swap(oOut); // oOut may be the path itself
  } catch (const std::exception&) { return 0; }
  fLast = last;
  return oOut.size();
}

template<class T, class A>
auto basic_squeezem<T, A>::Searcher(tNode* poNode, const tString& oPath, bool fUnlink) -> tNode* {
  return SearcherUni(poNode, oPath, 1, 0, poNode, fUnlink, false);
}

template<class T, class A>
auto basic_squeezem<T, A>::SearcherUni(tNode* poNode, const tString& oPath, size_type nLevel,
                                       size_type nDepth, tNode* poPrev, bool fUnlink, bool fDeleteAll)
    -> tNode* {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  if (nDepth == 0) nDepth = Deep(oPath);
  if (nDepth != 0 && nLevel > nDepth) return nullptr;
  if (fDeleteAll) {
    DeleteTree(poNode);
    return nullptr;
  }
  tWalk walk{oPath, fUnlink, TableEnd()};
  return Search(walk, poNode, nLevel, nDepth, poPrev);
}

template<class T, class A>
auto basic_squeezem<T, A>::Walker(tNode* poNode, const tString& oPath, size_type nLevel, size_type nDepth,
                                  tNode* poPrev) -> tWalkerCode {
  if (!IsNode(poNode)) return eWCnull;
  if (nDepth == 0) return visit(poNode, nLevel, poPrev);
  try {
    bool found;
    switch (compare(poNode, tString(Component(oPath, nLevel, found)))) {
    case 0: return nLevel == nDepth ? eWCfind : eWCnextdown;
    case 1: return nLevel >= nDepth ? eWCnextright : eWCnextwidth;
    }
  } catch (const std::exception&) {
    // a component that no memory can be had for cannot be compared
  }
  return eWCerror;
}

// One level of a search. The code of the node that the level began with decides how the whole level is run:
// only a stop of a sibling changes it. That is why a level begun by a match ends with it, and why a level
// begun by a mismatch looks at every sibling and goes into each that matches.
template<class T, class A>
auto basic_squeezem<T, A>::Search(tWalk& oWalk, tNode* poNode, size_type nLevel, size_type nDepth,
                                  tNode* poPrev) -> tNode* {
  if (nLevel > kMaxLevel || !oWalk.Goes()) return nullptr;
  uint32_t code = Walker(poNode, oWalk.oPath, nLevel, nDepth, poPrev);
  uint32_t own = code; // of the node at hand
  while (!(code & eWCstop) && code & eWCnextwidth) {
    size_type down = prop_GetDown(poNode);
    if (code & eWCnextdown && down != 0 && (nDepth == 0 || own == eWCnextdown)) {
      tNode* found = Search(oWalk, node_get(down), nLevel + 1, nDepth, poNode);
      if (found) return found;
    }
    size_type right = code & eWCnextright ? prop_GetRight(poNode) : 0;
    tNode* next = right != 0 ? node_get(right) : nullptr;
    if (!next || !oWalk.Goes()) return nullptr;
    poPrev = std::exchange(poNode, next);
    own = Walker(poNode, oWalk.oPath, nLevel, nDepth, poPrev);
    if (own & eWCstop) code = own;
  }
  if (code != eWCfind) return nullptr;
  return oWalk.fUnlink && nLevel == nDepth ? Unlink(poNode, poPrev) : poNode;
}

// --- memory ------------------------------------------------------------------------------------------------

template<class T, class A> T* basic_squeezem<T, A>::mm_alloc(size_type nLen) {
  try {
    return std::allocator_traits<A>::allocate(oAlloc, nLen);
  } catch (const std::exception&) { // bad_alloc, also for a length that no allocation can have
    return nullptr;
  }
}

template<class T, class A> T* basic_squeezem<T, A>::mm_realloc(T* pb, size_type nOld, size_type nNew) {
  T* fresh = nullptr;
  if (nNew != 0) {
    fresh = mm_alloc(nNew);
    if (!fresh) return nullptr;
    if (pb) memcpy(fresh, pb, std::min(nOld, nNew));
  }
  if (pb) {
    explicit_bzero(pb, nOld);
    std::allocator_traits<A>::deallocate(oAlloc, pb, nOld);
  }
  return fresh;
}

template<class T, class A> void basic_squeezem<T, A>::mem_freeempty() {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  FreeEmpty(nullptr);
}

template<class T, class A> void basic_squeezem<T, A>::FreeEmpty(size_type* pnFollow) {
  while (tNode* po = node_findempty()) {
    if (!Sound()) return;
    if (pnFollow && prop_GetNodNum(po) < *pnFollow) --*pnFollow;
    RemoveRecord(prop_GetNodNum(po), 0, 0);
    prop_SubEmpty(1);
  }
}

template<class T, class A> void basic_squeezem<T, A>::mem_squeeze(tNode* poNode, bool fKeepEmpty) {
  [[maybe_unused]] zat::SqueezeGuard guard(*this, zat::eSCroom);
  if (!Sound()) return;
  if (!poNode) return Compact();
  if (!IsNode(poNode)) return;
  if (IsEmpty(poNode)) prop_SubEmpty(1); // counted already
  size_type offset = prop_GetDataOfs(poNode), moved = FreeBlob(poNode);
  if (!fKeepEmpty) return RemoveRecord(prop_GetNodNum(poNode), offset, moved);
  if (moved != 0)
    for (size_type i = 1, end = TableEnd(); i < end; ++i) Adjust(i, i, ~size_type{0}, offset, moved);
  memset(static_cast<void*>(poNode), 0, zat::kNodeSize);
  prop_AddEmpty(1);
}

// Takes a blob out of the data area and gives its length, by which the blobs below it have moved up.
template<class T, class A> auto basic_squeezem<T, A>::FreeBlob(const tNode* poNode) -> size_type {
  size_type length = prop_GetDataLen(poNode), offset = prop_GetDataOfs(poNode), data = prop_GetDataLst();
  if (length == 0 || !Blob(poNode)) return 0;
  memmove(pbBuffer + data + length, pbBuffer + data, offset - data);
  memset(pbBuffer + data, oSQThisZT, length);
  prop_AddDataLst(length);
  return length;
}

// Copies a record within the table, after record nGone has left it and the blobs below nOffset have moved up
// by nMoved. Links to nGone itself stay: there must be none. A blob of no length that lies at nOffset moves
// too, or it would be left outside the data area.
template<class T, class A>
void basic_squeezem<T, A>::Adjust(size_type nTo, size_type nFrom, size_type nGone, size_type nOffset,
                                  size_type nMoved) {
  const tNode* from = At(nFrom);
  size_type right = prop_GetRight(from), down = prop_GetDown(from), length = prop_GetDataLen(from),
            offset = prop_GetDataOfs(from);
  tNode* to = At(nTo);
  prop_PutRight(to, right - (right > nGone));
  prop_PutDown(to, down - (down > nGone));
  prop_PutDataLen(to, length);
  prop_PutDataOfs(to, offset + (offset - 1 < nOffset ? nMoved : 0)); // 0, no blob, is the largest here
}

// Takes a record out of the table and renumbers what is above it, in one run together with the moved blobs.
template<class T, class A>
void basic_squeezem<T, A>::RemoveRecord(size_type nNumber, size_type nOffset, size_type nMoved) {
  size_type end = TableEnd();
  for (size_type i = 1; i < nNumber; ++i) Adjust(i, i, nNumber, nOffset, nMoved);
  for (size_type i = nNumber + 1; i < end; ++i) Adjust(i - 1, i, nNumber, nOffset, nMoved);
  memset(static_cast<void*>(At(end - 1)), oSQThisZT, zat::kNodeSize);
  prop_SubNodsNum(1);
  if (prop_GetFirst() > nNumber) prop_SubFirst(1);
}

template<class T, class A> void basic_squeezem<T, A>::Compact() {
  FreeEmpty(nullptr);
  size_type spare = mem_freesize();
  if (nStep == 0 || spare == 0) return;
  size_type table = prop_GetNodsLen(), data = prop_GetDataLst();
  memmove(pbBuffer + table, pbBuffer + data, nBuffer - data);
  for (size_type i = 1, end = TableEnd(); i < end; ++i)
    if (prop_GetDataOfs(At(i)) != 0) prop_SubDataOfs(At(i), spare);
  prop_PutDataLst(table);
  T* pb = mm_realloc(pbBuffer, nBuffer + nUnshrunk, nBuffer - spare);
  nUnshrunk = pb ? 0 : nUnshrunk + spare;
  if (pb) pbBuffer = pb;
  nBuffer -= spare;
}

template<class T, class A>
auto basic_squeezem<T, A>::prop_GetData(const tNode* po, void* pvOut, size_type nLen) const -> size_type {
  const T* blob = IsNode(po) ? Blob(po) : nullptr;
  if (blob && pvOut && nLen > 0 && nLen <= prop_GetDataLen(po)) memcpy(pvOut, blob, nLen);
  return nLen;
}

template<class T, class A>
void basic_squeezem<T, A>::prop_PutData(tNode* po, const void* pvBytes, size_type nLen) {
  T* blob = IsNode(po) ? Blob(po) : nullptr;
  if (blob && pvBytes && nLen > 0 && nLen == prop_GetDataLen(po)) memcpy(blob, pvBytes, nLen);
}
