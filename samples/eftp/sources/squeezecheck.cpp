#include "squeezecheck.h"
#include "gabids.h"
#include "squeezenode.h"
#include <algorithm>
#include <initializer_list>
#include <new>
#include <string_view>
#include <vector>

namespace zat {

namespace {

// A buffer that may hold anything. Nothing is read before its place has been compared with the size.
class Buffer {
public:
  Buffer(const void* pvBytes, uint64_t nSizeIn) : pc(static_cast<const char*>(pvBytes)), nSize(nSizeIn) {
    if (nSize < kNodeSize) return;
    nEmpty = Word(0, kWordEmpty);
    nFirst = Word(0, kWordFirst);
    nTable = Word(0, kWordNodsLen);
    nData = Word(0, kWordDataLst);
    nRecords = std::min(nTable, nSize) / kNodeSize;
  }

  uint64_t Word(uint64_t nRecord, size_t lWord) const {
    return ReformWord(GetWord(pc + nRecord * kNodeSize, lWord));
  }
  bool Empty(uint64_t n) const { return Word(n, kWordDataLen) == 0 && Word(n, kWordDataOfs) == 0; }
  // Whether a link leads to a node.
  bool Leads(uint64_t n) const { return n != 0 && n < nRecords && !Empty(n); }
  bool BlobInside(uint64_t n) const {
    uint64_t offset = Word(n, kWordDataOfs), length = Word(n, kWordDataLen);
    return offset >= nData && offset <= nSize && length <= nSize - offset;
  }
  const tHeaderD* Blob(uint64_t n) const {
    return reinterpret_cast<const tHeaderD*>(pc + Word(n, kWordDataOfs));
  }

  const char* pc;
  uint64_t nSize;
  uint64_t nEmpty = 0, nFirst = 0, nTable = 0, nData = 0; // the words of record 0
  uint64_t nRecords = 0;                                  // of the table, record 0 included
};

constexpr tSqueezeFault kSound = {0, 0, nullptr};

uint64_t WordAt(uint64_t nRecord, size_t lWord) { return nRecord * kNodeSize + lWord; }

// Invariant 1. Nothing else can be read before this holds.
tSqueezeFault CheckRecord0(const Buffer& o) {
  if (o.nSize < kNodeSize) return {1, 0, "the buffer cannot hold record 0"};
  if (o.nTable < kNodeSize || o.nTable % kNodeSize != 0)
    return {1, kWordNodsLen, "NodsLen is no table's length"};
  if (o.nTable > o.nData) return {1, kWordNodsLen, "the table reaches into the data area"};
  if (o.nData > o.nSize) return {1, kWordDataLst, "the data area begins behind the buffer"};
  return kSound;
}

// Invariants 2 to 4.
tSqueezeFault CheckBlobs(const Buffer& o) {
  std::vector<std::pair<uint64_t, uint64_t>> blobs; // offset, number
  blobs.reserve(o.nRecords);
  uint64_t empty = 0;
  for (uint64_t n = 1; n < o.nRecords; ++n) {
    if (o.Empty(n))
      ++empty;
    else if (!o.BlobInside(n))
      return {3, WordAt(n, kWordDataOfs), "a blob leaves the data area"};
    else if (o.Word(n, kWordDataLen) != 0)
      blobs.emplace_back(o.Word(n, kWordDataOfs), n);
  }
  if (empty != o.nEmpty) return {2, kWordEmpty, "Empty is not the number of empty records"};
  std::sort(blobs.begin(), blobs.end());
  uint64_t end = o.nData;
  for (auto [offset, n] : blobs) {
    if (offset < end) return {4, offset, "two blobs share bytes"};
    if (offset > end) return {4, end, "bytes of the data area belong to no blob"};
    end += o.Word(n, kWordDataLen);
  }
  if (end != o.nSize) return {4, end, "bytes of the data area belong to no blob"};
  return kSound;
}

// Invariant 7.
tSqueezeFault CheckGap(const Buffer& o) {
  for (uint64_t i = o.nTable; i < o.nData; ++i)
    if (static_cast<unsigned char>(o.pc[i]) != kSqueezeFill) return {7, i, "a free byte is not the filler"};
  return kSound;
}

// Invariants 5 and 6.
tSqueezeFault CheckTree(const Buffer& o) {
  std::vector<bool> seen(o.nRecords);
  std::vector<uint64_t> open;
  tSqueezeFault fault = kSound;
  auto follow = [&](uint64_t nRecord, size_t lWord) {
    uint64_t target = o.Word(nRecord, lWord);
    if (target == 0 || fault.iInvariant != 0) return;
    if (!o.Leads(target)) {
      fault = {5, WordAt(nRecord, lWord), "a link leads to no node"};
    } else if (seen[target]) {
      fault = {6, WordAt(nRecord, lWord), "a second link leads to the same node"};
    } else {
      seen[target] = true;
      open.push_back(target);
    }
  };
  follow(0, kWordFirst);
  while (!open.empty() && fault.iInvariant == 0) {
    uint64_t n = open.back();
    open.pop_back();
    follow(n, kWordRight);
    follow(n, kWordDown);
  }
  for (uint64_t n = 1; n < o.nRecords && fault.iInvariant == 0; ++n)
    if (!seen[n] && !o.Empty(n)) fault = {6, n * kNodeSize, "no link leads to a node"};
  return fault;
}

// Invariant 8.
tSqueezeFault CheckTags(const Buffer& o) {
  for (uint64_t n = 1; n < o.nRecords; ++n) {
    if (o.Empty(n)) continue;
    uint64_t place = o.Word(n, kWordDataOfs), value;
    if (!o.Blob(n)->DataMem(o.Word(n, kWordDataLen), &value))
      return {8, place, "a blob is shorter than its tag"};
    if (!tHeader::CanStore(o.Blob(n)->oDataType)) return {8, place, "a blob has no type"};
  }
  return kSound;
}

tSqueezeFault CheckAll(const Buffer& o, tSqueezeCheck oHow) {
  tSqueezeFault fault = CheckRecord0(o);
  if (fault.iInvariant == 0) fault = CheckBlobs(o);
  if (fault.iInvariant == 0) fault = CheckGap(o);
  if (fault.iInvariant == 0 && oHow >= eSCtree) fault = CheckTree(o);
  if (fault.iInvariant == 0 && oHow >= eSCtags) fault = CheckTags(o);
  return fault;
}

const char* TypeName(unsigned char bType) {
  switch (bType) {
  case eDTnode: return "node";
  case eDTpdata: return "bytes";
  case eDTshort: return "short";
  case eDTlong: return "number";
  case eDTpempel: return "empty";
  default: return "unknown type";
  }
}

// A value as it may be seen under this path.
tString Shown(const tString& oPath, tString oValue) {
  MaskValue(oPath, oValue);
  tString out;
  for (char c : oValue) {
    static const char kHex[] = "0123456789ABCDEF";
    unsigned char b = static_cast<unsigned char>(c);
    if (b >= 0x20 && b < 0x7F)
      out += c;
    else
      out.append("\\x").append(1, kHex[b >> 4]).append(1, kHex[b & 15]);
  }
  return out;
}

void Add(tString& oOut, std::initializer_list<std::string_view> oPieces) {
  for (std::string_view piece : oPieces) oOut.append(piece);
}

// One line. Returns the node's path, oParent being that of the node above with a dot behind it.
tString DumpNode(const Buffer& o, uint64_t n, const tString& oParent, size_t lIndent, tString& oOut) {
  oOut.append(lIndent * 2, ' ');
  uint64_t length = o.Word(n, kWordDataLen), value = 0;
  const char* data = o.BlobInside(n) ? o.Blob(n)->DataMem(length, &value) : nullptr;
  if (!data) {
    Add(oOut, {"? [", std::to_string(n), "] unreadable\n"});
    return oParent + "?";
  }
  const tHeaderD* blob = o.Blob(n);
  std::string_view tag(blob->TagMem(length), blob->oTagLen);
  tString path = oParent;
  path.append(tag);
  Add(oOut, {tag, " [", std::to_string(n), "] ", TypeName(blob->oDataType)});
  if (blob->oDataType == eDTlong && value >= sizeof(int64_t)) {
    int64_t number;
    memcpy(&number, data, sizeof number);
    Add(oOut, {" ", Shown(path, std::to_string(number))});
  } else if (value > 0) {
    Add(oOut, {"(", std::to_string(value), ") \"", Shown(path, tString(data, value)), "\""});
  }
  oOut.append("\n");
  return path;
}

} // namespace

bool SqueezeCheck(const void* pvBuffer, uint64_t nSize, tSqueezeCheck oHow, tSqueezeFault* poFault) {
  tSqueezeFault fault = kSound;
  try {
    if (pvBuffer) fault = CheckAll(Buffer(pvBuffer, nSize), oHow);
  } catch (const std::bad_alloc&) { // nothing is known to be wrong
  }
  if (poFault) *poFault = fault;
  return fault.iInvariant == 0;
}

tString SqueezeDump(const void* pvBuffer, uint64_t nSize) {
  if (!pvBuffer) return "store without memory\n";
  Buffer o(pvBuffer, nSize);
  tString out;
  Add(out, {"store of ", std::to_string(nSize), " bytes: ", std::to_string(o.nRecords), " records, ",
            std::to_string(o.nEmpty), " empty, table to ", std::to_string(o.nTable), ", data from ",
            std::to_string(o.nData), "\n"});
  tSqueezeFault fault = CheckAll(o, eSCtags);
  if (fault.iInvariant != 0)
    Add(out, {"damaged at ", std::to_string(fault.nOffset), " (invariant ", std::to_string(fault.iInvariant),
              "): ", fault.pccWhat, "\n"});

  struct tOpen {
    uint64_t n;
    tString oParent;
    size_t lIndent;
  };
  std::vector<tOpen> open;
  std::vector<bool> seen(o.nRecords);
  auto later = [&](uint64_t n, const tString& oParent, size_t lIndent) {
    if (!o.Leads(n) || seen[n]) return;
    seen[n] = true;
    open.push_back({n, oParent, lIndent});
  };
  later(o.nFirst, "", 0);
  while (!open.empty()) {
    tOpen at = std::move(open.back());
    open.pop_back();
    tString path = DumpNode(o, at.n, at.oParent, at.lIndent, out);
    later(o.Word(at.n, kWordRight), at.oParent, at.lIndent);
    later(o.Word(at.n, kWordDown), path.append("."), at.lIndent + 1); // taken first: children before siblings
  }
  return out;
}

} // namespace zat
