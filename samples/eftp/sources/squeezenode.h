// The buffer of a parameter store: what stands where, and what always holds. The store (squeezem.h,
// squeezet.h) and its checker (squeezecheck.h) both read and write it through what is declared here.
//
// One buffer holds a whole tree, so that a store is copied, grown and given away as one block:
//
//   0         32                     NodsLen              DataLst                       buffer size
//   +---------+----------------------+--------------------+-----------------------------+
//   | record 0| records 1, 2, 3 ...  | the gap, all 0xBA  | blobs, the newest lowest    |
//   +---------+----------------------+--------------------+-----------------------------+
//              the table grows up ->                    <- the blobs grow down
//
// A record is four words of 8 bytes in the machine's order. Record 0 keeps the store's own properties; the
// others are nodes, known by their number (the index in the table):
//
//   offset  size  record 0                             a node
//   0       8     Empty:   number of empty records     iRight:   number of the next sibling, 0 = none
//   8       8     First:   first top-level node        iDown:    number of the first child, 0 = none
//   16      8     NodsLen: bytes of the table, with    nDataLen: length of the node's blob
//                          record 0
//   24      8     DataLst: offset of the lowest blob   nDataOfs: offset of the blob, 0 = no blob
//
// A blob is a header of two bytes, the tag, and the value:
//
//   offset       size     meaning
//   0            1        type of the value (tDataType)
//   1            1        length of the tag, modulo 256
//   2            tag      the tag, without an end mark
//   2 + tag      rest     the value
//
// So "A.B" = "1" and "C" = 5 in a buffer of 160 bytes, three nodes in all, are:
//
//   000  00 00 00 00 00 00 00 00  01 00 00 00 00 00 00 00   Empty 0,   First 1
//   010  80 00 00 00 00 00 00 00  8E 00 00 00 00 00 00 00   NodsLen 128, DataLst 142
//   020  03 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00   node 1 (A): next sibling 3, first child 2
//   030  03 00 00 00 00 00 00 00  9D 00 00 00 00 00 00 00               3 bytes at 157
//   040  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00   node 2 (B): the only child
//   050  04 00 00 00 00 00 00 00  99 00 00 00 00 00 00 00               4 bytes at 153
//   060  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00   node 3 (C): the last sibling
//   070  0B 00 00 00 00 00 00 00  8E 00 00 00 00 00 00 00               11 bytes at 142
//   080  BA BA BA BA BA BA BA BA  BA BA BA BA BA BA         the gap
//   08E  08 01 43 05 00 00 00 00  00 00 00                  eDTlong, tag of 1, "C", 5
//   099  01 01 42 31                                        eDTpdata, tag of 1, "B", "1"
//   09D  00 01 41                                           eDTnode, tag of 1, "A"
//
// What always holds between two operations (asserts and the checker cite these numbers):
//
//   1  32 <= NodsLen <= DataLst <= buffer size, and NodsLen is a multiple of 32.
//   2  A record is empty exactly when its nDataLen and nDataOfs are both 0, and Empty counts the empty
//      records.
//   3  The blob of every other record lies in the data area [DataLst, buffer size).
//   4  The blobs fill the data area without a hole and without sharing a byte.
//   5  First, and iRight and iDown of every node in the tree, are 0 or the number of a record that is not
//      empty.
//   6  Every record that is not empty is reached from First on exactly one way. (A caller of the lower
//      operations may hold a node detached for a while.)
//   7  The gap holds nothing but the filler: what a store has let go of can no longer be read in it.
//   8  In a store of tagged values every blob is at least as long as its header and tag, and its type is one
//      that can be stored.
#pragma once
#include "ssqueeze.h"
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace zat {

constexpr uint64_t kNodeSize = 32; // four words
constexpr unsigned kNodeShift = 5; // the same as a shift, between a number and an offset
constexpr unsigned char kSqueezeFill = 0xBA;
static_assert(uint64_t{1} << kNodeShift == kNodeSize);

// The words of a record as offsets in it: of record 0, and of a node.
constexpr size_t kWordEmpty = 0, kWordFirst = 8, kWordNodsLen = 16, kWordDataLst = 24;
constexpr size_t kWordRight = 0, kWordDown = 8, kWordDataLen = 16, kWordDataOfs = 24;

// The one place where the representation of a stored word would be converted, in both directions.
constexpr uint64_t ReformWord(uint64_t nWord) { return nWord; }

// A word of the buffer as it is stored. Copied byte by byte, because a buffer need not be aligned.
inline uint64_t GetWord(const void* pvRecord, size_t lWord) {
  uint64_t word;
  memcpy(&word, static_cast<const char*>(pvRecord) + lWord, sizeof word);
  return word;
}
inline void PutWord(void* pvRecord, size_t lWord, uint64_t nWord) {
  memcpy(static_cast<char*>(pvRecord) + lWord, &nWord, sizeof nWord);
}

} // namespace zat

// The first two bytes of a blob.
struct tHeader {
  unsigned char oDataType; // a tDataType that can be stored
  unsigned char oTagLen; // length of the tag, modulo 256: a longer tag stands whole, but is never found again

  // Whether a type may stand in a blob; the negative ones are answers.
  static constexpr bool CanStore(int iType) {
    return iType == eDTnode || iType == eDTpdata || iType == eDTshort || iType == eDTlong ||
           iType == eDTpempel;
  }
};

// A blob of tagged data, laid over its bytes in the buffer. The functions that read take the length of the
// blob and give null for a blob that is shorter than its own header and tag.
struct tHeaderD : tHeader {
  static constexpr uint64_t GetHeaderLen() { return sizeof(tHeader); }

  // The length of a blob for this tag and value; 0 when no blob can be that long.
  static constexpr uint64_t CalcMemLen(uint64_t nTag, uint64_t nValue) {
    constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max() - sizeof(tHeader);
    return nTag > kMost || nValue > kMost - nTag ? 0 : GetHeaderLen() + nTag + nValue;
  }

  // The tag, oTagLen bytes.
  const char* TagMem(uint64_t nBlob) const {
    return nBlob < GetHeaderLen() || nBlob - GetHeaderLen() < oTagLen ? nullptr : Bytes() + GetHeaderLen();
  }

  // The value, *pnLen bytes.
  const char* DataMem(uint64_t nBlob, uint64_t* pnLen) const {
    const char* tag = TagMem(nBlob);
    if (!tag) return nullptr;
    *pnLen = nBlob - GetHeaderLen() - oTagLen;
    return tag + oTagLen;
  }

  // 0 when the tag is oTag, byte by byte and as a whole; 1 when it differs.
  int CompareTag(uint64_t nBlob, std::string_view oTag) const {
    const char* tag = TagMem(nBlob);
    if (!tag || oTagLen != oTag.size()) return 1;
    if (!oTag.empty() && *tag != oTag[0])
      return 1; // most tags differ here, and the call costs more than they do
    return memcmp(tag, oTag.data(), oTag.size()) == 0 ? 0 : 1;
  }

  // Writes header, tag and value; the blob has CalcMemLen bytes. A value without bytes is stored as
  // eDTpempel, or as eDTnode when oType is that.
  void Place(tDataType oType, std::string_view oTag, const void* pvValue, uint64_t nValue) {
    oDataType = static_cast<unsigned char>(nValue > 0 ? oType : oType != eDTnode ? eDTpempel : eDTnode);
    oTagLen = static_cast<unsigned char>(oTag.size());
    char* out = const_cast<char*>(Bytes()) + GetHeaderLen();
    if (!oTag.empty()) memcpy(out, oTag.data(), oTag.size());
    if (nValue > 0) memcpy(out + oTag.size(), pvValue, nValue);
  }

private:
  const char* Bytes() const { return reinterpret_cast<const char*>(this); }
};
static_assert(sizeof(tHeader) == 2 && alignof(tHeaderD) == 1);

namespace zat {

// A tag that many blobs are compared with. Tags are short: length and tag of a blob are then compared as one
// word instead of byte by byte.
class TagKey {
public:
  explicit TagKey(std::string_view oTagIn) : oTag(oTagIn) {
    if (std::endian::native != std::endian::little || oTag.size() >= sizeof nKey) return;
    nKey = oTag.size();
    for (size_t i = 0; i < oTag.size(); ++i)
      nKey |= uint64_t{static_cast<unsigned char>(oTag[i])} << 8 * (i + 1);
    nMask = ~uint64_t{0} >> 8 * (sizeof nMask - 1 - oTag.size());
  }

  // What MayMatch reads from a blob's place on: the type, and the word that is compared.
  static constexpr uint64_t kRead = 1 + sizeof(uint64_t);

  // False when the bytes at a blob's place are not those of this tag. True says nothing yet.
  bool MayMatch(const void* pvBlob) const {
    return ((zat::GetWord(pvBlob, offsetof(tHeader, oTagLen)) ^ nKey) & nMask) == 0;
  }

  // Whether the blob of nBlob bytes has this tag; nReadable bytes can be read from its begin on, no fewer
  // than nBlob.
  bool Matches(const tHeaderD* poBlob, uint64_t nBlob, uint64_t nReadable) const {
    if (nMask == 0 || nReadable <= sizeof nKey) return poBlob->CompareTag(nBlob, oTag) == 0;
    uint64_t word;
    memcpy(&word, &poBlob->oTagLen, sizeof word);
    return ((word ^ nKey) & nMask) == 0 && nBlob >= tHeaderD::CalcMemLen(oTag.size(), 0);
  }

private:
  std::string_view oTag;
  uint64_t nKey = 0;
  uint64_t nMask = 0; // 0: not a short tag
};

} // namespace zat
