#include "EFTPLinkLog.h"
#include "EFTPTable.h"
#include "EFTPWork.h"
#include "PortCalls.h"
#include "logmask.h"
#include <cstring>

namespace zat {

namespace {

const unsigned char* Bytes(const tString& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// The end of the message that begins at lBeg: header and data, which must be complete and of a known kind. 0:
// none.
size_t MessageEnd(const tString& bytes, size_t lBeg) {
  if (bytes.length() < lBeg + kHeadSize || !EFTPRowOf(EFTPWId(bytes[lBeg], bytes[lBeg + 1]))) return 0;
  const size_t data = EFTPParsDLen(Bytes(bytes) + lBeg + kHeadLen, 2, nullptr),
               room = bytes.length() - lBeg - kHeadSize;
  return data <= room ? lBeg + kHeadSize + data : 0;
}

// The end of the frame around the message from lBeg to lEnd: end sequence and LRC. 0: damaged.
size_t FrameEnd(const tString& bytes, size_t lBeg, size_t lEnd, const tString& oEnd) {
  const size_t lrc = lEnd + oEnd.length();
  if (lEnd == 0 || bytes.length() <= lrc || bytes.compare(lEnd, oEnd.length(), oEnd) != 0) return 0;
  return static_cast<unsigned char>(bytes[lrc]) == XorSum(Bytes(bytes), lBeg, lEnd) ? lrc + 1 : 0;
}

void HideDigits(tString& shown, size_t lBeg, size_t lEnd) {
  for (size_t i = lBeg; i < lEnd && i < shown.length(); ++i)
    if (shown[i] >= '0' && shown[i] <= '9') shown[i] = '*';
}

void HideCard(tString& shown, size_t lBeg, size_t lEnd) {
  WipedText copy(Bytes(shown) + lBeg, lEnd - lBeg);
  MaskForLog(copy);
  shown.replace(lBeg, lEnd - lBeg, copy.oText);
}

// Framed bytes: every good frame as a message, no digit of what lies between.
void HideFramed(tString& shown, const tString& bytes, const tString& oStart, const tString& oEnd) {
  size_t pos = 0;
  while (pos < bytes.length()) {
    const size_t start = bytes.find(oStart, pos);
    HideDigits(shown, pos, start);
    if (start == tString::npos) break;
    const size_t beg = start + oStart.length(), end = MessageEnd(bytes, beg);
    const size_t frame = FrameEnd(bytes, beg, end, oEnd);
    if (frame != 0) HideCard(shown, beg, end);
    pos = frame != 0 ? frame : beg;
  }
}

} // namespace

tString LinkLogBytes(const tString& oBytes, const tString& oStart, const tString& oEnd) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  tString shown = oBytes, line;
  if (!oStart.empty() && oBytes.find(oStart) != tString::npos)
    HideFramed(shown, oBytes, oStart, oEnd);
  else if (MessageEnd(oBytes, 0) == oBytes.length())
    HideCard(shown, 0, shown.length());
  else
    HideDigits(shown, 0, shown.length());
  for (size_t i = 0; i < oBytes.length(); ++i) {
    const unsigned char b = static_cast<unsigned char>(oBytes[i]);
    line += ' ';
    if (shown[i] != oBytes[i])
      line += "**";
    else
      line += {kHex[b >> 4], kHex[b & 15]};
  }
  WipeText(shown);
  return line;
}

} // namespace zat
