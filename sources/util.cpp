#include "util.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <sys/times.h>
#include <unistd.h>

#include "uni_time.h"

namespace {

constexpr size_t kExpiry = 4;
constexpr size_t kServiceCode = 3;
constexpr size_t kTrackMin = 10;
constexpr char kReference[] = "20090101000000"; // the moment that file-name dates count from

// ASCII whatever the host's locale says.
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

} // namespace

size_t StrNLen(const char* pccStr, size_t iLMax) { return pccStr ? strnlen(pccStr, iLMax) : 0; }

int AmountCmp(const tString& oA1, const tString& oA2) {
  size_t width = std::max(oA1.size(), oA2.size());
  return (tString(width - oA1.size(), '0') + oA1).compare(tString(width - oA2.size(), '0') + oA2);
}

size_t AppendStrPad(tString& oDes, const char* pccSrc, size_t iSrcFulL, char cChr, bool fLeftA) {
  const tString source = pccSrc ? pccSrc : ""; // a copy: the source may lie in the destination, which grows
  size_t length = StrNLen(source.c_str(), iSrcFulL);
  size_t fill = iSrcFulL - length;
  if (!fLeftA) oDes.append(fill, cChr);
  oDes.append(source);
  if (fLeftA) oDes.append(fill, cChr);
  return oDes.size();
}

char CalcStrCCh(const char* pccStr, size_t iLen) {
  unsigned char check = 0;
  for (size_t i = 0; i < iLen; ++i)
    check ^= static_cast<unsigned char>(pccStr[i]) | static_cast<unsigned char>(i % 7);
  return static_cast<char>((check & 0x0F) | 0x30);
}

size_t AppendStrCCh(tString& oDes) {
  oDes += CalcStrCCh(oDes.data(), oDes.size());
  return oDes.size();
}

// --- Track 2 ------------------------------------------------------------------------------------------------------

namespace {

// How a reader writes a track, told by its first character. The last row stands for a track without sentinels.
struct TrackForm {
  char cStart, cEnd, cSeparator;
};
constexpr TrackForm kForms[] = {{';', '?', '='}, {'B', 'F', 'D'}, {'\0', '\0', '='}};

const TrackForm& FormOf(const tString& track) {
  const TrackForm* form = kForms;
  while (form->cStart && form->cStart != track[0]) ++form;
  return *form;
}

// Cuts the sentinels off. The end sentinel may be followed by one check character.
bool CutSentinels(tString& track, const TrackForm& form) {
  if (!form.cStart) return true;
  size_t end = track.size() - 1;
  if (track[end] != form.cEnd) --end;
  if (track[end] != form.cEnd) return false;
  track = track.substr(1, end - 1);
  return true;
}

} // namespace

int ShrinkTrack2(tString& oTr2) {
  if (oTr2.size() < kTrackMin) return -1;
  tString track = oTr2;
  const TrackForm& form = FormOf(track);
  if (!CutSentinels(track, form)) return -1;
  size_t separator = track.find(form.cSeparator);
  if (separator == tString::npos) separator = track.find('D');
  if (separator == tString::npos) return -1;
  track[separator] = '=';
  for (size_t i = 0; i < track.size(); ++i)
    if (i != separator && !IsDigit(track[i])) return -1;
  oTr2 = track;
  return 0;
}

int PortionTrack2opt(tString& oTr2, tString& oPan, tString& oExpD, tString& oSCod, tString& oSec) {
  if (ShrinkTrack2(oTr2) != 0) return -1;
  size_t at = oTr2.find('=');
  if (at == tString::npos || at == 0) return -1;
  oPan = oTr2.substr(0, at++);
  oExpD.clear();
  oSCod.clear();
  oSec.clear();
  if (oTr2.size() - at < kExpiry) return 0;
  oExpD = oTr2.substr(at, kExpiry);
  at += kExpiry;
  if (oTr2.size() - at < kServiceCode) return 0;
  oSCod = oTr2.substr(at, kServiceCode);
  at += kServiceCode;
  oSec = oTr2.substr(at);
  std::fill(oTr2.begin() + static_cast<std::ptrdiff_t>(at), oTr2.end(), 'X');
  return 0;
}

int PortionTrack2(tString& oTr2, tString* poPan, tString* poExpD, tString* poSCod) {
  tString pan, expiry, service, rest;
  if (PortionTrack2opt(oTr2, pan, expiry, service, rest) != 0) return -1;
  if (pan.empty() || expiry.empty() || service.empty()) return -1;
  if (poPan) *poPan = pan;
  if (poExpD) *poExpD = expiry;
  if (poSCod) *poSCod = service;
  return 0;
}

// --- Hiding what must not be seen -----------------------------------------------------------------------------------

int MaskDigit(tString& oData, int iOfs, int iLen, char cMc) {
  size_t from = static_cast<size_t>(std::max(iOfs, 0));
  size_t length = iLen < 0 ? tString::npos : static_cast<size_t>(iLen);
  int masked = 0;
  for (size_t i = from; i < oData.size() && i - from < length; ++i) {
    if (!IsDigit(oData[i])) continue;
    oData[i] = cMc;
    ++masked;
  }
  return masked;
}

int MaskPAN(tString& oPAN, int iLnm, char cMc) {
  size_t keep = static_cast<size_t>(std::max(iLnm, 0));
  if (oPAN.size() <= keep) return 0;
  std::fill(oPAN.begin(), oPAN.end() - static_cast<std::ptrdiff_t>(keep), cMc);
  return 1;
}

void MaskPEX(tString& oPEX, int iLnm, char cMc) {
  size_t equals = std::min(oPEX.find('='), oPEX.size());
  size_t hidden = equals - std::min(equals, static_cast<size_t>(std::max(iLnm, 0)));
  for (size_t i = 0; i < oPEX.size(); ++i)
    if (i < hidden || i > equals) oPEX[i] = cMc;
}

int ConvertExpToP(tString& oExp, char cDc) {
  if (oExp.size() != kExpiry) return 0;
  oExp = oExp.substr(2) + cDc + oExp.substr(0, 2);
  return 1;
}

// --- Lists ----------------------------------------------------------------------------------------------------------

void ISMfill(tIntStrMap& oISM, const char* const* ppccText, int iN) {
  for (int k = iN; k >= 1; --k) oISM[k] = ppccText[k - 1] ? ppccText[k - 1] : "";
}

void ISMfill(tIntStrMap& oISM, const tString* poText, int iN) {
  for (int k = iN; k >= 1; --k) oISM[k] = poText[k - 1];
}

void ISMfromStr(tIntStrMap& oISM, const tString& oParams) {
  int key = 0;
  for (size_t at = 0; at < oParams.size();) {
    size_t end = std::min(oParams.find(' ', at), oParams.size());
    if (end > at) oISM[++key] = oParams.substr(at, end - at);
    at = end + 1;
  }
}

size_t EraseLeftChars(tString& oField, char oV, const tString* poDefVal) {
  return EraseLeftChars(oField, oV, poDefVal ? poDefVal->c_str() : nullptr);
}

size_t EraseLeftChars(tString& oField, char oV, const char* poDefVal) {
  oField.erase(0, std::min(oField.find_first_not_of(oV), oField.size()));
  if (oField.empty() && poDefVal) oField = poDefVal;
  return oField.size();
}

// --- Dates ----------------------------------------------------------------------------------------------------------

namespace {

// The forms that are a piece of the 14 characters.
struct Piece {
  tDTType oType;
  size_t lFrom, lLength;
};
constexpr Piece kPieces[] = {
    {eDTTyymmddhhmmss, 2, 12}, {eDTTmmddhhmmss, 4, 10}, {eDTThhmm, 8, 4},
    {eDTThhmmss, 8, 6},        {eDTTyymmdd, 2, 6},
};

void GetReference(const char* date, tString& out) {
  out.clear();
  struct tm broken = {};
  if (MakeLocTm(&broken, date, true) == -1) return;
  char text[32];
  int length = snprintf(text, sizeof text, "%1d%03d%02d", (1900 + broken.tm_year) % 10, broken.tm_yday + 1,
                        broken.tm_hour);
  if (length == 6) out = text;
}

void GetFileName(const char* date, const char* ending, tString& out) {
  out.clear();
  time_t then = MakeLocTm(nullptr, date, false), reference = MakeLocTm(nullptr, kReference, false);
  if (then == -1 || reference == -1) return;
  char text[32];
  int length = snprintf(text, sizeof text, "%08x%s",
                        static_cast<unsigned>(static_cast<long>(difftime(then, reference))), ending);
  if (length == 12) out = text;
}

} // namespace

bool tDateTame::Fill(bool fLocal) {
  time_t now = time(nullptr);
  struct tm broken = {};
  fLocal ? localtime_r(&now, &broken) : gmtime_r(&now, &broken);
  char text[sizeof mcDT + 16];
  bool good = strftime(text, sizeof text, "%Y%m%d%H%M%S", &broken) == sizeof mcDT;
  if (good)
    memcpy(mcDT, text, sizeof mcDT);
  else
    memset(mcDT, ' ', sizeof mcDT);
  return good;
}

int tDateTame::Assign(const tString& oDT) {
  if (oDT.size() != sizeof mcDT) return 0;
  memcpy(mcDT, oDT.data(), sizeof mcDT);
  return 1;
}

void tDateTame::Get(tString& oOut, tDTType oType) const {
  if (oType == eDTTref) return GetReference(mcDT, oOut);
  if (oType == eDTTmmft) return GetFileName(mcDT, ".zip", oOut);
  if (oType == eDTTmmfi) return GetFileName(mcDT, ".001", oOut);
  oOut.assign(mcDT, sizeof mcDT);
  for (const Piece& piece : kPieces)
    if (piece.oType == oType) oOut.assign(mcDT + piece.lFrom, piece.lLength);
}

int tDateTame::Convert(tString& oInOut, tDTType oType) {
  if (!Assign(oInOut)) return 0;
  Get(oInOut, oType);
  return 1;
}

// --- The clock ------------------------------------------------------------------------------------------------------

tTicks PClock() {
  return static_cast<tTicks>(times(nullptr)); // without the process's own times, which take longer to sum up
}

tTicks PCperS() {
  static std::atomic<tTicks> rate = 0; // two threads may ask the system both, which does no harm
  if (rate == 0) rate = static_cast<tTicks>(sysconf(_SC_CLK_TCK));
  return rate;
}

tTicks TicksGet() { return PClock(); }

namespace {

tTicks TicksBetween(tTicks from, tTicks to) { return to >= from ? to - from : to - from - 1; }

} // namespace

tTicks TicksDiff(tTicks oTck) { return TicksBetween(oTck, TicksGet()); }

tTicks TicksFromMs(tTicks iMs) {
  return static_cast<tTicks>(static_cast<double>(PCperS()) / 1000.0 * static_cast<double>(iMs));
}

int TicksEnd(tTicks oBeg, tTicks iMsWait, tTicks oNow) {
  return iMsWait == 0 || TicksFromMs(iMsWait) < TicksBetween(oBeg, oNow);
}

int TicksEnd(tTicks oBeg, tTicks iMsWait) { return TicksEnd(oBeg, iMsWait, TicksGet()); }
