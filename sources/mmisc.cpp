#include "mmisc.h"

#include <cstdlib>
#include <cstring>

const char* const pccCmdSp = " \"'";

namespace {

constexpr char kSpace = ' ';
constexpr char kQuote = '"';

bool IsSeparator(char c) { return c != '\0' && strchr(pccCmdSp, c); }

// Whether the text begins and ends with this character, as two different characters.
bool Enclosed(const char* text, size_t length, char by) {
  return length >= 2 && text[0] == by && text[length - 1] == by;
}

} // namespace

int ParsCdmLine(const char* pccStr, char** ppcArgV, int iDim) {
  if (!pccStr || iDim <= 0) return 0;
  ppcArgV[0] = nullptr;
  int count = 0;
  const char* word = nullptr;
  char separator = '\0'; // none yet
  const char* at = pccStr;
  for (; *at; ++at) {
    if (!separator) separator = IsSeparator(*at) ? *at : kSpace;
    if (*at == separator) {
      count = PutArgV(ppcArgV, iDim, count, word, word ? static_cast<size_t>(at - word) : 0, separator);
      if (word) separator = '\0';
      word = nullptr;
    } else if (!word) {
      word = at;
    }
  }
  return PutArgV(ppcArgV, iDim, count, word, word ? static_cast<size_t>(at - word) : 0, separator);
}

int PutArgV(char** ppcArgV, int iDim, int iCnt, const char* pccWord, size_t lLen, char cSep) {
  if (!pccWord || lLen == 0 || iCnt >= iDim - 1) return iCnt;
  size_t quote = cSep != kSpace ? 1 : 0;
  char* copy = static_cast<char*>(malloc(lLen + 2 * quote + 1));
  if (!copy) return iCnt;
  if (quote) copy[0] = copy[lLen + 1] = cSep;
  memcpy(copy + quote, pccWord, lLen);
  copy[lLen + 2 * quote] = '\0';
  ppcArgV[iCnt] = copy;
  ppcArgV[iCnt + 1] = nullptr;
  return iCnt + 1;
}

void FreeArgV(char** ppcArgV, int iDim) {
  for (int i = iDim - 1; i >= 0; --i) {
    free(ppcArgV[i]);
    ppcArgV[i] = nullptr;
  }
}

void MakeCmdTwoHalf(const char* pccStr, tCmdTwoHalf* poOut) {
  char* words[2] = {};
  char* line = const_cast<char*>(pccStr);
  if (ParsCdmLine(pccStr, words, 2) == 0) {
    poOut->pcFirst = strdup("");
    poOut->pcSecond = line;
    return;
  }
  size_t length = strlen(words[0]), rest = length + 1;
  if (IsSeparator(words[0][0]) && Enclosed(words[0], length, words[0][0])) {
    memmove(words[0], words[0] + 1, length - 2);
    words[0][length - 2] = '\0';
  }
  poOut->pcFirst = words[0]; // handed over: the list of one word needs no freeing of its own
  poOut->pcSecond = line + (rest < strlen(pccStr) ? rest : strlen(pccStr));
}

void FreeCmdTwoHalf(tCmdTwoHalf* poCTH) {
  free(poCTH->pcFirst);
  poCTH->pcFirst = poCTH->pcSecond = nullptr;
}

void removebe(int iArgC, char** ppcArgV) {
  for (int i = iArgC - 1; i >= 0; --i) {
    size_t length = ppcArgV[i] ? strlen(ppcArgV[i]) : 0;
    if (length == 0 || ppcArgV[i][0] != kQuote || ppcArgV[i][length - 1] != kQuote) continue;
    ppcArgV[i][length - 1] = ppcArgV[i][0] = '\0';
    ++ppcArgV[i]; // of a lone quote this is its terminator
  }
}

char* stradd(const char* pccFirst, const char* pccSecond) {
  size_t first = pccFirst ? strlen(pccFirst) : 0, second = pccSecond ? strlen(pccSecond) : 0;
  char* sum = static_cast<char*>(malloc(first + second + 1));
  if (!sum) return nullptr;
  if (first) memcpy(sum, pccFirst, first);
  if (second) memcpy(sum + first, pccSecond, second);
  sum[first + second] = '\0';
  return sum;
}
