// Frame receivers of the command port: a frame up to its end sequence, or by a length field, into the port's
// pbCmd, with its check field read and checked. Control sequences come from the port's GetCmd slot.
//
//   PortSElcRecvDatEasyDo   start | data | end | check
//   PortSElcRecvDatDoP      start | length field | data | check | end
//
// Bytes before the start sequence are consumed by the link and never reach pbCmd. A result of 0 means that no
// good frame came.
#pragma once
#include "PortSEtx.h"

// Ends nothing and waits for nothing: the SomeEot of a link without acknowledgements. Always true.
ZAT_API tBool PortSElcSomeEotStub(PortSEtx_tag* poSelf, char fSend);

// Reads the check field behind *plDatLen bytes in pbCmd and checks it. True when it matches and the frame is
// not empty; *plDatLen then counts the check field too. Otherwise false and *plDatLen is 0. Without a check
// field (lCmdSign 0) true, nothing read.
ZAT_API tBool PortSElcRecvSign(PortSEtx_tag* poSelf, tLen* plDatLen);

// Receives a frame that starts with oPPCIs (-1: no start sequence) and ends with oPPCI; returns its length,
// check field included.
ZAT_API tLen PortSElcRecvDatEasyDo(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tSEtxCmdId oPPCIs);

// The same without a start sequence.
ZAT_API tLen PortSElcRecvDatEasy(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI);

// Receives a frame that starts with oPPCIs, has a length field of lDatLen bytes (its first two count, high
// byte first when fHL, else low byte first; a field of one byte is that byte; 0: no field, data up to oPPCI)
// and ends with oPPCI; returns its length, check field and end sequence included. Sets the port's lCmdBeg to
// the start sequence plus the field, so that the check field covers the data alone, and lCmdEnd to the end
// sequence.
ZAT_API tLen PortSElcRecvDatDoP(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tSEtxCmdId oPPCIs, tLen lDatLen,
                                char fHL);

// The same, high byte first.
ZAT_API tLen PortSElcRecvDatDo(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tSEtxCmdId oPPCIs, tLen lDatLen);
