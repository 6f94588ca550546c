// The parameter store and the parsers that fill it: they cut the fields of a received message and keep each
// under its tag. The layouts of whole messages stand in EFTPTable.h.
#pragma once
#include "EFTPIds.h"
#include "export.h"
#include "gabids.h"
#include "squeezet.h"

// All parsers take the store, the address of the read position and the address of the count of bytes left;
// they move both over what they consume. They never read beyond the count, and they never throw. After a
// failure the store holds what was taken before the failing field. A tag must be one of the dictionary's
// pointers (gabids.h): what may be logged of a value is decided by the pointer.

// Takes one parameter.
//   fixed (oMode without eEFTPppMvar): lLen bytes; with fewer left nothing is consumed. eEFTPppMvar: up to
//   lLen bytes before an ESC (0x1B), which is consumed with them. Without an ESC among the first
//     lLen + 1 bytes nothing is consumed. An ESC at once is an absent value: with eEFTPppMopt it is consumed,
//     the result is true and nothing is stored, otherwise the result is false.
//   eEFTPppMlng: the value is a decimal number and stored as one. What stands in front of its digits, a sign
//     included, is skipped, and what follows them is ignored.
// True when the parameter was taken. A field that is whole but cannot be stored (no digit, no memory) is
// consumed all the same, so that the position stays in step with the layout.
ZAT_API bool EFTPParsP(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft, const char* pccTag,
                       size_t lLen, tEFTPppMode oMode);

// Takes the body of a transaction response. *pcOut (may be null) becomes '1' when the response carries
// additional data ("EF.RAD"), which makes it the last one, else '0'. The field "card number = expiry date" is
// kept as it came and, split, as "TR.S.PAN" and "TR.EDT"; when it cannot be split, it is the card number.
ZAT_API bool EFTPParsPResp(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft, char* pcOut);

// Takes the body of an information message: eEFTPwidRespInfo for kind "11", whose data come in pieces of 18
// bytes, eEFTPwidMsgInfo for any other kind, eEFTPwidNone on failure.
ZAT_API tEFTPWorkId EFTPParsPInfo(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft);

// Takes the body of a print line. *pcOut (may be null) becomes its first byte, '1' for the last line; 0 when
// there was none.
ZAT_API bool EFTPParsPPrLine(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft, char* pcOut);

// Takes the body of a refusal: the error code and, if there is one, the text.
ZAT_API bool EFTPParsPRubad(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft);

// The two codings that a value can be translated into.
enum tTypeFmtSource : int {
  eTFSnone = 0,
  eTFSinternal = 1, // the second character of the request's work id
  eTFSa7 = 2,       // A7
};

// The values that entry mode and transaction condition have in A7 coding.
ZAT_API extern const char* const poTwoNul;           // no value
ZAT_API extern const char* const poTwoEntmMagpA7;    // entry mode 10
ZAT_API extern const char* const poTwoEntmMagA7;     // entry mode 2: magnetic stripe
ZAT_API extern const char* const poTwoEntmManA7;     // entry mode 1: by hand
ZAT_API extern const char* const poTwoTrcndNoneA7;   // condition 0: none
ZAT_API extern const char* const poTwoTrcndBonusA7;  // condition 1: bonus
ZAT_API extern const char* const poTwoTrcndVerifyA7; // condition 2: verification
ZAT_API extern const char* const poTwoTrcndMotoA7;   // condition 3: mail or telephone order
ZAT_API extern const char* const poTwoTrcndEcomA7;   // condition 4: e-commerce

// Translates the value of "TR.TYP" (its low byte, 1 to 27), "TR.ENM" or "TR.CND" into a coding. An empty text
// for every other tag, value or coding and for a null plValue; never null.
ZAT_API const char* GetPairValue(const char* pccTag, const long* plValue, tTypeFmtSource oSource);
