// EFTP messages: the header that every message starts with, the data part by the table of layouts, and the
// operations that make the framed command port (PortSEtx.h) carry them.
//
// A message, over the pipes as over the link:
//
//   offset  size  meaning
//        0     2  work id
//        2    10  terminal id, zero-filled on the left; "??????????" when none is known
//       12     2  length of the data: two upper-case hexadecimal digits up to 254, else two bytes, high byte first
//                 (the first one stays below '0', since data never reaches 12,288 bytes: that tells the two apart)
//       14     n  data
//
// and in its frame, where the LRC is the XOR of header and data:
//
//   0x10 0x02 | header | data | 0x10 0x03 | LRC
#pragma once
#include "EFTPMisc.h"
#include "export.h"

namespace zat {
constexpr size_t kHeadId = 0, kHeadTid = 2, kHeadLen = 12, kHeadSize = 14; // offsets and size of the header
constexpr size_t kTidSize = kHeadLen - kHeadTid;
} // namespace zat

// Appends the header and the data to oMsg and returns its length. poId: terminal id, null or empty for unknown;
// an id of more than 10 characters is written in full and shifts what follows. poData: null for none. A data part
// of exactly 255 bytes goes out as the length field 0x00 0xFF without its bytes: both ends of the wire have always
// done so, and a reader waits for nothing else.
ZAT_API uint64_t EFTPMakeHeader(tString& oMsg, tEFTPWorkId oWId, const tString* poId, const tString* poData);

// The data length in the field at pbCmd (offset 12 of a message). lD: characters of the text form, 2. *poFind,
// unless null, tells whether there was a length; the binary form always is one.
ZAT_API uint64_t EFTPParsDLen(const unsigned char* pbCmd, size_t lD, char* poFind);
