// EFTP messages: the header that every message starts with, the data part by the table of layouts, and the
// operations that make the framed command port (PortSEtx.h) carry them.
//
// A message, over the pipes as over the link:
//
//   offset  size  meaning
//        0     2  work id
//        2    10  terminal id, zero-filled on the left; "??????????" when none is known
//       12     2  length of the data: up to 254 two upper-case hexadecimal digits, else two bytes, the
//                 high one first, which stays below '0' (data never reach 12,288 bytes): that tells them apart
//       14     n  data
//
// and in its frame, where the LRC is the XOR of header and data:
//
//   0x10 0x02 | header | data | 0x10 0x03 | LRC
#pragma once
#include "EFTPMisc.h"
#include "PortSEtx.h"

struct UnnamedPipes;

namespace zat {
constexpr size_t kHeadId = 0, kHeadTid = 2, kHeadLen = 12, kHeadSize = 14; // offsets and size of the header
constexpr size_t kTidSize = kHeadLen - kHeadTid;
} // namespace zat

// Appends the header and the data to oMsg and returns its length (unchanged when there is no memory). poId:
// terminal id, null or empty for unknown; an id of more than 10 characters is written in full and shifts what
// follows. poData: null for none. A data part of exactly 255 bytes goes out as the length field 0x00 0xFF
// without its bytes: both ends of the wire have always done so, and a reader waits for nothing else.
ZAT_API uint64_t EFTPMakeHeader(tString& oMsg, tEFTPWorkId oWId, const tString* poId, const tString* poData);

// The data length in the field at pbCmd (offset 12 of a message). lD: characters of the text form, 2.
// *poFind, unless null, tells whether there was a length; the binary form always is one.
ZAT_API uint64_t EFTPParsDLen(const unsigned char* pbCmd, size_t lD, char* poFind);

// ---- the port's EFTP operations ---------------------------------------------------------------------------

// Where a module that serves the pipes keeps its channel and message.
struct tPadsFork {
  UnnamedPipes* poUP;
  unsigned char mbTemp[2048];
  tLen lMsg;
  tString oTId;
};

// The work description of one exchange: what MakeCmd and ParsCmd get as their untyped argument.
struct tPadsData {
  SqueezeT* poSTin;  // parameters of the message to send, "TM.TID" among them
  SqueezeT* poSTout; // receives the parameters of a parsed message
  tEFTPWorkId oPWI;  // work id to send; after a parse the one received
  tPadsFork* poPF;   // not used by the operations here
};

// Sets a port up for EFTP. poPC null means moEFTPCmdDefs. fLow: framed, acknowledged, three attempts with
// 5,000 ticks each; without it header and data alone, one attempt with 15,000 ticks. False when PortSEtxInit
// fails or when the link set-up left less than 2,048 bytes of room.
ZAT_API tBool EFTPWorkInit(PortSEtx_tag* poSelf, void* poHandle, tPortCmd* poPC, procSELS_t procSELS,
                           char fLow);

// MakeCmd: the message of a tPadsData as a frame in pbCmd, the check byte still to come. 0, with pbCmd
// untouched, without a terminal id in the store, for an id that has no message, a missing parameter, or too
// much data.
ZAT_API tLen EFTPMakeCmd(PortSEtx_tag* poSelf, void* poPPWCD);

// Appends the parameter of tag oAbis from poPD->poSTin to *poStr: oAbisL characters wide (0: as long as it
// is), written as oMode says. A longer value is not cut. A number that is stored as such needs eEFTPppMlng;
// without it its raw bytes go out. False when the parameter is missing and not optional, or cannot be read.
ZAT_API bool EFTPAddP(tPadsData* poPD, tString* poStr, const char* oAbis, size_t oAbisL, tEFTPppMode oMode);

// SecureDat: the LRC. fSet: *plLen covers start, header, data and end; the LRC goes behind them and *plLen
// grows. Not fSet: *plLen ends with the data, and the LRC received stands lCmdEnd bytes further, within lMax
// and lCmdMax; *plLen stays. The two meanings of the length are what sender and receiver have at hand.
ZAT_API tBool EFTPSecureDat(PortSEtx_tag* poSelf, unsigned char* pbCmd, tLen* plLen, tLen lMax, char fSet,
                            tLen lOfs);

// RecvDat: one EFTP frame into pbCmd; its length, 0 for none. The end sequence is part of the fixed tail, so
// oPPCI is not looked at.
ZAT_API tLen EFTPRecvDat(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI);

// SomeEot. fSend: sends EOT, true. Not fSend: true when EOT comes; another byte becomes the link's pre-read
// byte.
ZAT_API tBool EFTPmEot(PortSEtx_tag* poSelf, char fSend);

// ParsCmd: the frame of lLen bytes in pbCmd into a tPadsData, its terminal id under "TM.TID". True for a
// complete and well-formed message; otherwise poSTout holds what was read before the fault.
ZAT_API tBool EFTPParsCmd(PortSEtx_tag* poSelf, void* poPPWCD, tLen lLen, tSEtxCmdId* poPPCI);

// ---- data parts without a port ----------------------------------------------------------------------------

// The data part of poPD->oPWI from poPD->poSTin, into oData (emptied first). False for an id that has no
// message and for a missing parameter; oData then ends before it. An id without data gives true and an empty
// text.
ZAT_API bool EFTPMakeData(tPadsData* poPD, tString& oData);

// Parses the lLen bytes of a data part into *poST. oPWI: the id as it stood in the header; it becomes its
// internal variant where the data says so (last print line, break now, ...). False for an unknown id and for
// data that is not complete and well-formed.
ZAT_API bool EFTPParsData(SqueezeT* poST, tEFTPWorkId& oPWI, const unsigned char* pbData, size_t lLen);
