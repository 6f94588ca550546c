// Command lines: splitting them into words, and the small string helpers around them. Every string these functions
// make is on the heap and freed with free (or by the Free… function of its kind).
#pragma once
#include <cstddef>

struct tCmdTwoHalf {
  char* pcFirst;  // owned copy of the first word, quotes removed
  char* pcSecond; // the rest of the line, inside the caller's own text
};

// The separators of command lines: the space, and the two quote characters.
extern const char* const pccCmdSp;

// Splits a line into words, each a heap string in ppcArgV; the slot after the last one is null, so that at most
// iDim - 1 words are stored and further ones are dropped. Returns the number of words.
//
// A quote opens a quoted word only right after a word's separator or at the start of the line, and the same quote
// closes it; the stored word keeps both quotes (removebe strips them in the started program). After two or more
// spaces the separator stays the space and a quote is an ordinary character of the next word: lines are built with
// single spaces. A closing quote is a word's separator already, so a quoted word and a space count as two, and the
// next word cannot be quoted. An unclosed quoted word runs to the end and is stored with quotes at both ends.
int ParsCdmLine(const char* pccStr, char** ppcArgV, int iDim);

// Stores one word of lLen characters at slot iCnt, put between cSep when that is a quote, and closes the list with
// null. The new count: the old one for a null or empty word, a full list, or no memory.
int PutArgV(char** ppcArgV, int iDim, int iCnt, const char* pccWord, size_t lLen, char cSep);

// Frees every slot, from the last to the first, and sets it to null.
void FreeArgV(char** ppcArgV, int iDim);

// Splits off the first word. pcSecond stands one character behind as many characters as the stored word has, counted
// from the start of the line (its quotes included, leading spaces not), which is the rest of the line only when the
// line starts with the word; it never stands behind the line's end. Without any word pcFirst is an empty heap string
// and pcSecond the whole line.
void MakeCmdTwoHalf(const char* pccStr, tCmdTwoHalf* poOut);

// Frees pcFirst and sets both fields to null.
void FreeCmdTwoHalf(tCmdTwoHalf* poCTH);

// Strips the double quotes that enclose program arguments, in place: argv[i] moves behind the opening quote. A lone quote
// is both ends at once and leaves an empty argument; empty and null arguments stay.
void removebe(int iArgC, char** ppcArgV);

// The two strings together on the heap, a null one being empty; null when memory is out.
char* stradd(const char* pccFirst, const char* pccSecond);
