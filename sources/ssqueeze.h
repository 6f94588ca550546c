// Identifiers of stored values, and the number formatting that the parameter codec shares.
//
// A store hands out places inside one moving buffer. It does so as SSqueeze: the place, stamped with the
// number of the write after which it was taken. A later write changes the store's number, and an identifier
// with another number is stale: it gives null instead of a pointer into memory that has moved.
#pragma once
#include "export.h"
#include "initorder.h"
#include "ztypes.h"
#include <cstddef>
#include <cstdint>

// What a node of a store holds, and what a look-up can answer instead. The negative values are answers only.
enum tDataType : int {
  eDTnull = -3,   // no node: nothing found, or a stale identifier
  eDTwrong = -2,  // the value has another type than was asked for
  eDTnone = -1,   // a node without a readable blob
  eDTnode = 0,    // an inner node: a tag without value
  eDTpdata = 1,   // bytes
  eDTshort = 2,   // a short integer
  eDTlong = 8,    // a 64-bit signed integer, 8 bytes in the machine's order
  eDTpempel = 16, // a typed node whose value is empty
};

struct ZAT_API SSqueeze {
  void* pvSome;        // the node; null when there is none
  uint64_t* pulGlobal; // where the issuing store counts its writes; null in a null identifier
  uint64_t ulLocal;    // that count when the identifier was issued

  // How a number is written, a set of bits. Decimal wins over hexadecimal, left over right.
  enum tFmt : int {
    eFnone = 0,
    eFdec = 1,
    eFajl = 2, // the fill follows the digits
    eFajr = 4, // the fill goes before everything, a minus sign included
    eFhex = 8,
    eFdecajl = eFdec | eFajl,
    eFdecajr = eFdec | eFajr,
    eFhexajl = eFhex | eFajl,
    eFhexajr = eFhex | eFajr,
  };

  // The null identifier.
  SSqueeze() : pvSome(nullptr), pulGlobal(nullptr), ulLocal(0) {}

  // Starts a new generation: every identifier issued through this one before is stale from now on. Only the
  // store's own identifier (ulLocal 0) does this; on an issued one the call has no effect. An identifier
  // without a counter adopts pulCounter, which it sets to 0 first and which must outlive every identifier
  // issued from it.
  void ss_next(uint64_t* pulCounter = nullptr);

  // An identifier of pvNode in the current generation of this store. Null nodes may be issued too.
  SSqueeze ss_put(void* pvNode) const {
    SSqueeze issued;
    issued.pvSome = pvNode;
    issued.pulGlobal = pulGlobal;
    issued.ulLocal = pulGlobal ? *pulGlobal : 0;
    return issued;
  }

  // The node, or null when the identifier is stale or null.
  void* ss_get() const { return pulGlobal && ulLocal == *pulGlobal ? pvSome : nullptr; }

  // The generation that follows ulPrevious: its low 32 bits count on, the high 32 bits are those of the
  // process clock (PClock), so that generations of different runs differ.
  static uint64_t ss_make(uint64_t ulPrevious);

  // Writes lValue into oOut, always as in the classic locale, and returns the length of the text. Neither
  // eFdec nor eFhex means decimal. Hexadecimal digits are upper-case, a negative number shows its two's
  // complement. A text shorter than iWidth is filled with cFill, before the digits unless eFajl is set. A
  // width that cannot be had (no memory) leaves oOut empty and gives 0.
  static size_t fmtLongToString(long lValue, tString& oOut, size_t iWidth, tFmt oFmt, char cFill);

  // Reads the whole of oText as one number into lOut and returns the number of characters. An optional sign,
  // then digits; in hexadecimal a 0x prefix may stand before them, and with neither eFdec nor eFhex the
  // prefix decides (0x hexadecimal, a leading 0 octal). Anything else, blanks included, and a number beyond
  // 64 bits signed give the result 0 with lOut 0.
  static size_t fmtGetLong(const tString& oText, long& lOut, tFmt oFmt);
};

// The null identifier that everybody shares. Nothing ever writes to it.
ZAT_API extern SSqueeze SQNull;

namespace zat {

// The write counters of the stores. They stand apart from the stores, because an identifier may be asked
// after its store is gone: it must find a counter there, with a number that no longer fits. A counter that is
// given back serves another store, going on from where it was, so that its old identifiers stay stale; so the
// pool is never larger than the largest number of stores alive at once. Any thread may call these.

// A counter that no other store has; null when there is no memory for one.
ZAT_API uint64_t* CounterTake();

// Ends the use of a counter, making everything issued under it stale. Null is allowed.
ZAT_API void CounterGive(uint64_t* pulCounter);

} // namespace zat
