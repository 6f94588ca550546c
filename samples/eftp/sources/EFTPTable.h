// The layouts of EFTP messages: one row per group of work ids, with the ordered list of what stands in the
// data part. Building, parsing, the tools and the printed protocol all read these rows; a layout stands
// nowhere else.
//
// Both directions share tag, width and mode. Where they differ, the field says so: oMake for a builder that
// does not simply append the parameter, oTake and lTake for what a parser takes, since only the builder knows
// how long a value is.
#pragma once
#include "EFTPIds.h"
#include <cstdint>
#include <span>

namespace zat {

// How a builder writes a field.
enum tFieldMake : uint8_t {
  eMakeAdd,    // by EFTPAddP with width and mode
  eMakeText,   // only a value that is stored as text, at most lMakeMax characters when that is not 0
  eMakeBehind, // by EFTPAddP, but only when the data is not empty so far
};

// How a parser takes a field; lTake is a count of bytes.
enum tFieldTake : uint8_t {
  eTakeFixed, // lTake bytes, which must be there
  eTakeVar,   // up to its ESC, at most lTake bytes before it
  eTakeMore,  // lTake bytes, when any are left
  eTakeExact, // lTake bytes, when exactly that many are left
  eTakeRest,  // all that is left, when anything is; more than lTake is refused unless that is 0
};

// Who judges a data part as a whole.
enum tBodyKind : uint8_t {
  eBodyFields, // the fields of the row alone
  eBodyResp,   // EFTPParsPResp: the card number field is split further
  eBodyInfo,   // EFTPParsPInfo: the kind decides what the text must be
  eBodyPrLine, // EFTPParsPPrLine
  eBodyRubad,  // EFTPParsPRubad
};

struct tEFTPField {
  const char* const* ppccTag; // address of the dictionary's pointer, because tags are compared by pointer
  uint16_t lWidth;            // characters on the wire when built; 0: as many as the value has
  tEFTPppMode oMode;
  tFieldTake oTake;
  uint16_t lTake;
  tFieldMake oMake;
  uint16_t lMakeMax;
};

struct tEFTPRow {
  const char* pccText;                 // what the group is for, in English
  std::span<const tEFTPWorkId> oIds;   // internal variants included
  std::span<const tEFTPField> oFields; // empty: no data part
  tBodyKind oBody;
  char cVariant; // the flag that turns a parsed id into its internal variant; 0: the group has none
};

// All rows.
std::span<const tEFTPRow> EFTPRows();

// The row of a work id, the internal variants of its row included; null when no message has that id.
const tEFTPRow* EFTPRowOf(int iId);

// The internal variant of a wire id in its row, or the id itself when there is none.
tEFTPWorkId EFTPVariantOf(const tEFTPRow& oRow, tEFTPWorkId oId);

// Cuts the *plLeft bytes of a data part into the fields of a row: asks oTake(field, length) for each field
// that is there, in order. oTake answers false to refuse a field and lowers *plLeft by what it consumed. True
// when every field was taken and nothing is left.
template<class Take> bool EFTPCutFields(const tEFTPRow& oRow, const size_t* plLeft, Take oTake) {
  for (const tEFTPField& field : oRow.oFields) {
    size_t len = field.lTake;
    switch (field.oTake) {
    case eTakeFixed:
    case eTakeVar: break;
    case eTakeMore:
      if (*plLeft == 0) continue;
      break;
    case eTakeExact:
      if (*plLeft != len) continue;
      break;
    case eTakeRest:
      if (*plLeft == 0) continue;
      if (len != 0 && *plLeft > len) return false;
      len = *plLeft;
      break;
    }
    if (!oTake(field, len)) return false;
  }
  return *plLeft == 0;
}

} // namespace zat
