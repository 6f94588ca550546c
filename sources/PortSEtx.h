// The framed command port: one command at a time over a byte link, acknowledged by its receiver.
//
//   start sequence | data | end sequence | check field        -->
//                                                  ACK or NAK <--
//   start sequence | data | end sequence | check field        <--
//                                                  ACK or NAK -->
//
// A side that gives up after its attempts sends EOT. The port is one structure of replaceable operations:
// PortSEtxInit fills it with the generic ones below, a more specific set-up puts its own into some slots, and
// the byte link underneath is filled in by a function that the caller hands in (procSELS_t).
//
// Client: WorkCmd sends a command and sees its reply; each further reply of the same exchange is one WorkAck.
// Answering side: RecvCmd(port, ePCISEetx, port->ParsCmdOnly, work) takes a command; MakeCmd, SendCmd and
// ClearCmd(port, false) answer it.
//
// No operation may be handed a null port. A slot that is null stands for "made nothing", false, no bytes.
#pragma once
#include "export.h"
#include "ztypes.h"

struct PortSEtx_tag;
struct PortWork_tag;
struct PortCmds_tag;

// One control sequence. A zero byte stands behind its last byte, because a command builder takes the start
// and end sequences as zero-terminated texts.
struct tPortCmd {
  tLen oLen; // bytes, the zero byte not counted
  const unsigned char* poByte;
};

// Index of a control sequence in a command table of ten.
enum tSEtxCmdId : int {
  ePCISEack = 2,
  ePCISEnack = 4,
  ePCISEstx = 5,
  ePCISEetx = 6,
  ePCISEeot = 7,
  ePCISEsi = 8,
  ePCISEso = 9,
  ePCISEnum = 10
};

// The same index as the link below knows it.
enum tPortCmdId : int {
  ePCInone = -1,
  ePCIoe = 0,
  ePCIie = 1,
  ePCIack = 2,
  ePCIidle = 3,
  ePCIber = 4,
  ePCInum = 5
};

typedef uint32_t tSEtxInt;

// Command tables: single bytes with STX and ETX, and the EFTP framing with DLE STX and DLE ETX.
extern ZAT_API tPortCmd moSEtxCmdDefs[ePCISEnum];
extern ZAT_API tPortCmd moEFTPCmdDefs[ePCISEnum];

// ---- the byte link: enumerations and operations of the layer below ----------------------------------------

enum tFlowDetect : int {
  eFDoff = 0,
  eFDhard = 1,
  eFDsoft = 2,
  eFDpresent = 3,
  eFDwrite = 4,
  eFDread = 8,
  eFDberr = 16
};
enum tFlowStatus : int { eFSis = 0, eFSnews = 5, eFSwait = 22, eFScont = 24 };
enum tFlowError : int {
  eFEnone = 0,
  eFEdcd = 1,
  eFEcts = 2,
  eFEbrk = 4,
  eFEfrm = 8,
  eFEovr = 16,
  eFEprt = 32,
  eFEerr = 60,
  eFEpnd = 64,
  eFErng = 128,
  eFEflwR = 256,
  eFEflwW = 512,
  eFEinp = 1024
};
enum tProcSts : int { ePSDone = 0, ePSInit = 1, ePSSet = 2, ePSDisp = 4, ePSErse = 8 };
enum tPromptResult : int { ePRnone = 0, ePRis = 1, ePRecho = 2 };

struct tFlowBlock {
  tFlowStatus oFS;
  tFlowDetect oFD;
};

typedef void (*procLinkFree_t)(); // a slot that the port never calls: the link may use it as it likes

struct ProcDispPack_tag {
  procLinkFree_t procDisp;
  void* pvOther;
  tProcSts oPD;
};

// Time, input and log of the byte link. The tick is the link's own unit.
struct PortWork_tag {
  void* poHandle;
  void* poHLog;
  procLinkFree_t Write, WriteW, WriteWP, Read, ReadW, ReadWP, WaitRW, WaitRWPrompt;
  void (*TimeStart)(PortWork_tag*, tTicks* poStart); // *poStart becomes the present moment
  tBool (*TimeEnd)(PortWork_tag*, tTicks oPeriod,
                   tTicks* poStart); // true when the period since *poStart is over
  tTicks oTimePeriod;
  tTicks (*TimePeriod)(PortWork_tag*, tTicks* poSet); // sets the period unless null; returns the current one
  tBool oTimeOut;
  procLinkFree_t TimeOut;
  void (*ClearIn)(PortWork_tag*); // drops what has arrived and was not read
  procLinkFree_t ClearOut;
  void (*WriteLog)(PortWork_tag*, const char* pccLine, tLen lLen); // one line for the link's log
  procLinkFree_t GetDataTime, Escape, Reset, FlowError;
  tFlowBlock oFBRead, oFBWrite;
  procLinkFree_t FlowDetect;
  ProcDispPack_tag oPDP;
  procLinkFree_t ProcDispCnt, Process;
  int iPreReaded; // a byte read too early, with which the next read starts; a link uses -1 for none
};

// Sending and receiving on the byte link.
struct PortCmds_tag {
  tPortCmd* poPC; // the command table, ePCISEnum entries
  PortWork_tag* poPortWork;
  // Sends the bytes, then the control sequence iExtra unless it is -1; returns how many bytes of pcv went
  // out.
  tLen (*Send)(PortCmds_tag*, const void* pcv, tLen lLen, int iExtra);
  procLinkFree_t SendStd, SendRecv, SendRecvStd, SendRecvAck, SendRecvAckStd, SendCmdStd, SendCmdAckStd;
  // Receives up to lLen bytes within the time period, or up to and with the control sequence iEnd unless it
  // is -1; returns the count received, and sets bit 1 of *puFlags (unless null) when the sequence was found.
  // With no buffer and no length it waits for the sequence and discards what precedes it.
  tLen (*Recv)(PortCmds_tag*, void* pv, tLen lLen, int iEnd, int iReserved, unsigned* puFlags);
  procLinkFree_t RecvStd, RecvMore, RecvMoreStd, GetNumberDec, ItConsist;
};

// ---- the port ---------------------------------------------------------------------------------------------

// Link set-up: fills poSelf->oPortWork and poSelf->oPortCmds for the handle; false fails the port's set-up.
// It may also point pbCmd and pbCmdSave at larger buffers and raise lCmdMax.
typedef tBool (*procSELS_t)(PortSEtx_tag* poSelf, void* poHandle, tPortCmd* poPC);
// Judges a received frame of lLen bytes in pbCmd: true answers ACK, false NAK.
typedef tBool (*procPCO_t)(PortSEtx_tag* poSelf, void* poSEWCD, tLen lLen);

namespace zat {
constexpr tLen kCmdMax = 2048; // what a frame may occupy (lCmdMax at start)
// A builder's room check leaves the message header out, so a command may exceed kCmdMax by the header's 14
// bytes; 2 more keep the buffers aligned.
constexpr tLen kCmdSlack = 16;
} // namespace zat

struct PortSEtx_tag {
  unsigned char mbCmd[zat::kCmdMax + zat::kCmdSlack];     // the command being made, sent or received
  unsigned char mbCmdSave[zat::kCmdMax + zat::kCmdSlack]; // the command sent, while its reply is awaited
  unsigned char* pbCmd;                                   // mbCmd, unless the link set-up has larger ones
  unsigned char* pbCmdSave;
  tLen lCmdMax;  // bytes at pbCmd that frames may use
  tLen lCmdSign; // bytes of the check field; 0: none
  tLen lCmdBeg;  // bytes of the start sequence; 0: none
  tLen lCmdEnd;  // bytes of the end sequence; 0: none
  tPortCmdId oPCISEAdd;
  tSEtxInt oType;
  tSEtxInt oMaxSend; // attempts per command
  tSEtxInt oMaxRecv; // attempts per reply
  tBool fUseAK;      // ACK and NAK are exchanged
  tBool fEnqSended;
  tBool fDirtyAK; // other bytes may precede an ACK or NAK: read on until one comes or the time period is over
  PortWork_tag oPortWork;
  PortCmds_tag oPortCmds;
  const unsigned char* (*GetCmd)(PortSEtx_tag*, tSEtxCmdId, tLen*);
  tBool (*SecureDat)(PortSEtx_tag*, unsigned char* pbCmd, tLen* plLen, tLen lMax, tBool fSet, tLen lOfs);
  tBool (*WorkCmd)(PortSEtx_tag*, void* poSEWCD);
  tLen (*MakeCmd)(PortSEtx_tag*, void* poSEWCD); // builds a command in pbCmd; its length, 0: none made
  tBool (*SendCmd)(PortSEtx_tag*, tLen);
  tBool (*SendDat)(PortSEtx_tag*, tLen);
  tBool (*WorkAck)(PortSEtx_tag*, void* poSEWCD);
  tLen (*RecvCmd)(PortSEtx_tag*, tSEtxCmdId, procPCO_t, void* poSEWCD);
  tLen (*RecvDat)(PortSEtx_tag*, tSEtxCmdId);
  // Parses the frame of lLen bytes in pbCmd; the end sequence of the awaited reply goes to *poPPCI unless
  // null.
  tBool (*ParsCmd)(PortSEtx_tag*, void* poSEWCD, tLen lLen, tSEtxCmdId* poPPCI);
  tBool (*ParsCmdOnly)(PortSEtx_tag*, void* poSEWCD, tLen);
  tBool (*SomeEot)(PortSEtx_tag*, tBool fSend);
  void (*Done)(PortSEtx_tag*);
  void* pvExtra; // free for the user
};

// Sets a port up with the generic operations: frames of STX, data, ETX and one XOR byte, ACK and NAK used,
// three attempts, a time period of 1,000 ticks. poPC null means moSEtxCmdDefs. False for a null port or
// procSELS, when procSELS fails, or when it claims more room than mbCmd has without buffers of its own. The
// caller provides a zeroed structure: what procSELS does not fill stays as it was.
ZAT_API tBool PortSEtxInit(PortSEtx_tag* poSelf, void* poHandle, tPortCmd* poPC, procSELS_t procSELS);

// The bytes of a control sequence; its length goes to *plLen unless null. An index outside 0 to 9 gives null
// and leaves *plLen alone.
ZAT_API const unsigned char* GetCmd(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, tLen* plLen);

// The check field: XOR of the bytes from lOfs on. fSet: writes it behind *plLen bytes, which grow by
// lCmdSign; false when there is nothing to check or no room in lCmdMax. Not fSet: takes it off *plLen, which
// stays reduced even when the field does not match (false). With lCmdSign 0 always true. lMax is not looked
// at.
ZAT_API tBool SecureDat(PortSEtx_tag* poSelf, unsigned char* pbCmd, tLen* plLen, tLen lMax, tBool fSet,
                        tLen lOfs);

// Makes a command (MakeCmd), sends it and sees its reply. During the wait the command stands in pbCmdSave;
// afterwards both buffers are zero, whatever the result, so that no card data stays in the port.
ZAT_API tBool WorkCmd(PortSEtx_tag* poSelf, void* poSEWCD);

// Sends the command of lLen bytes in pbCmd until it is acknowledged; after oMaxSend attempts SomeEot and
// false.
ZAT_API tBool SendCmd(PortSEtx_tag* poSelf, tLen lLen);

// Adds the check field to the lLen bytes in pbCmd and sends them once; true when something went out.
ZAT_API tBool SendDat(PortSEtx_tag* poSelf, tLen lLen);

// Receives the reply to the command just sent and hands it to ParsCmd; true when it was taken.
ZAT_API tBool WorkAck(PortSEtx_tag* poSelf, void* poSEWCD);

// Receives a frame that ends with oPPCI, has procPCO judge it (null: every frame is good) and answers ACK or
// NAK; returns its length, or 0 after oMaxRecv attempts or when the answer could not be sent (SomeEot then).
ZAT_API tLen RecvCmd(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI, procPCO_t procPCO, void* poSEWCD);

// Receives one frame up to oPPCI, with the start sequence that belongs to it (STX for ETX, SI for SO, none
// for others); returns its length with the check field, or 0.
ZAT_API tLen RecvDat(PortSEtx_tag* poSelf, tSEtxCmdId oPPCI);

// ParsCmd without the question for an end sequence: the judge that WorkAck gives to RecvCmd.
ZAT_API tBool ParsCmdOnly(PortSEtx_tag* poSelf, void* poSEWCD, tLen lLen);

// fSend: sends EOT, drops the link's input, true. Not fSend: true when exactly one byte comes and it is EOT.
ZAT_API tBool SomeEot(PortSEtx_tag* poSelf, tBool fSend);

// Ends the port: everything is zero afterwards, slots included.
ZAT_API void Done(PortSEtx_tag* poSelf);

// Zeroes pbCmd, after copying it to pbCmdSave when fSave; without fSave pbCmdSave is zeroed too.
ZAT_API void ClearCmd(PortSEtx_tag* poSelf, tBool fSave);

// Where ParsCmdCpy puts a copy.
struct tParsCmdCpy {
  void* pvDst;   // may be null: nothing is copied, the counts are still set
  tLen lCap;     // bytes at pvDst
  tLen lOffered; // out: bytes that there were
  tLen lCopied;  // out: the smaller of lOffered and lCap
};

// Copies lSLen bytes, as many as fit; a null source copies nothing.
ZAT_API void ParsCmdCpy(tParsCmdCpy* poDes, const void* pvcSrc, tLen lSLen);
