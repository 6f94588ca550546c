// Where a link leads, and the descriptors for it: serial devices and TCP sockets. Every descriptor is
// non-blocking, close-on-exec and above 2, even in a process that has closed its standard ones. Failures give
// -1 and the reason in oWhy, in English.
#pragma once
#include "export.h"
#include "ztypes.h"

struct termios;

namespace zat {

struct tLinkPlace {
  enum tKind : uint8_t { eSerial, eTcp };
  enum tFlow : uint8_t { eFlowNone, eFlowHard, eFlowSoft }; // no flow control, RTS/CTS, XON/XOFF
  tKind oKind = eTcp;
  tString oHost, oPort; // TCP
  tString oDevice;      // serial
  unsigned uSpeed = 115200;
  char cBits = '8';   // '7' or '8'
  char cParity = 'N'; // 'N', 'E' or 'O'
  char cStop = '1';   // '1' or '2'
  tFlow oFlow = eFlowNone;
};

// Reads "tcp:HOST:PORT" (an IPv6 address in brackets) or "serial:DEVICE[,SPEED[,8N1[,none|rtscts|xonxoff]]]".
// False for anything else, with the reason in oWhy.
ZAT_API bool LinkPlaceFromText(const tString& oText, tLinkPlace& oPlace, tString& oWhy);

// Opens the serial device with the place's settings, locked (flock) against other links. oFormer receives the
// settings that it had. A device that takes the settings only in part is refused: what it would send is not
// what was asked for.
int OpenSerial(const tLinkPlace& oPlace, termios& oFormer, tString& oWhy);

// Connects within iMsWait milliseconds, the look-up of the name not counted.
int ConnectTcp(const tLinkPlace& oPlace, tTicks iMsWait, tString& oWhy);

// Listens on the place's host and port; port "0" takes a free one.
int ListenTcp(const tLinkPlace& oPlace, tString& oWhy);

// The next connection of a listening socket, without waiting; -1 when there is none.
int AcceptTcp(int iFd);

// Waits for poll events on a descriptor, for at most iMs milliseconds whatever interrupts it. True also when
// the descriptor has failed: the read or write that follows tells how.
bool PollFd(int iFd, short iEvents, tTicks iMs);

// Milliseconds of a clock that never goes back.
tTicks NowMs();

} // namespace zat
