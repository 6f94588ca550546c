// What the programs that meet faults and the one that measures them share: a record in a file that all of them map, and
// whose name stands in the environment (ZAT_FAULTS), so that a module and an updater find it through every till.
#pragma once
#include <atomic>
#include <cstdint>

namespace faults {

// Every call that meets faults, by its name.
enum Name : uint16_t {
#define FAILS(result, name, parameters, arguments, failed) eName_##name,
#define MOVES(result, name, parameters, arguments, failed, part) eName_##name,
#define CLOSES(result, name, parameters, arguments, failed) eName_##name,
#define NEVER(result, name, parameters, arguments) eName_##name,
#define OTHER(name) eName_##name,
#include "calls.inc"
#undef FAILS
#undef MOVES
#undef CLOSES
#undef NEVER
#undef OTHER
  eNames
};

// Whose calls count.
enum Role : int { eNobody, eTill, eUpdater, eKit };

enum What : int { eCalls, eMemory };

// What happens to the chosen call besides failing with an errno.
constexpr int kShort = -1; // moves only a part of its bytes
constexpr int kKill = -2;  // the process is killed in front of it

// What the module does when it has written iCut bytes; or the wall clock is set back an hour behind the till's block iCut.
enum Cut : int { eNoCut, eDies, eStops, eGoesSilent, eClockBack };

// A place that a call was made from: role, image, name and offset in the image.
constexpr int kRoleShift = 60, kImageShift = 56, kNameShift = 44;
enum Image : uint64_t { eObject = 1, eProgram = 2, eLibrary = 3 }; // the program is the role's own
constexpr int RoleIn(uint64_t place) { return static_cast<int>(place >> kRoleShift); }
constexpr uint64_t ImageIn(uint64_t place) { return place >> kImageShift & 0xF; }
constexpr unsigned NameIn(uint64_t place) { return static_cast<unsigned>(place >> kNameShift & 0xFFF); }
constexpr uint64_t OffsetIn(uint64_t place) { return place & ((uint64_t{1} << kNameShift) - 1); }

struct Plan {
  // The fault: the call number lAt that the role makes, or that it makes from the place ulAt, and the lSpan - 1 calls
  // behind it; none with lAt 0.
  std::atomic<int> iRole, iWhat, iError;
  std::atomic<uint64_t> ulAt;
  std::atomic<long> lAt, lSpan;
  std::atomic<long> lCalls, lThere; // made so far in all, and from that place
  std::atomic<long> lLeft;          // calls that are still to meet the fault
  std::atomic<uint64_t> ulHit;      // the place of the first call that met it

  std::atomic<bool> fNoTypes; // directories do not tell what their entries are, as on some file systems

  // The till's clock. Where nothing is to come its waits pass at once, and its clock is put forward.
  std::atomic<bool> fJump;
  std::atomic<bool> fSilent;     // the module will not write any more: waits for it end without a real wait
  std::atomic<int> iRealSleepMs; // what pauses between tries may really take in one call
  std::atomic<int64_t> iSkewUs;  // how much the clock has been put forward
  std::atomic<int> iWallSkewS;   // and how much somebody has set the wall clock

  // The module: its orders, and its own record of what it did.
  std::atomic<int> iCutHow, iCut;
  std::atomic<bool> fHangUp; // end, whatever is waited for
  std::atomic<int> iModule;  // its process
  std::atomic<bool> fAwaits; // it waits for the request
  std::atomic<int> iRequests, iApprovals, iEnds;

  // Places that made calls, and for each counted call the number of its place.
  static constexpr int kPlaces = 2048, kTrace = 1 << 16;
  std::atomic<uint64_t> mulPlace[kPlaces];
  std::atomic<uint16_t> muTrace[kTrace];
};

// The record of this process; null when none is named. Mapped once.
Plan* Attach();

// Begins a call into the object: the real waits of an earlier one do not count any more.
void BeginCall();

// The till's clock in milliseconds, with what it has been put forward.
double NowMs();

// Forgets which addresses belong to which image: the object has been loaded anew.
void ForgetImages();

} // namespace faults
