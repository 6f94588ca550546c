// Small routines over bytes and NUL-terminated texts that protocol and launcher share: checksums, byte order,
// digits, masks, and a record file that knows when it is damaged. None allocates or throws; a failure is a
// result.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>

// ---- Checksums --------------------------------------------------------------------------------------------

// The remainders of the CRC-CCITT polynomial x^16 + x^12 + x^5 + 1 (0x1021), highest bit first.
extern const uint16_t musCrc16Tab[256];

// A checksum over bytes, continued from a start value.
typedef uint16_t (*procCRC)(const void* pvBytes, uint16_t iLen, uint16_t iStart);

// CRC-CCITT in its augmented form: a byte enters after the table step. So the CRC-16/XMODEM of a message is
// this routine's result over the message and two zero bytes, from 0. The length has 16 bits on purpose:
// callers cut their data by it, and 65536 bytes are none.
uint16_t flatcrc16(const void* pvBytes, uint16_t iLen, uint16_t iStart);

// flatcrc16 of a file, from 0; of its first *pulLimit bytes when a limit is given and the file is longer.
//   0  the sum
//   1  the sum without the last two bytes, when those hold it (high byte first); else 0
//   2  the sum, which is also appended to the file
//   3  the sum without the last two bytes, which are overwritten with it
// 0 for any failure, another mode, and when nothing is left to sum up.
uint16_t truefilecrc16len(const char* pccName, int iMode, const unsigned long* pulLimit);
uint16_t truefilecrc16(const char* pccName, int iMode);

// ---- Byte order of words in files -------------------------------------------------------------------------

enum Memory : int {
  MemoryIBM = 0,     // as in this machine's memory
  MemoryMotorola = 1 // reversed: high byte first
};

extern Memory oMemoryCurrent; // what the files of this system use: MemoryMotorola

// Each stores the source into the target in the given order and returns what the target held before. A null
// source stands for the target itself. Neither needs an alignment.
uint8_t truebyte(void* pvTarget, const void* pvSource, Memory oOrder);
uint16_t trueword(void* pvTarget, const void* pvSource, Memory oOrder);
uint32_t truedword(void* pvTarget, const void* pvSource, Memory oOrder);

// Copies bytes from the last to the first, never reordered (bytes have no order between them); returns the
// target. A null source leaves it as it is.
void* truememory(void* pvTarget, const void* pvSource, size_t lLen, Memory oOrder);

// One of the above by size. True for the sizes that are numbers (1, 2, 4); other sizes go through truememory.
bool truetype(void* pvTarget, const void* pvSource, size_t lSize, Memory oOrder);

// ---- Digits, numbers, words -------------------------------------------------------------------------------

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

// Narrows the text to its n-th run (from 1) of characters that the test accepts. False, with nothing changed,
// when there are fewer runs.
bool FindItem(const char** ppccText, size_t* plLen, bool (*fnClass)(char), int n);

// ---- Wildcard masks: '*' any run, '?' any one character ---------------------------------------------------

// Matching is greedy and never tries twice: after a '*' the text is skipped up to the first place where the
// next mask character fits. So "*.upd" does not match "a.b.upd". Callers count on the first match being the
// only one. Returns the number of text characters matched, those skipped for a '*' included; *plUsed (when
// not null) gets the number of mask characters used. Null texts count as empty.
size_t strlenmask(const char* pccText, const char* pccMask, size_t* plUsed);

// True when the mask covers the whole text and nothing but '*' is left of it.
bool strmask(const char* pccText, const char* pccMask);

// ---- Input masks: what may stand at each position of a typed text -----------------------------------------
//
// A position is one class character, with any of these in front of it, for that position only:
//   >  upper case    <  lower case    =  either case    ^  alternative: only what is not printable
//
//   l L  letter              0 9  digit                  U  punctuation        \c  the character c
//   a A  letter or digit     #    digit or sign          P  printable          any other character: itself
//   h H  hexadecimal digit   *    any character          D  display: kept unchecked
//
// L, A, H and 0 are required, the others may be missing. Classes are those of ASCII whatever the locale: a
// byte above 0x7F is in none. A mask that ends in a prefix or in a backslash ends before it.

enum tMaskChar : int {
  eMCNone = 0,
  eMCAplha = 1,
  eMCNumber = 2,
  eMCAplhaNum = eMCAplha | eMCNumber,
  eMCRequire = 4,
  eMCUp = 8,
  eMCLow = 16,
  eMCMidl = eMCUp | eMCLow,
  eMCAlternativ = 32,
  eMCSign = 64,
  eMCPunct = 128,
  eMCPrintable = 256,
  eMCHexadecimal = 512 | eMCAplhaNum,
  eMCAny = 1024,
  eMCLiteral = 2048,
  eMCDisplay = 4096 | eMCLiteral
};

// The flags of a position, counted from 0; eMCNone past the end of the mask. *pcLit (when not null) gets the
// character of a literal position, else 0.
tMaskChar oMaskParser(const char* pccMask, size_t lPos, char* pcLit);

// Whether a character fits the flags of a position. Letters without a case flag may have either case.
bool cMaskTestChar(char cChr, tMaskChar oFlags);

// Fits a text of *plLen characters (up to its NUL when plLen is null) to a mask, in place. A literal that
// differs makes the match fail; it stands in the result as the mask has it when fKeepLit is set, else it is
// dropped. A character that does not fit is replaced by *pcFill, or dropped when pcFill is null, and makes
// the match fail where one is required; so does a text that ends before a required position. What the text
// has beyond the mask is cut off without making it fail. A text that became shorter is terminated, and *plLen
// is its new length. The text is rewritten also when the match fails.
bool cMaskTestString(const char* pccMask, char* pcText, size_t* plLen, const char* pcFill, bool fKeepLit);

// ---- Bytes ------------------------------------------------------------------------------------------------

// True when the xor of the bits of every byte equals fParity; also for no bytes.
bool parityok(const void* pvBytes, size_t lLen, bool fParity);

// Copies as many bytes as fit, and returns how many these are. The two may overlap.
size_t carememcpy(void* pvTarget, size_t lTarget, const void* pvSource, size_t lSource);

// Flushes an open file and goes to its start; null is left alone.
void rewind_my(FILE* poFile);

// ---- Record log -------------------------------------------------------------------------------------------
//
// A file of records with a trailer. All words have 16 bits and the order of oMemoryCurrent (high byte first).
//
//   record   offset  size  meaning                      trailer   offset  size  meaning
//               0      2   L, length of the record                   0      2   number of records
//               2      n   data                                      2      2   log id
//              2+n   0, 2  checksum of the data                      4      2   checksum of all records
//              L-2     2   L again
//
// A file of 0 bytes is an empty log; the smallest other one is a record without data and the trailer, 10
// bytes. The checksum of all records runs over their bytes as stored; that of a record's data starts from 0
// and is there when the log is used with record checksums (fRecCrc), which the file itself does not tell.
// Without a checksum routine (null) no checksum is compared, and those written continue from what stood
// there.

// The work of the four below. iMode is one of 1 append, 2 check, 4 read; 0 for any other. Append makes the
// file when it is missing, and does not compare the log id: a log goes over to the id of its last writer.
// Check and read want the id of the trailer, and a record number (from 0) below its count. Results: append 1;
// check the number of records, 1 for an empty log; read the length of the record's data. 0 on any failure: a
// file that cannot be opened or is damaged, another id, a wrong checksum, a buffer that is too short, a
// record or a log that would pass 65535; a failed append leaves the file as it was.
uint16_t logWork(const char* pccName, void* pvBuf, size_t lLen, uint16_t uRec, uint16_t uId, int iMode,
                 procCRC fnCrc, bool fRecCrc);

// Adds a record of lLen bytes.
uint16_t logAppend(const char* pccName, const void* pvBuf, size_t lLen, uint16_t uId, procCRC fnCrc,
                   bool fRecCrc);

// Reads record uRec into a buffer of lLen bytes.
uint16_t logRead(const char* pccName, void* pvBuf, size_t lLen, uint16_t uRec, uint16_t uId, procCRC fnCrc,
                 bool fRecCrc);

// Reads record uRec for its length and checksum only.
uint16_t logTest(const char* pccName, uint16_t uRec, uint16_t uId, procCRC fnCrc, bool fRecCrc);

// Checks the log as a whole: every record's two lengths, their number, the checksum over all.
uint16_t logCheck(const char* pccName, uint16_t uId, procCRC fnCrc);
