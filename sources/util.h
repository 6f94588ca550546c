// Card data, amounts and dates as texts, and the clock behind every time limit.
#pragma once
#include <cstddef>
#include <map>

#include "ztypes.h"

// The number of characters before the first NUL, at most iLMax; 0 for null.
size_t StrNLen(const char* pccStr, size_t iLMax);

// Compares two amounts given as digits, leading zeros not counting: negative, 0, positive. Signs and decimal points get
// no special treatment.
int AmountCmp(const tString& oA1, const tString& oA2);

// Appends a field of iSrcFulL characters: the source, filled with cChr behind it (fLeftA) or before it; a null or empty
// source gives cChr alone. A source longer than the field is appended whole, not cut: readers of such a message
// see that it is wrong, where a silently shortened number would pass for a right one. The source may lie inside oDes.
// Returns the new length of oDes.
size_t AppendStrPad(tString& oDes, const char* pccSrc, size_t iSrcFulL, char cChr, bool fLeftA);

// A check character from '0' to '?' over iLen bytes. Append adds it to the string and returns the new length.
char CalcStrCCh(const char* pccStr, size_t iLen);
size_t AppendStrCCh(tString& oDes);

// --- Track 2 ------------------------------------------------------------------------------------------------------
//
//   as read:     ;4000001234567899=2512101123?       B4000001234567899D2512101123F       (and a check character)
//   normalised:   4000001234567899=2512101123
//                 PAN              |    |  discretionary data
//                                  |    service code, 3
//                                  expiry date YYMM, 4

// Normalises a track. 0, or -1 with the track unchanged: shorter than 10 characters, no end sentinel where a start
// sentinel is, no separator, or anything but digits besides it.
int ShrinkTrack2(tString& oTr2);

// Normalises and splits a track. Expiry date, service code and discretionary data are taken as long as they fit, and
// are empty from the first that does not. Taken discretionary data is overwritten with 'X' in oTr2, so that the track
// the caller keeps no longer shows it. 0, or -1 (not a track, or nothing before the '=').
int PortionTrack2opt(tString& oTr2, tString& oPan, tString& oExpD, tString& oSCod, tString& oSec);

// The same, and -1 too when one of PAN, expiry date and service code is missing; only on success do the outputs (each
// may be null) get their values. oTr2 is normalised and masked in any case.
int PortionTrack2(tString& oTr2, tString* poPan, tString* poExpD, tString* poSCod);

// --- Hiding what must not be seen -----------------------------------------------------------------------------------

// Replaces every digit in iLen positions from iOfs on by cMc; a negative iLen means to the end. Positions outside the
// string are passed over. Returns the number of characters replaced.
int MaskDigit(tString& oData, int iOfs, int iLen, char cMc);

// Replaces all but the last iLnm characters, digits or not. 1, or 0 when the string is not longer than that.
int MaskPAN(tString& oPAN, int iLnm, char cMc);

// For "PAN=rest": keeps the last iLnm characters before the first '=' and the '=' itself, replaces everything else.
// Without '=' the whole string counts as PAN.
void MaskPEX(tString& oPEX, int iLnm, char cMc);

// YYMM to MM, separator, YY: "2512" with '/' gives "12/25". 1, or 0 when the string is not 4 long.
int ConvertExpToP(tString& oExp, char cDc);

// --- Lists ----------------------------------------------------------------------------------------------------------

typedef std::map<int, tString> tIntStrMap; // keys count from 1

// Sets the keys 1 to iN from the array; a null text counts as empty.
void ISMfill(tIntStrMap& oISM, const char* const* ppccText, int iN);
void ISMfill(tIntStrMap& oISM, const tString* poText, int iN);

// Splits at spaces into keys 1, 2, …; several spaces are one, and a space at the end adds nothing.
void ISMfromStr(tIntStrMap& oISM, const tString& oParams);

// Removes leading oV characters; when nothing is left and a default is given, the string becomes that. Returns the new
// length.
size_t EraseLeftChars(tString& oField, char oV, const tString* poDefVal);
size_t EraseLeftChars(tString& oField, char oV, const char* poDefVal);
inline size_t EraseLeftChars(tString& oField, char oV, std::nullptr_t) {
  return EraseLeftChars(oField, oV, static_cast<const char*>(nullptr)); // a bare nullptr would fit both
}

// --- Dates ----------------------------------------------------------------------------------------------------------

// How a date is wanted.
enum tDTType : int {
  eDTTasis = 0,         // YYYYMMDDhhmmss, and what any other value gives too
  eDTTyymmddhhmmss = 1, // 12 characters
  eDTTmmddhhmmss = 2,   // 10
  eDTThhmm = 3,         // 4
  eDTThhmmss = 4,       // 6
  eDTTyymmdd = 5,       // 6
  eDTTref = 6,          // last digit of the year, day of the year (3 digits), hour
  eDTTmmft = 7,         // seconds since 2009 in 8 hexadecimal digits, ".zip"
  eDTTmmfi = 8,         // the same, ".001"
};

// A date and time of day as 14 digits.
struct tDateTame {
  char mcDT[14]; // YYYYMMDDhhmmss, no terminator

  // Now, local or UTC. False, with mcDT all blanks, when the year needs more than four digits.
  bool Fill(bool fLocal);

  // Takes a 14-character text. 1, or 0 with mcDT unchanged.
  int Assign(const tString& oDT);

  // The wanted form; empty when a computed form cannot be made. The day of the year in eDTTref follows the calendar 70
  // years earlier (MakeLocTm), so it is one off after February when exactly one of the two years is a leap year:
  // reference numbers that were given out so have to be found again.
  void Get(tString& oOut, tDTType oType) const;

  // Assign and Get in one. 1, or 0 with the text unchanged.
  int Convert(tString& oInOut, tDTType oType);
};

// --- The clock ------------------------------------------------------------------------------------------------------

tTicks PClock();   // ticks of the process-times clock, which no change of the time of day touches
tTicks PCperS();   // how many of them make a second
tTicks TicksGet(); // now, the start of a time limit

// Ticks since the start. When the counter has wrapped in between, one tick less.
tTicks TicksDiff(tTicks oTck);

// Ticks in so many milliseconds, rounded down.
tTicks TicksFromMs(tTicks iMs);

// True once more than iMsWait milliseconds have passed since oBeg; true at once for 0.
int TicksEnd(tTicks oBeg, tTicks iMsWait);

// The same for a moment that is known already.
int TicksEnd(tTicks oBeg, tTicks iMsWait, tTicks oNow);
