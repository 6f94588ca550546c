// Checksums of memory and of files, and the record log.
#include "MiscFunc.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// ---- The checksum -----------------------------------------------------------------------------------------

namespace {

constexpr unsigned kPolynomial = 0x1021; // x^12 + x^5 + 1; the x^16 is the bit that falls out

constexpr uint16_t TimesX8(unsigned uRemainder) {
  for (int i = 0; i < 8; ++i) uRemainder = uRemainder << 1 ^ (uRemainder & 0x8000 ? kPolynomial : 0);
  return static_cast<uint16_t>(uRemainder);
}

// mu[k][b] is the remainder of the byte b followed by k + 2 zero bytes: what b contributes to a checksum that
// is taken k + 2 bytes later. With one table per distance the contributions of many bytes are independent
// look-ups; with the first alone each byte waits for the one before.
constexpr size_t kSlices = 16;
struct Slices {
  uint16_t mu[kSlices][256];
};
constexpr Slices MakeSlices() {
  Slices oOut{};
  for (unsigned b = 0; b < 256; ++b) {
    uint16_t uRemainder = TimesX8(b << 8);
    for (size_t k = 0; k < kSlices; ++k, uRemainder = TimesX8(uRemainder)) oOut.mu[k][b] = uRemainder;
  }
  return oOut;
}
constexpr Slices kTable = MakeSlices();

uint16_t SumSliced(const unsigned char* pb, size_t lLen, unsigned uCrc) {
  for (; lLen >= kSlices; lLen -= kSlices, pb += kSlices) {
    // The running value stands two bytes in front of the 16; the last two bytes are too near to be reduced.
    unsigned uNext =
        kTable.mu[15][uCrc >> 8] ^ kTable.mu[14][uCrc & 0xFF] ^ static_cast<unsigned>(pb[14] << 8) ^ pb[15];
#pragma GCC unroll 14
    for (size_t i = 0; i < kSlices - 2; ++i) uNext ^= kTable.mu[kSlices - 3 - i][pb[i]];
    uCrc = uNext;
  }
  for (; lLen; --lLen) uCrc = (uCrc << 8 & 0xFFFF) ^ kTable.mu[0][uCrc >> 8] ^ *pb++;
  return static_cast<uint16_t>(uCrc);
}

// Long messages are shortened before any table is used. Squaring a polynomial over bits doubles its exponents
// and adds no terms, so the checksum's one also divides x^1024 + x^768 + x^320 + 1. In 64-bit words that is
// w^16 = w^12 + w^5 + 1: a word of the message may be taken away when it is xored into the words 4, 11 and 16
// places further on. This moves whole bytes only, so the machine's byte order does not matter.
constexpr size_t kFold = 16; // words

void Fold(uint64_t (&mulState)[kFold], const unsigned char* pb) {
  uint64_t mul[2 * kFold];
  memcpy(mul, mulState, sizeof mulState);
  memcpy(mul + kFold, pb, sizeof mulState);
#pragma GCC unroll 16
  for (size_t i = 0; i < kFold; ++i) {
    mul[i + 4] ^= mul[i];
    mul[i + 11] ^= mul[i];
    mul[i + 16] ^= mul[i];
  }
  memcpy(mulState, mul + kFold, sizeof mulState);
}

} // namespace

#define TABLE_4(i) kTable.mu[0][i], kTable.mu[0][i + 1], kTable.mu[0][i + 2], kTable.mu[0][i + 3]
#define TABLE_16(i) TABLE_4(i), TABLE_4(i + 4), TABLE_4(i + 8), TABLE_4(i + 12)
#define TABLE_64(i) TABLE_16(i), TABLE_16(i + 16), TABLE_16(i + 32), TABLE_16(i + 48)
constinit const uint16_t musCrc16Tab[256] = {TABLE_64(0), TABLE_64(64), TABLE_64(128), TABLE_64(192)};

uint16_t flatcrc16(const void* pvBytes, uint16_t iLen, uint16_t iStart) {
  const unsigned char* pb = static_cast<const unsigned char*>(pvBytes);
  size_t lLen = iLen;
  uint64_t mulState[kFold] = {};
  if (lLen < 2 * sizeof mulState) return SumSliced(pb, lLen, iStart);

  unsigned char mbState[sizeof mulState] = {}; // a start value is two bytes in front of the message
  mbState[sizeof mbState - 2] = static_cast<unsigned char>(iStart >> 8);
  mbState[sizeof mbState - 1] = static_cast<unsigned char>(iStart);
  memcpy(mulState, mbState, sizeof mbState);
  for (; lLen >= sizeof mulState; lLen -= sizeof mulState, pb += sizeof mulState) Fold(mulState, pb);
  memcpy(mbState, mulState, sizeof mbState);
  return SumSliced(pb, lLen, SumSliced(mbState, sizeof mbState, 0));
}

// ---- Files ------------------------------------------------------------------------------------------------

namespace {

// An open file that is read and written at given places, and closed at the end.
class File {
public:
  File(const char* pccName, int iFlags) : iFd(pccName ? open(pccName, iFlags | O_CLOEXEC, 0666) : -1) {}
  ~File() {
    if (iFd != -1) close(iFd);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // -1 for a file that is not open.
  off_t Size() const {
    struct stat oStat;
    return iFd != -1 && fstat(iFd, &oStat) == 0 ? oStat.st_size : -1;
  }

  bool ReadAt(off_t lAt, void* pv, size_t lLen) const {
    for (char* pc = static_cast<char*>(pv); lLen;) {
      const ssize_t lGot = pread(iFd, pc, lLen, lAt);
      if (lGot == 0 || (lGot < 0 && errno != EINTR)) return false;
      const size_t lNow = static_cast<size_t>(std::max<ssize_t>(0, lGot));
      pc += lNow;
      lAt += static_cast<off_t>(lNow);
      lLen -= lNow;
    }
    return true;
  }

  // In one call, so that a full disk is the only way to write a part; false then, too.
  bool WriteAt(off_t lAt, const iovec* poPieces, int iCount) const {
    size_t lAll = 0;
    for (int i = 0; i < iCount; ++i) lAll += poPieces[i].iov_len;
    ssize_t lPut;
    do lPut = pwritev(iFd, poPieces, iCount, lAt);
    while (lPut < 0 && errno == EINTR);
    return lPut == static_cast<ssize_t>(lAll);
  }
  bool WriteAt(off_t lAt, void* pv, size_t lLen) const {
    const iovec oPiece{pv, lLen};
    return WriteAt(lAt, &oPiece, 1);
  }
  bool Cut(off_t lSize) const { return ftruncate(iFd, lSize) == 0; }

  // Continues a checksum over a stretch of the file, or only reads it when there is no routine.
  bool Sum(off_t lAt, off_t lEnd, procCRC fnCrc, uint16_t& uCrc) const {
    char mcChunk[8192];
    for (; lAt < lEnd; lAt += static_cast<off_t>(sizeof mcChunk)) {
      const size_t lNow = static_cast<size_t>(std::min<off_t>(lEnd - lAt, sizeof mcChunk));
      if (!ReadAt(lAt, mcChunk, lNow)) return false;
      if (fnCrc) uCrc = fnCrc(mcChunk, static_cast<uint16_t>(lNow), uCrc);
    }
    return true;
  }

private:
  int iFd;
};

constexpr size_t kWord = sizeof(uint16_t);

// A word between this machine's order and that of files; the way is the same in both directions.
uint16_t FileWord(uint16_t uWord) {
  trueword(&uWord, nullptr, oMemoryCurrent);
  return uWord;
}

} // namespace

uint16_t truefilecrc16len(const char* pccName, int iMode, const unsigned long* pulLimit) {
  if (iMode < 0 || iMode > 3) return 0;
  const File oFile(pccName, iMode < 2 ? O_RDONLY : O_RDWR);
  const off_t lFile = oFile.Size();
  off_t lSize = lFile;
  if (pulLimit && lSize > 0 && *pulLimit < static_cast<unsigned long>(lSize))
    lSize = static_cast<off_t>(*pulLimit);
  const off_t lStored = iMode & 1 ? kWord : 0;
  uint16_t uCrc = musCrc16Tab[0];
  if (lSize <= lStored || !oFile.Sum(0, lSize - lStored, flatcrc16, uCrc)) return 0;

  uint16_t uWord = FileWord(uCrc);
  bool fOk = true;
  switch (iMode) {
  case 1: fOk = oFile.ReadAt(lSize - lStored, &uWord, kWord) && FileWord(uWord) == uCrc; break;
  case 2: fOk = oFile.WriteAt(lFile, &uWord, kWord); break;
  case 3: fOk = oFile.WriteAt(lSize - lStored, &uWord, kWord); break;
  }
  return fOk ? uCrc : 0;
}

uint16_t truefilecrc16(const char* pccName, int iMode) { return truefilecrc16len(pccName, iMode, nullptr); }

// ---- Record log -------------------------------------------------------------------------------------------

namespace {

enum tLogMode : int { eLMappend = 1, eLMcheck = 2, eLMread = 4 };
constexpr size_t kLengths = 2 * kWord; // L in front of the data and behind
constexpr size_t kMost = 65535;        // what a word can count

class RecordLog {
public:
  RecordLog(const char* pccName, bool fAppend, procCRC fnSum, bool fRecords)
      : oFile(pccName, fAppend ? O_RDWR | O_CREAT : O_RDONLY), fnCrc(fnSum), lRecCrc(fRecords ? kWord : 0) {}

  // False for what cannot be a log.
  bool Begin() {
    lSize = oFile.Size();
    if (lSize == 0) return true;
    lEnd = lSize - static_cast<off_t>(sizeof oTrailer);
    return lEnd >= static_cast<off_t>(kLengths) && oFile.ReadAt(lEnd, &oTrailer, sizeof oTrailer);
  }

  bool Has(uint16_t uRec, uint16_t uId) const {
    const bool fMine = lSize == 0 || FileWord(oTrailer.uId) == uId;
    return fMine && (uRec == 0 || uRec < FileWord(oTrailer.uCount));
  }

  uint16_t Append(const void* pvBuf, size_t lLen, uint16_t uId) const {
    const size_t lAll = lLen + kLengths + lRecCrc;
    const uint16_t uCount = FileWord(oTrailer.uCount);
    if ((!pvBuf && lLen) || lLen > kMost || lAll > kMost || uCount == kMost) return 0;
    uint16_t uLen = FileWord(static_cast<uint16_t>(lAll));
    uint16_t uRecCrc = FileWord(Continue(pvBuf, lLen, 0));
    uint16_t uAll = Continue(&uLen, kWord, FileWord(oTrailer.uCrc));
    uAll = Continue(pvBuf, lLen, uAll);
    uAll = Continue(&uRecCrc, lRecCrc, uAll);
    uAll = Continue(&uLen, kWord, uAll);
    Trailer oNew{FileWord(static_cast<uint16_t>(uCount + 1)), FileWord(uId), FileWord(uAll)};
    const iovec moPieces[] = {{&uLen, kWord},
                              {const_cast<void*>(pvBuf), lLen},
                              {&uRecCrc, lRecCrc},
                              {&uLen, kWord},
                              {&oNew, sizeof oNew}};
    if (oFile.WriteAt(lEnd, moPieces, std::size(moPieces))) return 1;
    Trailer oOld = oTrailer; // no room: the log stays what it was
    if (lSize == 0 || oFile.WriteAt(lEnd, &oOld, sizeof oOld)) oFile.Cut(lSize);
    return 0;
  }

  uint16_t Check() const {
    uint16_t uCrc = 0;
    size_t lCount = 0;
    off_t lAt = 0;
    for (off_t lNext; lAt < lEnd; lAt = lNext, ++lCount) {
      lNext = lAt + Length(lAt);
      if (lNext == lAt || (fnCrc && !oFile.Sum(lAt, lNext, fnCrc, uCrc))) return 0;
    }
    const uint16_t uCount = FileWord(oTrailer.uCount);
    if (lCount != uCount || (fnCrc && uCrc != FileWord(oTrailer.uCrc))) return 0;
    return std::max<uint16_t>(1, uCount);
  }

  uint16_t Read(void* pvBuf, size_t lRoom, uint16_t uRec) const {
    off_t lAt = 0;
    for (; uRec; --uRec) {
      const uint16_t uLen = Length(lAt);
      if (!uLen) return 0;
      lAt += uLen;
    }
    const uint16_t uLen = Length(lAt);
    if (!uLen) return 0;
    const size_t lData = uLen - kLengths - lRecCrc;
    const off_t lFrom = lAt + static_cast<off_t>(kWord), lTo = lFrom + static_cast<off_t>(lData);
    const bool fTest = !pvBuf && lRoom == 0;
    if (!fTest && (!pvBuf || lRoom < lData || !oFile.ReadAt(lFrom, pvBuf, lData))) return 0;
    uint16_t uCrc = 0, uStored = 0;
    if ((fTest || lRecCrc) && !oFile.Sum(lFrom, lTo, fnCrc, uCrc)) return 0;
    if (lRecCrc && !oFile.ReadAt(lTo, &uStored, kWord)) return 0;
    return lRecCrc && fnCrc && FileWord(uStored) != uCrc ? 0 : static_cast<uint16_t>(lData);
  }

private:
  struct Trailer { // as in the file
    uint16_t uCount, uId, uCrc;
  };
  static_assert(sizeof(Trailer) == 6);

  // The length of the record at a place in the file; 0 when no whole record stands there.
  uint16_t Length(off_t lAt) const {
    uint16_t uFirst, uLast;
    if (lAt + static_cast<off_t>(kLengths) > lEnd || !oFile.ReadAt(lAt, &uFirst, kWord)) return 0;
    const uint16_t uLen = FileWord(uFirst);
    const bool fFits = uLen >= kLengths + lRecCrc && lAt + uLen <= lEnd;
    return fFits && oFile.ReadAt(lAt + uLen - static_cast<off_t>(kWord), &uLast, kWord) && uLast == uFirst
               ? uLen
               : 0;
  }

  uint16_t Continue(const void* pv, size_t lLen, uint16_t uCrc) const {
    return fnCrc && lLen ? fnCrc(pv, static_cast<uint16_t>(lLen), uCrc) : uCrc;
  }

  const File oFile;
  const procCRC fnCrc;
  const size_t lRecCrc; // bytes of a record's checksum
  off_t lSize = 0;
  off_t lEnd = 0; // of the records, where the trailer begins
  Trailer oTrailer{};
};

} // namespace

uint16_t logWork(const char* pccName, void* pvBuf, size_t lLen, uint16_t uRec, uint16_t uId, int iMode,
                 procCRC fnCrc, bool fRecCrc) {
  if (iMode != eLMappend && iMode != eLMcheck && iMode != eLMread) return 0;
  RecordLog oLog(pccName, iMode == eLMappend, fnCrc, fRecCrc);
  if (!oLog.Begin()) return 0;
  if (iMode == eLMappend) return oLog.Append(pvBuf, lLen, uId);
  if (!oLog.Has(uRec, uId)) return 0;
  return iMode == eLMcheck ? oLog.Check() : oLog.Read(pvBuf, lLen, uRec);
}

uint16_t logAppend(const char* pccName, const void* pvBuf, size_t lLen, uint16_t uId, procCRC fnCrc,
                   bool fRecCrc) {
  return logWork(pccName, const_cast<void*>(pvBuf), lLen, 0, uId, eLMappend, fnCrc, fRecCrc);
}

uint16_t logRead(const char* pccName, void* pvBuf, size_t lLen, uint16_t uRec, uint16_t uId, procCRC fnCrc,
                 bool fRecCrc) {
  return logWork(pccName, pvBuf, lLen, uRec, uId, eLMread, fnCrc, fRecCrc);
}

uint16_t logTest(const char* pccName, uint16_t uRec, uint16_t uId, procCRC fnCrc, bool fRecCrc) {
  return logWork(pccName, nullptr, 0, uRec, uId, eLMread, fnCrc, fRecCrc);
}

uint16_t logCheck(const char* pccName, uint16_t uId, procCRC fnCrc) {
  return logWork(pccName, nullptr, 0, 0, uId, eLMcheck, fnCrc, false);
}
