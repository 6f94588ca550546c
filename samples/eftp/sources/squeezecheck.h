// Looks at the buffer of a parameter store from outside: a checker for the invariants of squeezenode.h and a
// dump for people. Both take any bytes at all and read only those they are given.
#pragma once
#include "export.h"
#include "ztypes.h"
#include <cassert>
#include <cstdint>

namespace zat {

// How much is checked.
enum tSqueezeCheck : int {
  eSCroom = 0, // invariants 1 to 4 and 7: the room. They hold even while a caller holds nodes detached.
  eSCtree = 1, // and 5 and 6: the links
  eSCtags = 2, // and 8: what the blobs hold
};

struct tSqueezeFault {
  int iInvariant;      // its number in squeezenode.h
  uint64_t nOffset;    // where in the buffer
  const char* pccWhat; // what is wrong there, in English
};

// Whether a buffer of nSize bytes is a sound store; if not, *poFault (may be null) receives the first thing
// that is wrong. A null buffer, that of a store without memory, counts as sound, and so does one
// that there is no memory to look at: the check runs within the operations of a debug build, which do not throw.
ZAT_API bool SqueezeCheck(const void* pvBuffer, uint64_t nSize, tSqueezeCheck oHow,
                          tSqueezeFault* poFault = nullptr);

// The tree, one node a line, children indented under their parent: tag, number, type and value. Card data are
// masked as the dictionary of tags wants it. Starts with a summary and, when the store is damaged, with the
// fault; then what can be read is shown.
ZAT_API tString SqueezeDump(const void* pvBuffer, uint64_t nSize);

#ifdef NDEBUG

class SqueezeGuard {
public:
  template<class S> SqueezeGuard(const S&, tSqueezeCheck) {}
  static inline bool fEnabled = false;
};

#else

// In debug builds each operation that changes a store has one of these: a store that was sound before must be
// sound afterwards. A store that was damaged before is the business of whoever damaged it. Operations inside
// an operation are not looked at, because a tree in the middle of a change need not be sound.
class SqueezeGuard {
public:
  template<class S>
  SqueezeGuard(const S& oStore, tSqueezeCheck oHowIn)
      : pvStore(&oStore), procCheck(&Check<S>), oHow(oHowIn),
        fSound(iDepth++ == 0 && fEnabled && procCheck(pvStore, oHow)) {}
  ~SqueezeGuard() {
    --iDepth;
    assert(!fSound || procCheck(pvStore, oHow));
  }
  SqueezeGuard(const SqueezeGuard&) = delete;
  SqueezeGuard& operator=(const SqueezeGuard&) = delete;

  static inline bool fEnabled = true; // a test that checks after every step itself may switch this off

private:
  template<class S> static bool Check(const void* pvStoreIn, tSqueezeCheck oHowIn) {
    const S* po = static_cast<const S*>(pvStoreIn);
    return SqueezeCheck(po->pbBuffer, po->nBuffer, oHowIn);
  }

  static inline thread_local int iDepth = 0;
  const void* pvStore;
  bool (*procCheck)(const void*, tSqueezeCheck);
  tSqueezeCheck oHow;
  bool fSound;
};

#endif

} // namespace zat
