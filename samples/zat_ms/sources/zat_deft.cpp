#include "zat_deft.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

#include <cxxabi.h>
#include <pthread.h>

#include "SLogger.h"
#include "cp1251.h"
#include "exchange.h"
#include "logmask.h"
#include "util.h"
#include "utilf.h"

namespace {

constexpr size_t kHeader = 2 + 10 + 2;
constexpr size_t kIdAt = 2;
constexpr size_t kIdLength = 10;
constexpr size_t kLengthAt = kIdAt + kIdLength;
constexpr size_t kCodeLength = 2;   // a coded text begins with its code
constexpr size_t kAnswerMax = 2048; // what the till's buffer holds
constexpr long kRussian = 1251;
constexpr long kLoginPause = 2; // seconds; a login moves no money, so it may follow quickly
constexpr long kCommonPause = 8;

} // namespace

const tMesgRm MesgRm[14] = {
    // Two of the Russian texts carry slips of grammar; tills compare them whole, so they stay.
    {"I1", kRussian, "Некорректная формат запроса со стороны кассы"_1251, nullptr},
    {"I2", kRussian, "Некорректный формат ответа от карты"_1251, nullptr},
    {"I3", kRussian, "Нарушение таймаута между запросами со стороны кассы"_1251, nullptr},
    {"I4", kRussian, "Некорректная последовательность запросов со стороны кассы"_1251, nullptr},
    {"I5", kRussian, "Запрос от кассы не передан на терминал"_1251, nullptr},
    {"I6", kRussian, "Не получен ответ от терминала"_1251, nullptr},
    {"I7", kRussian, "Некорректная последовательность ответов со стороны терминала"_1251,
     "Incorrect sequence of answers"},
    {"I8", kRussian, "Запрос от кассы не был передан в течении выделенного интервала времени"_1251, nullptr},
    {"M3", kRussian, "Ошибка получения ответа от хоста"_1251, nullptr},
    {"M2", kRussian, "Получены не все ожидаемые для запроса ответы"_1251, nullptr},
    {"M1", kRussian, "Нет связи с терминалом"_1251, nullptr},
    {"09", kRussian, "Ошибка соединения с хостом"_1251, nullptr},
    {"M4", kRussian, "Ошибка транспортного уровня"_1251, "NETWORK ERROR"},
    {"M5", kRussian, "Ошибка безопасности транспортного уровня"_1251, "SSL ERROR"},
};

const tMesgRm MesgRet[11] = {
    {"65535", kRussian, "XLПотеряна связь с MicroM"_1251, "XLnot recv resp"},
    {"01", kRussian, "X1pvSelf == 0", "X1pvSelf == 0"},
    {"02", kRussian, "X2Неверный статус"_1251, "X2badly status"},
    {"03", kRussian, "X3Отсутствующая команда"_1251, "X3unsupport command"},
    {"04", kRussian, "X4Неверный набор параметров"_1251, "X4wrong param combination for current status"},
    {"05", kRussian, "X5Неверное значение tid"_1251, "X5working with another tid"},
    {"06", kRussian, "X6Невозможно создать pipe"_1251, "X6can`t create upipe"},
    {"07", kRussian, "X7Уже используется"_1251, "X7already in use"},
    {"08", kRussian, "X8Невозможно запустить MicroM"_1251, "X8can`t start mm"},
    {"10", kRussian, "XAЗавершено с ошибкой"_1251, "XAbad final"},
    {"11", kRussian, "XBНеверное значение pvSelf"_1251, "XBwrong pointer"},
};

void LogBaseClear(ptLogBase poLogBase) {
  if (!poLogBase || poLogBase->empty()) return;
  for (; !poLogBase->empty(); poLogBase->pop()) zat::WipeText(poLogBase->top());
  try {
    tLogBase().swap(*poLogBase); // the stack itself would keep its blocks of memory
  } catch (...) {                // and without memory for a new one it does
  }
}

// --- The pause between requests ---------------------------------------------------------------------------------

void tTOmanager::GetCommonTO(SimpleCfg* poCfg) {
  lReqTOlimCok = poCfg->GetLongValue("COMMON", "DefaultOkTimeout", kCommonPause);
  lReqTOlimLok = kLoginPause;
  lReqTOlimCbad = poCfg->GetLongValue("COMMON", "DefaultNOkTimeout", kCommonPause);
  lReqTOlimLbad = kLoginPause;
  oReqTOcur = 0;
  lReqTOlimW = 0;
}

void tTOmanager::GetLocalTO(SimpleCfg* poCfg, tEFTPWorkId oEPWId) {
  bool login = oEPWId == eEFTPwidLogin;
  oNameT = "TimeoutAfter-";
  oNameT += static_cast<char>(oEPWId >> 8);
  oNameT += static_cast<char>(oEPWId);
  lReqTOlimWok = poCfg->GetLongValue("COMMON", (oNameT + "-Ok").c_str(), login ? lReqTOlimLok : lReqTOlimCok);
  lReqTOlimWbad =
      poCfg->GetLongValue("COMMON", (oNameT + "-NOk").c_str(), login ? lReqTOlimLbad : lReqTOlimCbad);
  ModLocalTO(false);
}

void tTOmanager::ModLocalTO(bool fBad) { lReqTOlimW = fBad ? lReqTOlimWbad : lReqTOlimWok; }

void tTOmanager::SetReqTC() { oReqTOcur = std::max<tTicks>(TicksGet(), 1); } // 0 keeps meaning never

bool tTOmanager::TooEarly() const {
  if (lReqTOlimW <= 0 || oReqTOcur == 0) return false;
  return !TicksEnd(oReqTOcur, static_cast<tTicks>(lReqTOlimW) * 1000);
}

// --- The session ------------------------------------------------------------------------------------------------

MicroSMan::MicroSMan(const char* szConfigPath)
    : pvSelfForCheck(this), oSts(eEFTSclear), mucBUF{}, iIn(0), lCP(kRussian), fCanBreak(false),
      fOldRet(false), oWIdLst(eEFTPwidNone) {
  oIPath = "-";
  if (szConfigPath && *szConfigPath) oIPath = '"' + tString(szConfigPath) + '"';
  tString home;
  DetectLocDir("[MonoS]", home);
  ConvertLocToHome(home);

  oCfg.LoadFile((home + "micromgl" + ".cfg").c_str()); // a missing file leaves every default
  PutGlobLogLevel(*oCfg.GetValue("ENV", "LOGLEVEL", "M"));
  SetGlobLogLevel(poGSLog);
  lCP = oCfg.GetLongValue("TILL", "CP", kRussian);
  fCanBreak = oCfg.GetBoolValue("TILL", "BREAK", false);
  fOldRet = oCfg.GetBoolValue("TILL", "OLDRET", false);

  oCfg.Reset();
  oCfg.LoadFile((home + "eftpos.cfg").c_str());
  oTOmg.GetCommonTO(&oCfg);
}

MicroSMan::~MicroSMan() {
  ForgetSelf(&pvSelfForCheck);
  LogBaseClear(&oPLlog);
  explicit_bzero(mucBUF, sizeof mucBUF);
}

bool MicroSMan::ItIsMe(void* pvSelf) {
  bool mine = KnowsItself<MicroSMan>(pvSelf);
  if (!mine) AppendToFLog(nullptr, "Addr %p - is not (MicroSMan*)", pvSelf);
  return mine;
}

// --- What the till calls ----------------------------------------------------------------------------------------

namespace {

int Skip(char* pchOutBuffer, tEFTErr code) {
  GSLog(100, "[eftp_do] skip: %d", code);
  return changeRet(nullptr, pchOutBuffer, code);
}

int Do(void* pvSelf, char* pchInBuffer, char* pchOutBuffer, FUN_IDLE pfIdle, void* pvData) {
  GSLog(100, "[eftp_do] in: %p %p %p %p %p", pvSelf, static_cast<void*>(pchInBuffer),
        static_cast<void*>(pchOutBuffer), reinterpret_cast<void*>(pfIdle), pvData);
  if (pchInBuffer) GSData(100, "[eftp_do] ReqHdr: ", pchInBuffer, kHeader, true);
  if (!pvSelf) return Skip(pchOutBuffer, eEFTEempty);
  if (!MicroSMan::ItIsMe(pvSelf)) return Skip(pchOutBuffer, eEFTEwpoint);
  MicroSMan& man = *static_cast<MicroSMan*>(pvSelf);
  return zat::Exchange(man, pchInBuffer, pchOutBuffer, pfIdle, pvData).Run();
}

// What every call of a till begins and ends with.
class Entry {
public:
  Entry() {
    // A host may cancel the thread that is in a call. That takes effect after the call: unwound half-way it would leave
    // the module's answer to nobody.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    // In a host without C++ the thread's data for exceptions are made when they are first asked for, and without memory
    // that ends the process. So they are asked for while there is some, not when it has run out.
    [[maybe_unused]] volatile int asked = std::uncaught_exceptions();
  }
  ~Entry() { pthread_setcancelstate(before, nullptr); }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

private:
  int before;
};

// Memory ran out in the middle of a call, or the idle callback threw. Whether the request went out is not known any more, so the till learns of
// a lost link and nothing milder. Made without any allocation.
int LostWithoutMemory(bool oldResult, char* pchOutBuffer) {
  static constexpr char kBlock[] = "5X??????????0FXLnot recv resp";
  static_assert(sizeof kBlock - 1 == kHeader + 0x0F);
  if (oldResult) return eEFTElost & 0xFFFF;
  if (pchOutBuffer) memcpy(pchOutBuffer, kBlock, sizeof kBlock - 1);
  return eEFTEfinok;
}

} // namespace

void* eftp_create(char* szConfigPath) {
  Entry entry;
  MicroSMan* man = nullptr;
  try {
    man = new MicroSMan(szConfigPath);
  } catch (...) { // no memory: the till gets null, never an exception through a C function
  }
  GSLog(100, man ? "[eftp_create] ok" : "[eftp_create] bad");
  return man;
}

int eftp_do(void* pvSelf, char* pchInBuffer, char* pchOutBuffer, FUN_IDLE pfIdle, void* pvData) {
  Entry entry;
  try {
    return Do(pvSelf, pchInBuffer, pchOutBuffer, pfIdle, pvData);
  } catch (abi::__forced_unwind&) {
    throw; // the idle callback ends its own thread: to swallow that would end the whole process
  } catch (...) {
    MicroSMan* man = KnowsItself<MicroSMan>(pvSelf) ? static_cast<MicroSMan*>(pvSelf) : nullptr;
    return LostWithoutMemory(man && man->fOldRet, pchOutBuffer);
  }
}

void eftp_destroy(void* pvSelf) {
  Entry entry;
  const char* outcome = "[eftp_destroy] bad";
  if (pvSelf) outcome = "[eftp_destroy] skip";
  MicroSMan* man = pvSelf && MicroSMan::ItIsMe(pvSelf) ? static_cast<MicroSMan*>(pvSelf) : nullptr;
  // From within its own idle callback it would pull the session from under eftp_do.
  if (man && man->iIn == 0) {
    // A module that still waits for its request must learn that none will come, or both would wait for each other. One
    // that works at a request is left alone: it might take the end of the pipe for a reason to break off.
    if (!man->fSent) man->oUP.HangUp();
    DoAuthE(&man->oMSGD);
    delete man;
    outcome = "[eftp_destroy] ok";
  }
  GSLog(100, "%s", outcome);
}

// --- Headers and results ----------------------------------------------------------------------------------------

tEFTErr EFTePars(char* pcBuf, tEFTPWorkId& oEPWId, tString& oId, int* piL) {
  const unsigned char* header = reinterpret_cast<unsigned char*>(pcBuf);
  oEPWId = static_cast<tEFTPWorkId>(EFTPWId(pcBuf[0], pcBuf[1]));
  oId.assign(pcBuf + kIdAt, kIdLength);
  if (piL) *piL = static_cast<int>(EFTPParsDLen(header + kLengthAt, kHeader - kLengthAt, nullptr));
  // A break request never comes from the module; everything else of these classes goes on to the till.
  bool goesOn = header[0] != '\0' && strchr("12568", header[0]);
  goesOn = goesOn || (header[0] == '3' && oEPWId != eEFTPwidBrkReq);
  return goesOn ? eEFTEnone : eEFTEunsupcmd;
}

int do_eft_break(char* pcBuf, const tString& oId) {
  tString request = "33" + oId + "00";
  if (request.size() != kHeader) return 0;
  memcpy(pcBuf, request.data(), kHeader);
  return kHeader;
}

namespace {

const tMesgRm* FindLocal(const tString& code, long codePage) {
  for (const tMesgRm& row : MesgRm)
    if (row.lCP == codePage && code == row.pccCod) return &row;
  return nullptr;
}

// Appends the till's text for a coded message: the row's own, or the module's with the row's phrase replaced.
void AppendLocalText(tString& out, const tMesgRm& row, std::string_view moduleText) {
  size_t at = row.pccRep ? moduleText.find(row.pccRep) : moduleText.npos;
  bool within = at != moduleText.npos;
  if (within) out += moduleText.substr(0, at);
  out += row.pccMsg;
  if (within) out += moduleText.substr(at + strlen(row.pccRep));
}

} // namespace

bool eftp_msgmod(char* pchOutBuffer, tEFTErr oErr, long lCP) {
  bool visible = oErr == eEFTEnone || oErr == eEFTEfinok || oErr == eEFTEfiner;
  if (!pchOutBuffer || !visible) return false;
  if (EFTPWId(pchOutBuffer[0], pchOutBuffer[1]) != eEFTPwidRubad)
    return false; // nearly every block: no message
  tEFTPWorkId workId = eEFTPwidNone;
  tString id;
  int announced = 0;
  EFTePars(pchOutBuffer, workId, id, &announced);
  size_t length = std::min(static_cast<size_t>(announced), kAnswerMax - kHeader);
  if (length < kCodeLength) return false;

  const tString code(pchOutBuffer + kHeader, kCodeLength);
  const tMesgRm* row = FindLocal(code, lCP);
  if (!row) return false;
  // The module's text may name a card: nothing of it stays in memory, and what does not grow leaves no copies behind.
  zat::WipedText data(2 * kAnswerMax), block(2 * kAnswerMax);
  data.oText = code;
  AppendLocalText(data.oText, *row, {pchOutBuffer + kHeader + kCodeLength, length - kCodeLength});
  data.oText.resize(std::min(data.oText.size(), kAnswerMax - kHeader));
  EFTPMakeHeader(block.oText, workId, &id, &data.oText);
  memset(pchOutBuffer, 0, length + kHeader);
  memcpy(pchOutBuffer, block.oText.data(), block.oText.size());
  return true;
}

int changeRet(MicroSMan* poSelf, char* pchOutBuffer, int ret) {
  int code = ret & 0xFFFF;
  bool special = code == eEFTEempty || code == eEFTEwpoint; // no session to ask for its settings
  if (!special && poSelf->fOldRet) return code;
  if (!pchOutBuffer || code == eEFTEnone || code == eEFTEfinok) return code == eEFTEnone ? 0 : eEFTEfinok;

  tString number;
  SSqueeze::fmtLongToString(code, number, 2, SSqueeze::eFdecajr, '0');
  tString text = "XXSome return code: " + number;
  long codePage = special ? 0 : poSelf->lCP;
  for (const tMesgRm& row : MesgRet)
    if (number == row.pccCod) text = row.lCP == codePage ? row.pccMsg : row.pccRep;
  tString block;
  EFTPMakeHeader(block, eEFTPwidRubad, special ? nullptr : &poSelf->oId, &text);
  memcpy(pchOutBuffer, block.data(), block.size());
  return eEFTEfinok;
}
