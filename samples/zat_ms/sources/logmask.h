// Log copies of messages: what stands in the log in place of card data. Only copies are made here; what is sent to
// the module and what the till gets is never touched.
//
// Where card data can stand (offsets of the message, its 14-byte header included):
//   request "1x", most      12 amount, track 2 to the end             track 2 from 14 + 12
//   request "16" "17" "1E"  12 amount, 6 authorisation code, track 2  track 2 from 14 + 12 + 6
//   response "60"           59 fixed, code ESC, PAN=expiry ESC ...    the second variable field
//   data "38"               free text, a card after "MV01"
// Besides, any text field may hold what the terminal's people have put there: there the numbers are hidden that are
// cards by their digits (cardtext.h). Fields of fixed width are shown as they are.
#pragma once
#include <cstddef>

#include "ztypes.h"

namespace zat {

// A text that may have held card data: its bytes are wiped before its memory is given back.
class WipedText {
public:
  WipedText(const unsigned char* pbData, size_t lLen);
  explicit WipedText(size_t lRoom) { oText.reserve(lRoom); } // empty
  ~WipedText();
  WipedText(const WipedText&) = delete;
  WipedText& operator=(const WipedText&) = delete;
  tString oText;
};

// Makes of a message, header first, what the log may show of it. One without a whole header stays as it is.
void MaskForLog(WipedText& oCopy);

// Overwrites every byte of the string, its unused capacity included, and empties it.
void WipeText(tString& oText);

} // namespace zat
