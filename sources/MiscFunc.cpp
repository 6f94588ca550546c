#include "MiscFunc.h"
#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

static_assert(std::endian::native == std::endian::little,
              "MemoryMotorola is defined as the reverse of this order");

Memory oMemoryCurrent = MemoryMotorola;

// ---- Byte order of words in files -------------------------------------------------------------------------

namespace {

template<class W> W TrueWord(void* pvTarget, const void* pvSource, Memory oOrder) {
  unsigned char mb[sizeof(W)];
  W oBefore;
  memcpy(&oBefore, pvTarget, sizeof oBefore);
  memcpy(mb, pvSource ? pvSource : pvTarget, sizeof mb);
  if (oOrder == MemoryMotorola) std::reverse(mb, mb + sizeof mb);
  memcpy(pvTarget, mb, sizeof mb);
  return oBefore;
}

} // namespace

uint8_t truebyte(void* pvTarget, const void* pvSource, Memory oOrder) {
  return TrueWord<uint8_t>(pvTarget, pvSource, oOrder);
}

uint16_t trueword(void* pvTarget, const void* pvSource, Memory oOrder) {
  return TrueWord<uint16_t>(pvTarget, pvSource, oOrder);
}

uint32_t truedword(void* pvTarget, const void* pvSource, Memory oOrder) {
  return TrueWord<uint32_t>(pvTarget, pvSource, oOrder);
}

void* truememory(void* pvTarget, const void* pvSource, size_t lLen, Memory) {
  unsigned char* pbTarget = static_cast<unsigned char*>(pvTarget);
  const unsigned char* pbSource = static_cast<const unsigned char*>(pvSource);
  if (pbSource)
    while (lLen--) pbTarget[lLen] = pbSource[lLen];
  return pvTarget;
}

bool truetype(void* pvTarget, const void* pvSource, size_t lSize, Memory oOrder) {
  switch (lSize) {
  case 1: truebyte(pvTarget, pvSource, oOrder); return true;
  case 2: trueword(pvTarget, pvSource, oOrder); return true;
  case 4: truedword(pvTarget, pvSource, oOrder); return true;
  }
  truememory(pvTarget, pvSource, lSize, oOrder);
  return false;
}

// ---- Digits, numbers, words -------------------------------------------------------------------------------

bool IsTo(char cChr, int iBase, int* piDigit) {
  constexpr int kNone = 255; // above the value of every letter
  const bool fDecimal = iBase >= 1 && iBase <= 10;
  int iDigit = kNone;
  if (cChr >= '0' && cChr <= '9')
    iDigit = cChr - '0';
  else if (cChr >= 'A' && cChr <= 'Z')
    iDigit = cChr - 'A' + 10;
  else if (cChr >= 'a' && cChr <= 'z')
    iDigit = cChr - 'a' + 10;
  const bool fIs = fDecimal ? iDigit < iBase : iDigit < 10 || (iDigit != kNone && iDigit < iBase);
  if (fIs && piDigit) *piDigit = iDigit;
  return fIs;
}

uint64_t GetNumbers(const unsigned char* pbIn, size_t lLen, procIsTo fnTest, int iBase, char* pcFound,
                    char* pcBefore) {
  if (!pbIn) lLen = 0;
  uint64_t ulOut = 0;
  int iDigit = 0;
  size_t i = 0;
  while (i < lLen && !fnTest(static_cast<char>(pbIn[i]), iBase, &iDigit)) ++i;
  const bool fFound = i < lLen;
  if (pcFound) *pcFound = fFound;
  if (pcBefore) *pcBefore = fFound && i ? static_cast<char>(pbIn[i - 1]) : 0;
  for (; i < lLen && fnTest(static_cast<char>(pbIn[i]), iBase, &iDigit); ++i)
    ulOut = ulOut * static_cast<uint64_t>(iBase) + static_cast<uint64_t>(iDigit);
  return ulOut;
}

bool FindItem(const char** ppccText, size_t* plLen, bool (*fnClass)(char), int n) {
  const char* pccFrom = *ppccText;
  const char* const pccEnd = pccFrom + *plLen;
  const char* pccTo = pccFrom;
  for (; n > 0; --n) {
    pccFrom = std::find_if(pccTo, pccEnd, fnClass);
    pccTo = std::find_if_not(pccFrom, pccEnd, fnClass);
  }
  if (pccFrom == pccTo) return false;
  *ppccText = pccFrom;
  *plLen = static_cast<size_t>(pccTo - pccFrom);
  return true;
}

// ---- Wildcard masks ---------------------------------------------------------------------------------------

size_t strlenmask(const char* pccText, const char* pccMask, size_t* plUsed) {
  if (!pccText) pccText = "";
  if (!pccMask) pccMask = "";
  const auto fnFits = [](char cText, char cMask) { return cMask == '?' || cMask == '*' || cMask == cText; };
  size_t lText = 0, lMask = 0;
  while (pccText[lText] && pccMask[lMask]) {
    if (pccMask[lMask] == '*') {
      ++lMask; // at the mask's end no character fits, and the text is skipped to its own end
      while (pccText[lText] && !fnFits(pccText[lText], pccMask[lMask])) ++lText;
    } else if (fnFits(pccText[lText], pccMask[lMask])) {
      ++lText;
      ++lMask;
    } else {
      break;
    }
  }
  if (plUsed) *plUsed = lMask;
  return lText;
}

bool strmask(const char* pccText, const char* pccMask) {
  size_t lUsed = 0;
  const size_t lMatched = strlenmask(pccText, pccMask, &lUsed);
  if (pccText && pccText[lMatched]) return false;
  return !pccMask || pccMask[lUsed + strspn(pccMask + lUsed, "*")] == 0;
}

// ---- Input masks ------------------------------------------------------------------------------------------

namespace {

constexpr bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool IsLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsPrintable(char c) { return c >= ' ' && c <= '~'; }
constexpr bool IsPunct(char c) {
  return IsPrintable(c) && c != ' ' && !IsUpper(c) && !IsLower(c) && !IsDigit(c);
}

constexpr int kNumberOrSign = eMCNumber | eMCSign;
constexpr int kOnlyHexadecimal =
    eMCHexadecimal & ~eMCAplhaNum; // tells a hexadecimal digit from a letter or digit

struct MaskPrefix {
  char cChr;
  int iFlag;
};
constexpr MaskPrefix kPrefixes[] = {{'>', eMCUp}, {'<', eMCLow}, {'=', eMCMidl}, {'^', eMCAlternativ}};

// What a class character stands for, and what becomes of a case prefix: letters without one may have either
// case, and where there is no case it means nothing.
enum tMaskCase { eMCasKept, eMCasNone, eMCasEither };
struct MaskClass {
  char cChr;
  int iFlags;
  tMaskCase oCase;
};
constexpr MaskClass kClasses[] = {
    {'l', eMCAplha, eMCasEither},
    {'L', eMCAplha | eMCRequire, eMCasEither},
    {'a', eMCAplhaNum, eMCasEither},
    {'A', eMCAplhaNum | eMCRequire, eMCasEither},
    {'0', eMCNumber | eMCRequire, eMCasNone},
    {'9', eMCNumber, eMCasNone},
    {'#', kNumberOrSign, eMCasNone},
    {'h', eMCHexadecimal, eMCasEither},
    {'H', eMCHexadecimal | eMCRequire, eMCasEither},
    {'U', eMCPunct, eMCasNone},
    {'P', eMCPrintable, eMCasNone},
    {'*', eMCAny, eMCasKept},
    {'D', eMCDisplay, eMCasKept},
};

// Takes one position off the mask; eMCNone, with the rest left, when none is complete.
tMaskChar NextPosition(const char*& pccMask, char& cLit) {
  const auto fnIs = [&](const auto& oRow) { return oRow.cChr == *pccMask; };
  cLit = 0;
  int iFlags = 0;
  for (;; ++pccMask) {
    const auto* poPrefix = std::find_if(std::begin(kPrefixes), std::end(kPrefixes), fnIs);
    if (poPrefix == std::end(kPrefixes)) break;
    iFlags |= poPrefix->iFlag;
  }
  const auto* poClass = std::find_if(std::begin(kClasses), std::end(kClasses), fnIs);
  if (poClass != std::end(kClasses)) {
    ++pccMask;
    iFlags |= poClass->iFlags;
    if (poClass->oCase == eMCasNone) iFlags &= ~eMCMidl;
    if (poClass->oCase == eMCasEither && !(iFlags & eMCMidl)) iFlags |= eMCMidl;
    return static_cast<tMaskChar>(iFlags);
  }
  if (*pccMask == '\\') ++pccMask;
  if (*pccMask == 0) return eMCNone;
  cLit = *pccMask++;
  return static_cast<tMaskChar>(iFlags | eMCLiteral);
}

constexpr bool IsDisplay(tMaskChar oFlags) { return (oFlags & eMCDisplay) == eMCDisplay; }

} // namespace

tMaskChar oMaskParser(const char* pccMask, size_t lPos, char* pcLit) {
  if (!pccMask) pccMask = "";
  char cLit = 0;
  tMaskChar oFlags = NextPosition(pccMask, cLit);
  for (; oFlags != eMCNone && lPos; --lPos) oFlags = NextPosition(pccMask, cLit);
  if (pcLit) *pcLit = cLit;
  return oFlags;
}

bool cMaskTestChar(char cChr, tMaskChar oFlags) {
  if (oFlags & eMCAlternativ) return !IsPrintable(cChr);
  const int iCase = oFlags & eMCMidl ? oFlags & eMCMidl : eMCMidl;
  const bool fLetter = (iCase & eMCUp && IsUpper(cChr)) || (iCase & eMCLow && IsLower(cChr));
  return (oFlags & (eMCLiteral | eMCAny)) || (oFlags & eMCNumber && IsDigit(cChr)) ||
         (oFlags & eMCPrintable && IsPrintable(cChr)) || (oFlags & eMCPunct && IsPunct(cChr)) ||
         (oFlags & eMCSign && (cChr == '+' || cChr == '-')) ||
         (oFlags & eMCAplha && fLetter && (!(oFlags & kOnlyHexadecimal) || IsTo(cChr, 16, nullptr)));
}

bool cMaskTestString(const char* pccMask, char* pcText, size_t* plLen, const char* pcFill, bool fKeepLit) {
  if (!pccMask || !pcText) return false;
  const size_t lLen = plLen ? *plLen : strlen(pcText);
  bool fMatch = true;
  size_t lIn = 0, lOut = 0;
  char cLit = 0;
  while (const tMaskChar oFlags = NextPosition(pccMask, cLit)) {
    const bool fRequired = oFlags & eMCRequire;
    if (lIn == lLen) {
      fMatch = fMatch && !fRequired;
      continue;
    }
    const char cText = pcText[lIn++];
    if (oFlags & eMCLiteral && !IsDisplay(oFlags)) {
      fMatch = fMatch && cText == cLit;
      if (fKeepLit) pcText[lOut++] = cLit;
    } else if (IsDisplay(oFlags) || cMaskTestChar(cText, oFlags)) {
      pcText[lOut++] = cText;
    } else {
      fMatch = fMatch && !fRequired;
      if (pcFill) pcText[lOut++] = *pcFill;
    }
  }
  if (lOut < lLen) pcText[lOut] = 0;
  if (plLen) *plLen = lOut;
  return fMatch;
}

// ---- Bytes ------------------------------------------------------------------------------------------------

bool parityok(const void* pvBytes, size_t lLen, bool fParity) {
  const unsigned char* pb = static_cast<const unsigned char*>(pvBytes);
  return std::all_of(pb, pb + lLen, [&](unsigned char b) { return (std::popcount(b) & 1) == fParity; });
}

size_t carememcpy(void* pvTarget, size_t lTarget, const void* pvSource, size_t lSource) {
  const size_t lLen = pvTarget && pvSource ? std::min(lTarget, lSource) : 0;
  if (lLen) memmove(pvTarget, pvSource, lLen);
  return lLen;
}

void rewind_my(FILE* poFile) {
  if (!poFile) return;
  fflush(poFile);
  fseek(poFile, 0, SEEK_SET);
}
