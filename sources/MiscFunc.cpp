#include "MiscFunc.h"

// ---------------------------------------------------------------------------------------------------------------
// Digits and numbers

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
