// The launcher: decides, each time the terminal module is needed, whether to install a downloaded update first, to
// give up, or to start the module as a child process. All launchers of an installation, inside tills and alone,
// meet in lock files in the installation's root.
//
// The installation, seen from the launcher's own directory (oCPath):
//   <root>/BIN/                 oCPath: this object, zat_mm, zat_mu
//   <root>/                     oRPath: configuration files and these locks
//     mainlock.lck              held only while the update lock is being taken
//     updtlock.lck              held from then until the module is started or the launcher gives up
//     cid<client id>.lck        held as long as the module of that client lives
//   <root>/DOWNLOAD/            downloaded updates and the version lists
//   <root>/UPDATE_T/            oUpdtD: one update between unpacking and installing
#pragma once
#include "microus.h"
#include "ztypes.h"

// The launcher's state, one per cash-desk session; the stand-alone launcher has the global one.
struct MicroSGlData_tag {
  tString oParamS; // the arguments from the second on, each with one space before it; handed on to the module
  tString oCIdS;   // client id: the fourth argument without leading zeros; "absent" when there is none
  tString oRPath;  // root directory, ends with '/'
  tString oCPath;  // the launcher's own directory, ends with '/'
  tString oUpdtLck;  // update lock
  tString oMainLck;  // main lock
  tString oUpdtS;    // selected update: file name with its path; empty until one is selected
  tString oUpdtN;    // selected update: its key in the version list
  tString oUpdtD;    // where updates are unpacked
  tString oUpdtE;    // the updater program
  tString oUpdtEn;   // the new updater inside an unpacked update
  tString oUpdtM;    // the terminal module program
  tTicks oTimS;      // start of the time budget
  tTicks oTimDms;    // the time budget in milliseconds
  bool fUpdImp;      // an update pass is in progress: the module must not be started over it
  bool fUpdPck;      // an update package was selected
  bool fLockCID;     // this state holds its client-id lock
  FListStorage oFLS; // the version list
  void* pvExHandle;  // process handle of the started module; null when none runs
  tString oCIdLck;   // client-id lock; kept, because giving it back must not fail for want of memory

  MicroSGlData_tag();

  // Waits for a module that still runs: the module may be in the middle of a payment, so it is never signalled.
  ~MicroSGlData_tag();

  MicroSGlData_tag(const MicroSGlData_tag&) = delete;
  MicroSGlData_tag& operator=(const MicroSGlData_tag&) = delete;

  // Fills the state from a launcher's arguments and starts the 7-second budget. argv[0] only tells the directory:
  // a name without '/' stands for the directory of the loaded object. In the client id every byte that cannot
  // stand in a file name or a shell word (outside printable ASCII, and / " ' $ ` \) becomes "_".
  void Init(int argc, char** argv);

  // Builds oParamS from the second argument on.
  void MakeParamS(int argc, char** argv);

  // True once the budget is used up.
  bool TicksEnd();
};

// The whole decision, in at most 7 seconds plus the start of the module: takes the locks, installs what has been
// downloaded, starts the module. Arguments: [program path, pipes' export text, configuration path, client id].
// On ePECgood the module runs and poMSGD holds its handle and its client-id lock; keep poMSGD until DoAuthE.
// ePECcdup: the client id is in use; ePECtout: the locks were not free in time, or an update cannot be installed
// yet; ePECnaut: the module could not be started (the client-id lock stays held until DoAuthE).
// The wait for the main lock itself is not bounded by the budget: whoever holds it holds it for a moment only.
tProcECode MonoS(int argc, char** argv, MicroSGlData_tag* poMSGD);

// Takes the client-id lock, releases the update lock and starts the module. ePECgood, ePECcdup or ePECnaut.
tProcECode DoAuth(MicroSGlData_tag* poMSGD);

// Takes the client-id lock without waiting, then releases the update lock in any case. 0, or -1 when the client id
// is in use by another session of this or another process.
int DoAuthB(MicroSGlData_tag* poMSGD);

// Waits for the module to end, without limit and without ever sending it a signal, since it may be in the middle of
// a payment; then frees the client-id lock. Does nothing when no module runs. Always 0, and never throws.
int DoAuthE(MicroSGlData_tag* poMSGD);

extern MicroSGlData_tag oMSGD; // the stand-alone launcher's state

extern const int ciIsDLL; // 1: this build lives in a shared object, whose launcher logs no last line
extern const char* const pccCIdLPref; // a client-id lock's name is this prefix,
extern const char* const pccCIdLPosf; // the client id and this ending
