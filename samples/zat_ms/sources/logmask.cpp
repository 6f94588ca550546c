#include "logmask.h"

#include <cstring>

#include "EFTPTable.h"
#include "cardtext.h"
#include "util.h"

namespace zat {

namespace {

constexpr char kStar = '*';
constexpr int kKeep = 4;      // digits of a card number that may be seen
constexpr char kEsc = '\x1B'; // closes a field of variable length
constexpr size_t kHeader = 2 + 10 + 2;
constexpr size_t kAmount = 12;
constexpr size_t kAuthCode = 6;
constexpr size_t kResponseFixed = 1 + 12 + 3 + 14 + 15 + 12 + 2; // "EF.COD" to "EF.RCD"
static_assert(kResponseFixed == 59);

void MaskTrack2(tString& text, size_t from) {
  if (text.size() <= from) return;
  tString track = text.substr(from);
  MaskPEX(track, kKeep, kStar);
  text.replace(from, track.size(), track);
}

void MaskPayment(tString& text) { MaskTrack2(text, kHeader + kAmount); }
void MaskOffline(tString& text) { MaskTrack2(text, kHeader + kAmount + kAuthCode); }

// The card number and expiry of a response: the field between the first and the second ESC after the fixed part.
void MaskResponse(tString& text) {
  size_t code =
      text.size() > kHeader + kResponseFixed ? text.find(kEsc, kHeader + kResponseFixed) : tString::npos;
  if (code == tString::npos) return;
  size_t end = text.find(kEsc, code + 1);
  size_t length = (end == tString::npos ? text.size() : end) - (code + 1);
  tString field = text.substr(code + 1, length);
  MaskPEX(field, kKeep, kStar);
  text.replace(code + 1, length, field);
}

// A card in free text: everything after "MV01". Without "=" every digit; with it the digits up to four before the
// "=" and all after it.
void MaskFreeText(tString& text) {
  size_t mark = text.find("MV01");
  if (mark == tString::npos) return;
  tString card = text.substr(mark + 4);
  size_t equals = card.find('=');
  if (equals == tString::npos) {
    MaskDigit(card, 0, -1, kStar);
  } else {
    if (equals > kKeep) MaskDigit(card, 0, static_cast<int>(equals) - kKeep, kStar);
    MaskDigit(card, static_cast<int>(equals), -1, kStar);
  }
  text.replace(mark + 4, card.size(), card);
}

// One row per kind of message that has a place for card data: the first character of the work id, the second ones, and
// what is hidden, whatever stands there.
struct MaskRow {
  char cFirst;
  const char* pccSecond;
  void (*procMask)(tString&);
};
constexpr MaskRow kMasks[] = {
    {'1', "0123458DFIJLKPQMNO", MaskPayment},
    {'1', "67E", MaskOffline},
    {'6', "0", MaskResponse},
    {'3', "8", MaskFreeText},
};

// Where free text begins. What stands before it in fields of fixed width are amounts, dates, references and codes: a log
// that hides them, because one number in ten has the check digit of a card, is no help in a dispute. In a message that
// is not built as it should be nothing is known to be such a field.
size_t FreeText(const tString& text) {
  const tEFTPRow* row = EFTPRowOf(EFTPWId(text[0], text[1]));
  size_t fixed = 0;
  bool more = false;
  for (size_t i = 0; row && i < row->oFields.size() && !more; ++i) {
    more = row->oFields[i].oTake != eTakeFixed;
    if (!more) fixed += row->oFields[i].lTake;
  }
  const size_t length = text.size() - kHeader;
  return kHeader + (length == fixed || (more && length > fixed) ? fixed : 0);
}

} // namespace

void WipeText(tString& oText) {
  oText.resize(oText.capacity());
  explicit_bzero(oText.data(), oText.size());
  oText.clear();
}

WipedText::WipedText(const unsigned char* pbData, size_t lLen)
    : oText(reinterpret_cast<const char*>(pbData), lLen) {}
WipedText::~WipedText() { WipeText(oText); }

void MaskForLog(WipedText& oCopy) {
  tString& text = oCopy.oText;
  if (text.size() < kHeader) return;
  for (const MaskRow& row : kMasks)
    if (text[0] == row.cFirst && text[1] != '\0' && strchr(row.pccSecond, text[1])) row.procMask(text);
  const size_t free = FreeText(text);
  HideCards(text, free);
  if (free < kHeader + kShortestCard)
    HideCards(text, kHeader); // one that begins in fields too short to hold it
}

} // namespace zat
