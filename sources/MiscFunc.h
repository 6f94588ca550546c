// Small routines over bytes and NUL-terminated texts that protocol and launcher share. None allocates or
// throws.
#pragma once
#include <cstddef>
#include <cstdint>

// A digit test: true when the character is a digit of the base, with its value in *piDigit (when not null).
typedef bool (*procIsTo)(char cChr, int iBase, int* piDigit);

// Bases 1 to 10 have the decimal digits below the base. Any other base has all ten of them, and the letters
// (of either case, A is 10) whose value is below the base. So base 0 takes any decimal digit and no letter. A
// rejected character leaves *piDigit alone.
bool IsTo(char cChr, int iBase, int* piDigit);

// The first number among the bytes: everything that the test rejects is skipped, then digits are read up to
// the first byte that is none or the end. A number beyond 64 bits wraps; 0 when there is no number. *pcFound
// (when not null) tells 1 or 0 whether there was a digit; *pcBefore (when not null) gets the byte in front of
// the number, 0 when nothing is in front of it or there is no number.
uint64_t GetNumbers(const unsigned char* pbIn, size_t lLen, procIsTo fnTest, int iBase, char* pcFound,
                    char* pcBefore);
