// The byte link of a framed command port (PortSEtx.h) over a descriptor: a serial line or a TCP connection.
// Ticks are milliseconds here. One thread at a time uses a link. A link whose port is gone can only be closed
// or set up anew. Opening may throw std::bad_alloc; nothing else here throws.
//
// Client:
//
//   zat::tLinkPlace place; tString why;
//   zat::Link link;
//   PortSEtx_tag port{};
//   if (zat::LinkPlaceFromText("tcp:10.0.0.7:9001", place, why) && link.Open(place, 5000, why) &&
//       EFTPWorkInit(&port, &link, nullptr, &EFTPLinkSetUp, true)) {
//     SqueezeT request, reply;                               // request holds "TM.TID", "TR.AMT", ...
//     tPadsData pads{&request, &reply, eEFTPwidSale, nullptr};
//     bool good = port.WorkCmd(&port, &pads);                // the command out, its first reply in
//     while (good && pads.oPWI != eEFTPwidEndOk && pads.oPWI != eEFTPwidEndBad)
//       good = link.WaitIn(60000) && port.WorkAck(&port, &pads); // the further replies of the exchange
//   }
//
// Answering side, on a serial line with Open, over TCP with a LinkListener:
//
//   if (listener.Accept(link, 1000) && EFTPWorkInit(&port, &link, nullptr, &EFTPLinkSetUp, true))
//     while (link.IsOpen())
//       if (link.WaitIn(1000) && port.RecvCmd(&port, ePCISEetx, port.ParsCmdOnly, &pads)) {
//         tPadsData answer{&parameters, nullptr, eEFTPwidRfok, nullptr};
//         zat::LinkReply(&port, &answer);
//       }
//
// WaitIn before a receive keeps the port from answering mere silence with NAK and, after its attempts, EOT: a
// card holder may take longer than the port's time period.
#pragma once
#include <memory>

#include "EFTPPlace.h"
#include "EFTPWork.h"

struct termios;

namespace zat {

// Receives the lines of a link's log, without line ends:
//   > 10 02 31 30 ...   sent, in hexadecimal
//   < 06                received
//   [LRC]{cmp}3A|3A     notes of the port
// Digits of card numbers and tracks are replaced by "**" but for the last four of the card number.
typedef void (*procLinkLog_t)(void* pvUser, const char* pccLine, size_t lLen);

// A log that goes to the global logger as detail lines (level 150, "[Link] ..."); pvUser is not used.
ZAT_API void LinkLogToGSLog(void* pvUser, const char* pccLine, size_t lLen);

class ZAT_API Link {
public:
  Link();
  ~Link();                    // closes
  Link(const Link&) = delete; // two owners would close each other's descriptor
  Link& operator=(const Link&) = delete;

  // Opens the device, or connects within iMsWait milliseconds (name look-up not counted). What was open is
  // closed first. False with the reason in oWhy; a serial device that does not take the settings is a
  // failure.
  bool Open(const tLinkPlace& oPlace, tTicks iMsWait, tString& oWhy);

  // Takes over a connected stream socket, or a terminal device with the settings that it has (it becomes
  // non-blocking); the link closes it. False with the reason in oWhy, the descriptor untouched, for anything
  // else: writing into a pipe could raise SIGPIPE.
  bool Adopt(int iFd, tString& oWhy);

  // Gives a serial line its former settings back, closes, drops what was not read. A closed link is silent.
  void Close();

  // False when closed, and once the other side is gone and everything it sent was read.
  bool IsOpen() const;

  // Waits until a byte can be read, for at most iMs milliseconds; false also, at once, when the other side is
  // gone.
  bool WaitIn(tTicks iMs);

  // Sends the log somewhere; null ends it. Card data never reach it in clear. What there is no memory for is
  // left out of it.
  void LogTo(procLinkLog_t procLog, void* pvUser);

  // The descriptor, for waiting on several at once; -1 when closed. Bytes already taken in do not show there:
  // ask WaitIn(0) first.
  int Fd() const { return iFd; }

private:
  friend struct LinkCalls; // the operations that EFTPLinkSetUp puts into a port

  bool Fill(tTicks oDeadline);
  int NextByte(tTicks oDeadline);
  tLen RecvPlain(unsigned char* pb, tLen lLen, tTicks oDeadline);
  bool RecvUntil(unsigned char* pb, tLen* plLen, const tPortCmd& oEnd, tTicks oDeadline);
  tLen SendAll(const unsigned char* pb, tLen lLen, tTicks oDeadline);
  void DropInput();  // what has arrived and what is on its way
  void DropBuffer(); // what has arrived
  void LogInput();
  void Log(const char* pccMark, const tString& oBytes);

  int iFd = -1;
  bool fSocket = false;
  bool fGone = false;                // the other side has closed, or the line has failed
  std::unique_ptr<termios> poFormer; // settings that a serial line gets back
  PortWork_tag* poWork = nullptr;    // of the port set up last: period and pre-read byte
  tString oFrameBeg, oFrameEnd;      // that port's framing, by which the log finds messages
  size_t lInBeg = 0, lInEnd = 0;
  unsigned char mbIn[4096]; // read from the descriptor ahead of what the port asked for
  procLinkLog_t procLog = nullptr;
  void* pvLogUser = nullptr;
  tString oLogIn; // received and not yet logged: card data can only be found in a whole message
};

// Waits for TCP connections on the answering side.
class ZAT_API LinkListener {
public:
  LinkListener() = default;
  ~LinkListener() { Close(); }
  LinkListener(const LinkListener&) = delete;
  LinkListener& operator=(const LinkListener&) = delete;

  // Listens on the place's host and port; port "0" takes a free one. False with the reason in oWhy.
  bool Open(const tLinkPlace& oPlace, tString& oWhy);

  // The next connection within iMs milliseconds, into oLink (closed first); false when none came.
  bool Accept(Link& oLink, tTicks iMs);

  int Port() const; // the port listened on; 0 when closed
  int Fd() const { return iFd; }
  void Close();

private:
  int iFd = -1;
};

// Sends one message of an answering side: drops stale input (NAKs that the other side sent while it waited
// would count against the answer), makes the command of poPD, sends it until acknowledged and clears the
// buffers.
ZAT_API bool LinkReply(PortSEtx_tag* poSelf, tPadsData* poPD);

} // namespace zat

// procSELS over a zat::Link, which poHandle points to. False without a handle or a command table. A link
// serves one port at a time: the last one set up.
ZAT_API tBool EFTPLinkSetUp(PortSEtx_tag* poSelf, void* poHandle, tPortCmd* poPC);
