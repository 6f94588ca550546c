#include "micros.h"

#include <cerrno>
#include <cstring>

#include "SLogger.h"
#include "initorder.h"
#include "util.h"
#include "utilf.h"

ZAT_INIT_LAUNCHER MicroSGlData_tag oMSGD;

const int ciIsDLL = 1;
const char* const pccCIdLPref = "cid";
const char* const pccCIdLPosf = ".lck";

namespace {

constexpr tTicks kBudgetMs = 7000;
constexpr int kClientIdArgument = 3; // counted from 0; the client id is the fourth word

// The client id becomes part of file names and of the updater's shell line, and it comes from the till.
char SafeIdChar(char c) {
  bool printable = c >= ' ' && c < 0x7F;
  return printable && !strchr("/\"'$`\\", c) ? c : '_';
}

tString ClientId(int argc, char** argv) {
  tString id = "absent";
  if (argc > kClientIdArgument) {
    id = argv[kClientIdArgument];
    EraseLeftChars(id, '0', "0");
  }
  for (char& c : id) c = SafeIdChar(c);
  return id;
}

void Release(const tString& lock) {
  remflock(lock.c_str());
  GSLog(100, "[MicroS] Rem lock: %s", lock.c_str());
}

// One try for both locks. The update lock is asked for without waiting while the main lock is held: an installation
// takes them the other way round, and two launchers that waited for each other would wait for ever. *piWhy receives
// errno when the main lock is not to be had at all.
bool TryLocks(MicroSGlData_tag* poMSGD, zat::Pauses& pauses, int* piWhy) {
  if (putflock(poMSGD->oMainLck.c_str()) != 0) {
    *piWhy = errno;
    pauses
        .Next(); // a held lock is waited for, so this one cannot be made: no use in burning a processor for it
    return false;
  }
  GSLog(100, "[MicroS] Put lock: %s", poMSGD->oMainLck.c_str());
  bool taken = tryflock(poMSGD->oUpdtLck.c_str()) == 0;
  if (taken)
    GSLog(100, "[MicroS] Put lock: %s", poMSGD->oUpdtLck.c_str());
  else
    zat::MendInstallation(poMSGD); // an updater that died would keep every till out for good
  Release(poMSGD->oMainLck);
  if (!taken) pauses.Next();
  return taken;
}

bool TakeLocks(MicroSGlData_tag* poMSGD) {
  bool taken = false;
  int why = 0;
  zat::Pauses pauses;
  while (!taken && !poMSGD->TicksEnd()) taken = TryLocks(poMSGD, pauses, &why);
  errno = why;
  if (!taken && why != 0) GSErrno("MicroS", "cannot lock", poMSGD->oMainLck.c_str());
  return taken;
}

// Waits until no module runs any more, as long as an update pass is on and the budget lasts. True when none runs.
bool NobodyRuns(MicroSGlData_tag* poMSGD) {
  int others = GetNumCId(poMSGD);
  while (others != 0 && poMSGD->fUpdImp && !poMSGD->TicksEnd()) others = GetNumCId(poMSGD);
  return others == 0;
}

// One pass under the update lock, which every way out releases. *pfAgain is set when an installation has changed
// what is installed, so that the decision has to be made afresh.
tProcECode Pass(MicroSGlData_tag* poMSGD, bool* pfAgain) {
  tProcECode code = ePECtout;
  if (!FindUpdate(poMSGD)) {
    code = DoAuth(poMSGD);
  } else if (NobodyRuns(poMSGD)) {
    code = Unpack(poMSGD);
    GSLog(150, "[MicroS] Unpacked: %d; try again...", code);
    *pfAgain = true;
  } else if (poMSGD->fUpdImp) {
    Release(poMSGD->oUpdtLck);
  } else {
    code = DoAuth(poMSGD);
  }
  return code;
}

// Frees what a launcher holds when an exception ends it: nobody may be left waiting for a lock whose holder lives on.
void ReleaseAll(MicroSGlData_tag* poMSGD) {
  for (const tString* lock : {&poMSGD->oUpdtLck, &poMSGD->oMainLck, &poMSGD->oFLS.oFNameL})
    if (holdsflock(lock->c_str())) Release(*lock);
  poMSGD->oFLS.uLock = 0;
}

tProcECode GuardedPass(MicroSGlData_tag* poMSGD, bool* pfAgain) {
  try {
    return TakeLocks(poMSGD) ? Pass(poMSGD, pfAgain) : ePECtout;
  } catch (...) {
    ReleaseAll(poMSGD);
    throw;
  }
}

} // namespace

MicroSGlData_tag::MicroSGlData_tag()
    : oTimS(0), oTimDms(0), fUpdImp(false), fUpdPck(false), fLockCID(false), pvExHandle(nullptr) {}

MicroSGlData_tag::~MicroSGlData_tag() {
  if (pvExHandle) SysCallEnd(pvExHandle);
}

void MicroSGlData_tag::MakeParamS(int argc, char** argv) {
  oParamS.clear();
  for (int i = 1; i < argc; ++i) oParamS.append(" ").append(argv[i]);
}

void MicroSGlData_tag::Init(int argc, char** argv) {
  MakeParamS(argc, argv);
  fUpdImp = fUpdPck = false;
  oUpdtS.clear();
  oTimDms = kBudgetMs;
  DetectLocDir(argc > 0 ? argv[0] : "", oCPath);
  oCIdS = ClientId(argc, argv);
  oRPath = oCPath;
  ConvertLocToHome(oRPath);
  oUpdtLck = oRPath + "updtlock.lck";
  oMainLck = oRPath + "mainlock.lck";
  oUpdtD = oRPath + "UPDATE_T" + "/";
  oUpdtE = oCPath + "zat_mu";
  oUpdtEn = oUpdtD + "BIN" + "/" + "zat_mu";
  oUpdtM = oCPath + "zat_mm";
  oTimS = TicksGet();
}

bool MicroSGlData_tag::TicksEnd() { return ::TicksEnd(oTimS, oTimDms) != 0; }

tProcECode MonoS(int argc, char** argv, MicroSGlData_tag* poMSGD) {
  GSLog(150, "[MicroS] Started");
  GSLog(150, "[MicroS] %s", "LocVer: 200917");
  poMSGD->Init(argc, argv);
  GSLog(100, "[MicroS] Cmd: %s%s", argc > 0 ? argv[0] : "", poMSGD->oParamS.c_str());
  tProcECode code = ePECtout;
  bool again = true;
  while (again) {
    again = false;
    // After an installation the same budget goes on: with no time left there is no start on this call.
    code = GuardedPass(poMSGD, &again);
  }
  if (!ciIsDLL) GSLog(150, "[MicroS] Finished: %d", code);
  return code;
}

tProcECode DoAuth(MicroSGlData_tag* poMSGD) {
  tString command = poMSGD->oUpdtM + poMSGD->oParamS;
  if (DoAuthB(poMSGD) != 0) return ePECcdup;
  poMSGD->pvExHandle = SysCallBegin(command.c_str());
  if (!poMSGD->pvExHandle) GSErrno("MicroS", "cannot start", poMSGD->oUpdtM.c_str());
  GSLog(150, "[MicroS] Started: %s <Handle: %p>", command.c_str(), poMSGD->pvExHandle);
  return poMSGD->pvExHandle ? ePECgood : ePECnaut;
}

int DoAuthB(MicroSGlData_tag* poMSGD) {
  const tString& lock = poMSGD->oCIdLck = poMSGD->oRPath + pccCIdLPref + poMSGD->oCIdS + pccCIdLPosf;
  // The module inherits the lock's descriptor: the id stays taken while the module lives, even when the till dies.
  bool taken = tryflock(lock.c_str(), true) == 0;
  poMSGD->fLockCID = poMSGD->fLockCID || taken;
  if (taken)
    GSLog(100, "[MicroS] Put lock: %s", lock.c_str());
  else
    GSLog(150, "[MicroS] Already lock: %s", lock.c_str());
  Release(poMSGD->oUpdtLck);
  return taken ? 0 : -1;
}

int DoAuthE(MicroSGlData_tag* poMSGD) {
  if (poMSGD->pvExHandle) SysCallEnd(poMSGD->pvExHandle);
  poMSGD->pvExHandle = nullptr;
  if (poMSGD->fLockCID) {
    remflock(poMSGD->oCIdLck.c_str());
    GSLog(150, "[MicroS] Rem lock [I]: %s", poMSGD->oCIdLck.c_str());
    poMSGD->fLockCID = false;
  }
  return 0;
}
