// Updates of an installation: the version list of one client, and the three steps by which a launcher finds a
// downloaded update, makes sure that no terminal module runs, and has the updater program put it in place.
//
// The life of an update, the names and the locks are drawn in docs/updates.md.
#pragma once
#include "simplecfg.h"
#include "ztypes.h"

struct MicroSGlData_tag; // the launcher's state, micros.h

// What a launch or one of its steps ended with. Negative: nothing was started.
//   X(constant, value, meaning)
#define MICROS_RESULTS(X)                                                                                    \
  X(ePECnaut, -4, "the terminal module could not be started")                                                \
  X(ePECnupu, -3, "the update's own updater is not fit for use; the old one stays")                          \
  X(ePECnupd, -2, "nothing was installed")                                                                   \
  X(ePECcdup, -1, "the client id is in use by a running module")                                             \
  X(ePECgood, 0, "the module was started")                                                                   \
  X(ePECtout, 1, "the time budget is used up, or an update waits for other modules to end")                  \
  X(ePECunpk, 2, "the update is unpacked")                                                                   \
  X(ePECupdt, 3, "the update is installed")

enum tProcECode : int {
#define MICROS_CONSTANT(name, value, text) name = value,
  MICROS_RESULTS(MICROS_CONSTANT)
#undef MICROS_CONSTANT
};

// The version list: which update one client has installed, and up to which one it may go. A small INI file
// beside that client's downloads:
//
//   [LAST]
//   INST = 0000001A.000   the update that is installed; the only key this store ever writes
//   HI   = 0000001C.000   the highest update that may be installed; written by whoever delivers the updates
//   LOAD = 0000001D.000   the update being delivered; written by whoever delivers the updates
//
// A missing key reads as "00000000.000". Several processes share the file; a counting lock keeps them apart.
// One instance is used by one thread at a time. It holds pointers into itself, so it is never copied.
struct FListStorage {
  tString oPath;         // directory of the list, ending with '/'
  tString oCId;          // client id; empty: the list of the download directory itself
  tString oFName;        // the version list, full path
  tString oFNameL;       // its lock file
  tString moV[2];        // name patterns: a finished update, and one that is still being written
  SimpleCfg oCfg;        // the list as loaded
  bool fOpen;            // Open has succeeded
  uint32_t uLock;        // depth of the lock, 0 = not held
  const char* mpccML[3]; // pattern line: both of moV, null
  const char* mpccOL[3]; // installed-names line: the installed update, null, null
  const char* pccHi;     // the highest update allowed
  const char* pccLD;     // the update being delivered

  // An empty store: nothing named, nothing open, nothing locked. The text pointers are null until Open.
  FListStorage();
  FListStorage(const FListStorage&) = delete;
  FListStorage& operator=(const FListStorage&) = delete;

  // Names the list of client oCId_ under the directory oPath_ (ending with '/'), makes both directories when
  // they are missing (one level each), and loads the list. A missing or unreadable list counts as one without
  // keys. False when the lock cannot be had at once: the texts are null then and fOpen keeps its value. The
  // text pointers stay valid until the next Open or SaveLI.
  bool Open(const tString& oPath_, const tString& oCId_);

  // Writes the document to the list, whole or not at all; does nothing before Open. Takes no lock; a failure
  // is not reported, the list then stays as it was.
  void Save();

  // Records pccFName as the installed update: under the lock, in the list as it stands on disk by then. The
  // name may be one of this store's own texts. Does nothing before Open, for a null name, or without the
  // lock.
  void SaveLI(const char* pccFName);

  // Takes the lock and returns the new depth; only depth 0 touches the lock file. fNeed clear: one attempt,
  // depth 0 when it failed. fNeed set: waits, looking every millisecond, as long as another process holds the
  // lock; gives up with depth 0 when the lock file cannot even be opened for 60 s.
  uint32_t Lock(bool fNeed);

  // Gives one level of the lock back and returns the new depth; only depth 1 touches the lock file, and a
  // lock file that is already gone counts as released. When it cannot be removed the depth stays 1: at once
  // with fNeed clear, after 7 s of attempts with fNeed set. At depth 0 nothing happens.
  uint32_t Unlock(bool fNeed);

private:
  void Load(); // the list over what the document holds, and the texts from it
};

// Looks for an update of the client oCIdS in DOWNLOAD/ and DOWNLOAD/<client id>/ below the root, removes what
// half-written deliveries left, and selects the lowest-numbered update above the installed one. 1: oUpdtN
// (its name), oUpdtS (its full path) and fUpdPck are set. 0: none; fUpdPck is left alone. fUpdImp is set
// whenever the version list could be opened: from then on the module must not be started over a waiting
// update.
int FindUpdate(MicroSGlData_tag* poMSGD);

// The number of client-id locks in the root that are held, by this or another process: modules that still
// run. Never waits; the lock files of dead processes are removed.
int GetNumCId(MicroSGlData_tag* poMSGD);

// Installs the selected update; without one, whatever tree stands unpacked. To be called with the update lock
// held and no module running; the update lock is always released. ePECupdt: installed and recorded. ePECnupd:
// nothing installed (an update that cannot be unpacked is removed, so that it is not tried again; one that
// only ran out of time stays). ePECnupu: the update brought an updater that failed its own check.
tProcECode Unpack(MicroSGlData_tag* poMSGD);

namespace zat {

// While the updater installs, the update lock is a directory with a file of this name in it, and an flock on the
// directory tells that the updater lives.
inline constexpr const char* kUpdaterMark = "zat_mu";

// For a launcher that could not take the update lock and holds the main lock: finishes an installation whose updater
// was killed or ended with a power cut, by running the updater again; when even that fails, clears its lock away, so
// that it cannot block the tills for ever. True when there was one to mend; the update lock is not taken. Leaves
// alone what other updaters make of the lock. Costs one open call when there is nothing to mend.
bool MendInstallation(MicroSGlData_tag* poMSGD);

} // namespace zat
