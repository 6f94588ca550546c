#include "EFTPMisc.h"
#include "EFTPTable.h"
#include "MiscFunc.h"
#include "SLogger.h"
#include "util.h"
#include <cstring>
#include <iterator>
#include <new>

const char* const poTwoNul = "";
const char* const poTwoEntmMagpA7 = "9010";
const char* const poTwoEntmMagA7 = "9000";
const char* const poTwoEntmManA7 = "0100";
const char* const poTwoTrcndNoneA7 = "00";
const char* const poTwoTrcndBonusA7 = "21";
const char* const poTwoTrcndVerifyA7 = "51";
const char* const poTwoTrcndMotoA7 = "08";
const char* const poTwoTrcndEcomA7 = "59";

namespace {

constexpr unsigned char kEsc = 0x1B;
constexpr int kLogLevel = 150;
constexpr size_t kKind = 2;       // "EF.ITP"
constexpr size_t kInfoPiece = 18; // a response in an information message
constexpr size_t kErrorCode = 2;  // "EF.ECD"
constexpr int kVisible = 4;       // digits of a card number that the log may show

// A string for card data: overwritten before its memory is given back.
struct CardString : tString {
  ~CardString() { explicit_bzero(data(), size()); }
};

// Writes the line about a parameter that was taken. Only a few values are shown, none that identifies a card;
// print lines come by the dozen and are logged elsewhere.
void LogTaken(const char* pccTag, const unsigned char* pbValue, size_t lLen) {
  if (pccTag == abisEFpln || pccTag == abisEFsln || !GSWants(kLogLevel)) return;
  int length = static_cast<int>(lLen);
  bool shown = false;
  for (const char* tag : {abisTRamt, abisTRram, abisEFrcd, abisEFcod, abisTRpex, abisEFecd, abisTMrtp})
    shown = shown || pccTag == tag;
  if (!shown) return GSLog(kLogLevel, "[MicroM] EFTPParsP [%s] - present [dL:%d]", pccTag, length);
  try {
    CardString value;
    value.assign(reinterpret_cast<const char*>(pbValue), lLen);
    if (pccTag == abisTRpex) MaskPEX(value, kVisible, '*');
    GSLog(kLogLevel, "[MicroM] EFTPParsP [%s] - present [dL:%d] '%s'", pccTag, length, value.c_str());
  } catch (const std::bad_alloc&) {
    // the parameter is stored; only its line is missing
  }
}

bool Put(SqueezeT* poStore, const char* pccTag, const void* pvValue, size_t lLen) {
  return poStore->PutData(pccTag, pvValue, lLen).ss_get() != nullptr;
}

// Stores one field that is there.
bool Store(SqueezeT* poStore, const char* pccTag, const unsigned char* pbValue, size_t lLen,
           tEFTPppMode oMode) try {
  if (!(oMode & eEFTPppMlng)) return Put(poStore, pccTag, pbValue, lLen);
  char found = 0;
  uint64_t number = GetNumbers(pbValue, lLen, IsTo, 10, &found, nullptr);
  return found && poStore->PutLong(pccTag, static_cast<long>(number)).ss_get() != nullptr;
} catch (const std::bad_alloc&) { // a long tag of the caller's own, as a string
  return false;
}

// Cuts a body by the layout of its message. Both sides are left where the first refusal stands.
template<class Take>
bool CutBody(tEFTPWorkId oId, SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft, Take oTaken) {
  return zat::EFTPCutFields(*zat::EFTPRowOf(oId), plLeft, [&](const zat::tEFTPField& field, size_t len) {
    const char* tag = *field.ppccTag;
    return oTaken(tag, EFTPParsP(poStore, ppbPos, plLeft, tag, len, field.oMode));
  });
}

// Keeps the parts of "card number = expiry date" under their own tags. False when there is no memory to split
// in.
bool SplitCard(SqueezeT* poStore) try {
  CardString track, whole, pan, expiry, code, rest;
  if (poStore->GetData(poStore->Find(abisTRpex, SQNull), &track) != eDTpdata) return true;
  whole.assign(track); // the split masks what it has taken
  if (PortionTrack2opt(track, pan, expiry, code, rest) != 0) {
    Put(poStore, abisTRpan, whole.data(), whole.size());
  } else if (!pan.empty()) {
    Put(poStore, abisTRpan, pan.data(), pan.size());
    if (!expiry.empty()) Put(poStore, abisTRedt, expiry.data(), expiry.size());
  }
  return true;
} catch (const std::bad_alloc&) { return false; }

} // namespace

bool EFTPParsP(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft, const char* pccTag, size_t lLen,
               tEFTPppMode oMode) {
  const bool variable = oMode & eEFTPppMvar;
  const unsigned char* value = *ppbPos;
  if (variable) {
    size_t limit = *plLeft <= lLen ? *plLeft : lLen + 1;
    const void* esc = limit > 0 ? memchr(value, kEsc, limit) : nullptr;
    if (!esc || (esc == value && !(oMode & eEFTPppMopt))) {
      GSLog(kLogLevel, "[MicroM] EFTPParsP [%s] - var, absent", pccTag);
      return false;
    }
    if (esc == value) {
      ++*ppbPos;
      --*plLeft;
      GSLog(kLogLevel, "[MicroM] EFTPParsP [%s] - optional, var, absent", pccTag);
      return true;
    }
    lLen = static_cast<size_t>(static_cast<const unsigned char*>(esc) - value);
  }
  bool taken = false;
  if (*plLeft >= lLen) {
    taken = Store(poStore, pccTag, value, lLen, oMode);
    size_t consumed = lLen + (variable ? 1 : 0);
    *ppbPos += consumed;
    *plLeft -= consumed;
  }
  if (taken)
    LogTaken(pccTag, value, lLen);
  else
    GSLog(kLogLevel, "[MicroM] EFTPParsP [%s] - not detected", pccTag);
  return taken;
}

bool EFTPParsPResp(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft, char* pcOut) {
  char last = '0';
  bool whole = CutBody(eEFTPwidRespons, poStore, ppbPos, plLeft, [&](const char* tag, bool taken) {
    if (tag == abisEFrad && taken) last = '1';
    return taken;
  });
  if (pcOut) *pcOut = last;
  return whole && SplitCard(poStore);
}

tEFTPWorkId EFTPParsPInfo(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft) {
  if (*plLeft < kKind) return eEFTPwidNone;
  bool response = memcmp(*ppbPos, "11", kKind) == 0;
  bool whole = CutBody(eEFTPwidMsgInfo, poStore, ppbPos, plLeft, [&](const char* tag, bool taken) {
    bool pieces =
        tag != abisEFitp || !response || *plLeft % kInfoPiece == 0; // judged before the data are taken
    return taken && pieces;
  });
  return !whole ? eEFTPwidNone : response ? eEFTPwidRespInfo : eEFTPwidMsgInfo;
}

bool EFTPParsPPrLine(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft, char* pcOut) {
  char flag = 0;
  bool flagTaken = false, whole = false;
  if (*plLeft > 0) {
    char first = static_cast<char>(**ppbPos);
    whole = CutBody(eEFTPwidPrLine, poStore, ppbPos, plLeft, [&](const char* tag, bool taken) {
      if (tag != abisEFsln) return taken;
      flagTaken = taken;
      flag = taken ? first : '\0';
      return true; // the text is taken all the same
    });
  }
  if (pcOut) *pcOut = flag;
  return whole && flagTaken;
}

bool EFTPParsPRubad(SqueezeT* poStore, unsigned char** ppbPos, size_t* plLeft) {
  if (*plLeft < kErrorCode) return false;
  return CutBody(eEFTPwidRubad, poStore, ppbPos, plLeft, [](const char*, bool taken) { return taken; });
}

namespace {

// Transaction types 1 to 27 in both codings.
constexpr struct tCodePair {
  const char* mpccBySource[2]; // internal, A7
} mmcCopToVal[27] = {
    {"0", "000000"}, {"4", "200000"}, {"2", "010000"}, {"1", "000000"}, {"L", "304000"}, {"J", "000000"},
    {"P", "720000"}, {"Q", "280000"}, {"9", "000000"}, {"8", "000000"}, {"D", "000000"}, {"E", "000000"},
    {"G", "000000"}, {"F", "200000"}, {"H", "200000"}, {"I", "010000"}, {"K", "200000"}, {"A", "000000"},
    {"6", "000000"}, {"7", "010000"}, {"3", "000000"}, {"5", "000000"}, {"B", "200000"}, {"C", "010000"},
    {"M", "200000"}, {"O", "200000"}, {"N", "200000"},
};

// The values that have a coding in A7 only.
constexpr struct tA7Value {
  const char* const* ppccTag;
  long lValue;
  const char* const* ppccA7;
} kA7Values[] = {
    {&abisTRenm, 1, &poTwoEntmManA7},    {&abisTRenm, 2, &poTwoEntmMagA7},
    {&abisTRenm, 10, &poTwoEntmMagpA7},  {&abisTRcnd, 0, &poTwoTrcndNoneA7},
    {&abisTRcnd, 1, &poTwoTrcndBonusA7}, {&abisTRcnd, 2, &poTwoTrcndVerifyA7},
    {&abisTRcnd, 3, &poTwoTrcndMotoA7},  {&abisTRcnd, 4, &poTwoTrcndEcomA7},
};

} // namespace

const char* GetPairValue(const char* pccTag, const long* plValue, tTypeFmtSource oSource) {
  if (!plValue || (oSource != eTFSinternal && oSource != eTFSa7)) return poTwoNul;
  if (pccTag == abisTRtyp) {
    size_t type = static_cast<unsigned char>(*plValue);
    return type >= 1 && type <= std::size(mmcCopToVal)
               ? mmcCopToVal[type - 1].mpccBySource[oSource - eTFSinternal]
               : poTwoNul;
  }
  if (oSource == eTFSa7)
    for (const tA7Value& row : kA7Values)
      if (pccTag == *row.ppccTag && *plValue == row.lValue) return *row.ppccA7;
  return poTwoNul;
}
