#include "EFTPLink.h"
#include "EFTPLinkLog.h"
#include "PortCalls.h"
#include "SLogger.h"
#include "logmask.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace zat {

namespace {

constexpr tTicks kPeriod = 1000;         // ms, until a port sets its own
constexpr size_t kLogLine = 2 * kCmdMax; // received bytes that one log line holds at most
constexpr size_t kDropMax = 1 << 20; // bytes dropped at once: somebody who never stops sending cannot hold us

bool Transient(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

tTicks Deadline(tTicks ms) {
  const tTicks now = NowMs();
  return ms > ~now ? ~tTicks{0} : now + ms;
}

tTicks Left(tTicks deadline) {
  const tTicks now = NowMs();
  return deadline > now ? deadline - now : 0;
}

bool IsStreamSocket(int fd) {
  int type = 0;
  socklen_t size = sizeof type;
  return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

} // namespace

// ---- open and closed --------------------------------------------------------------------------------------

Link::Link() = default;
Link::~Link() { Close(); }

bool Link::Open(const tLinkPlace& oPlace, tTicks iMsWait, tString& oWhy) {
  Close();
  if (oPlace.oKind == tLinkPlace::eSerial) {
    auto former = std::make_unique<termios>();
    iFd = OpenSerial(oPlace, *former, oWhy);
    if (iFd >= 0) poFormer = std::move(former);
  } else {
    iFd = ConnectTcp(oPlace, iMsWait, oWhy);
  }
  fSocket = oPlace.oKind == tLinkPlace::eTcp;
  fGone = false;
  return iFd >= 0;
}

bool Link::Adopt(int iFdNew, tString& oWhy) {
  const bool socket = IsStreamSocket(iFdNew);
  if (!socket && !isatty(iFdNew)) {
    oWhy = "neither a stream socket nor a terminal device";
    return false;
  }
  Close();
  if (!socket)
    fcntl(iFdNew, F_SETFL, fcntl(iFdNew, F_GETFL) | O_NONBLOCK); // a held-up line must not hold us up
  iFd = iFdNew;
  fSocket = socket;
  fGone = false;
  return true;
}

void Link::Close() {
  LogInput();
  DropBuffer();
  if (iFd < 0) return;
  if (poFormer) tcsetattr(iFd, TCSANOW, poFormer.get());
  poFormer.reset();
  close(iFd);
  iFd = -1;
}

bool Link::IsOpen() const { return iFd >= 0 && (!fGone || lInBeg < lInEnd); }

bool Link::WaitIn(tTicks iMs) {
  if (poWork && poWork->iPreReaded >= 0) return true;
  return lInBeg < lInEnd || Fill(Deadline(iMs));
}

// ---- bytes ------------------------------------------------------------------------------------------------

// Reads what is there, waiting for something until the deadline. False when nothing came.
bool Link::Fill(tTicks oDeadline) {
  if (iFd < 0 || fGone) return false;
  for (;;) {
    if (!PollFd(iFd, POLLIN, Left(oDeadline))) return false;
    const ssize_t count = fSocket ? recv(iFd, mbIn, sizeof mbIn, MSG_DONTWAIT) : read(iFd, mbIn, sizeof mbIn);
    if (count > 0) {
      lInBeg = 0;
      lInEnd = static_cast<size_t>(count);
      if (procLog) oLogIn.append(reinterpret_cast<char*>(mbIn), lInEnd);
      if (oLogIn.length() >= kLogLine) LogInput();
      return true;
    }
    if (count == 0 || !Transient(errno)) {
      fGone = true;
      return false;
    }
    if (Left(oDeadline) == 0) return false;
  }
}

// The next byte, the pre-read one first; -1 when none came in time.
int Link::NextByte(tTicks oDeadline) {
  if (poWork->iPreReaded >= 0) {
    const int byte = poWork->iPreReaded & 0xFF;
    poWork->iPreReaded = -1;
    return byte;
  }
  if (lInBeg == lInEnd && !Fill(oDeadline)) return -1;
  const int byte = mbIn[lInBeg++];
  if (lInBeg == lInEnd) DropBuffer();
  return byte;
}

// Card data must not outlive the message that brought them.
void Link::DropBuffer() {
  explicit_bzero(mbIn, lInEnd);
  lInBeg = lInEnd = 0;
}

tLen Link::RecvPlain(unsigned char* pb, tLen lLen, tTicks oDeadline) {
  tLen done = 0;
  while (done < lLen) {
    const int byte = NextByte(oDeadline); // the first one may be pre-read, or has to be waited for
    if (byte < 0) break;
    pb[done++] = static_cast<unsigned char>(byte);
    const tLen more = std::min<tLen>(lLen - done, lInEnd - lInBeg);
    memcpy(pb + done, mbIn + lInBeg, more);
    lInBeg += more;
    done += more;
    if (lInBeg == lInEnd) DropBuffer();
  }
  return done;
}

// Receives until the sequence has come: into pb, at most *plLen bytes, or nowhere when pb is null. *plLen
// becomes the count received (nowhere: that of the sequence). True when it was found.
bool Link::RecvUntil(unsigned char* pb, tLen* plLen, const tPortCmd& oEnd, tTicks oDeadline) {
  const tString end(reinterpret_cast<const char*>(oEnd.poByte), oEnd.oLen);
  tString last; // as many of the newest bytes as the sequence has
  tLen count = 0;
  while (last != end && (!pb || count < *plLen)) {
    const int byte = NextByte(oDeadline);
    if (byte < 0) break;
    if (pb) pb[count] = static_cast<unsigned char>(byte);
    ++count;
    if (last.length() == end.length()) last.erase(0, 1);
    last += static_cast<char>(byte);
  }
  const bool found = last == end;
  *plLen = pb ? count : found ? oEnd.oLen : 0;
  return found;
}

tLen Link::SendAll(const unsigned char* pb, tLen lLen, tTicks oDeadline) {
  tLen done = 0;
  while (iFd >= 0 && !fGone && done < lLen) {
    const ssize_t count = fSocket ? send(iFd, pb + done, lLen - done, MSG_DONTWAIT | MSG_NOSIGNAL)
                                  : write(iFd, pb + done, lLen - done);
    if (count > 0)
      done += static_cast<tLen>(count);
    else if (count == 0 || !Transient(errno) || !PollFd(iFd, POLLOUT, Left(oDeadline)))
      break; // whether the other side is gone a read will tell, after what it sent last
  }
  return done;
}

void Link::DropInput() {
  if (poWork) poWork->iPreReaded = -1;
  size_t dropped = 0;
  do {
    dropped += lInEnd - lInBeg;
    DropBuffer();
  } while (dropped < kDropMax && Fill(0));
  DropBuffer();
  LogInput();
}

// ---- log --------------------------------------------------------------------------------------------------

void Link::LogTo(procLinkLog_t procLogNew, void* pvUser) {
  WipeText(oLogIn);
  procLog = procLogNew;
  pvLogUser = pvUser;
  try {
    if (procLog) oLogIn.reserve(kLogLine + sizeof mbIn); // a text that grows leaves copies behind
  } catch (const std::bad_alloc&) { procLog = nullptr; }
}

void Link::Log(const char* pccMark, const tString& oBytes) {
  if (!procLog || oBytes.empty()) return;
  try {
    const tString line = pccMark + LinkLogBytes(oBytes, oFrameBeg, oFrameEnd);
    procLog(pvLogUser, line.data(), line.length());
  } catch (const std::bad_alloc&) {}
}

void Link::LogInput() {
  Log("<", oLogIn);
  WipeText(oLogIn);
}

void LinkLogToGSLog(void*, const char* pccLine, size_t lLen) {
  GSLog(150, "[Link] %.*s", static_cast<int>(lLen), pccLine);
}

// ---- the operations of a port -----------------------------------------------------------------------------

struct LinkCalls {
  static Link* Of(PortWork_tag* poWork) { return static_cast<Link*>(poWork->poHandle); }

  static tTicks TimePeriod(PortWork_tag* poWork, tTicks* poSet) {
    if (poSet) poWork->oTimePeriod = *poSet;
    return poWork->oTimePeriod;
  }

  static void TimeStart(PortWork_tag*, tTicks* poStart) { *poStart = NowMs(); }

  // Without the other side no byte will come, and a wait for one would only spin.
  static tBool TimeEnd(PortWork_tag* poWork, tTicks oPeriod, tTicks* poStart) {
    return NowMs() - *poStart >= oPeriod || !Of(poWork)->IsOpen();
  }

  static void ClearIn(PortWork_tag* poWork) { Of(poWork)->DropInput(); }

  static void WriteLog(PortWork_tag* poWork, const char* pccLine, tLen lLen) {
    Link* link = Of(poWork);
    link->LogInput(); // the note is about what came before it
    if (link->procLog) link->procLog(link->pvLogUser, pccLine, lLen);
  }

  static const tPortCmd* Sequence(PortCmds_tag* poCmds, int iId) {
    if (iId < 0 || iId >= ePCISEnum || !poCmds->poPC[iId].poByte || poCmds->poPC[iId].oLen == 0)
      return nullptr;
    return &poCmds->poPC[iId];
  }

  static tString Text(const tPortCmd* poCmd) {
    return poCmd ? tString(reinterpret_cast<const char*>(poCmd->poByte), poCmd->oLen) : tString();
  }

  static void LogSent(Link* link, const unsigned char* pb, tLen lLen) {
    link->LogInput();
    if (!link->procLog) return;
    try {
      WipedText sent(pb, lLen);
      link->Log(">", sent.oText);
    } catch (const std::bad_alloc&) {}
  }

  static tLen Send(PortCmds_tag* poCmds, const void* pcv, tLen lLen, int iExtra) {
    Link* link = Of(poCmds->poPortWork);
    const unsigned char* pb = static_cast<const unsigned char*>(pcv);
    const tTicks deadline = Deadline(poCmds->poPortWork->oTimePeriod);
    LogSent(link, pb, lLen);
    const tLen done = link->SendAll(pb, lLen, deadline);
    const tPortCmd* extra = Sequence(poCmds, iExtra);
    if (extra && done == lLen) {
      LogSent(link, extra->poByte, extra->oLen);
      link->SendAll(extra->poByte, extra->oLen, deadline);
    }
    return done;
  }

  static tLen Recv(PortCmds_tag* poCmds, void* pv, tLen lLen, int iEnd, int, unsigned* puFlags) {
    constexpr unsigned kFoundBit = 2;
    Link* link = Of(poCmds->poPortWork);
    const tTicks deadline = Deadline(poCmds->poPortWork->oTimePeriod);
    unsigned char* pb = static_cast<unsigned char*>(pv);
    const tPortCmd* end = Sequence(poCmds, iEnd);
    if (!end) return pb ? link->RecvPlain(pb, lLen, deadline) : 0;
    const bool found = link->RecvUntil(pb, &lLen, *end, deadline);
    if (found && puFlags) *puFlags |= kFoundBit;
    return lLen;
  }

  static tBool SetUp(PortSEtx_tag* poSelf, Link* poLink, tPortCmd* poPC) {
    poSelf->oPortWork = {};
    poSelf->oPortWork.poHandle = poLink;
    poSelf->oPortWork.oTimePeriod = kPeriod;
    poSelf->oPortWork.iPreReaded = -1;
    poSelf->oPortWork.TimePeriod = &TimePeriod;
    poSelf->oPortWork.TimeStart = &TimeStart;
    poSelf->oPortWork.TimeEnd = &TimeEnd;
    poSelf->oPortWork.ClearIn = &ClearIn;
    poSelf->oPortWork.WriteLog = &WriteLog;
    poSelf->oPortCmds = {};
    poSelf->oPortCmds.poPC = poPC;
    poSelf->oPortCmds.poPortWork = &poSelf->oPortWork;
    poSelf->oPortCmds.Send = &Send;
    poSelf->oPortCmds.Recv = &Recv;
    poLink->poWork = &poSelf->oPortWork;
    poLink->oFrameBeg = Text(Sequence(&poSelf->oPortCmds, ePCISEstx));
    poLink->oFrameEnd = Text(Sequence(&poSelf->oPortCmds, ePCISEetx));
    return true;
  }
};

bool LinkReply(PortSEtx_tag* poSelf, tPadsData* poPD) {
  PortClearIn(poSelf);
  const tLen len = poSelf->MakeCmd ? poSelf->MakeCmd(poSelf, poPD) : 0;
  const bool sent = len != 0 && poSelf->SendCmd && poSelf->SendCmd(poSelf, len);
  ClearCmd(poSelf, false);
  return sent;
}

// ---- listening --------------------------------------------------------------------------------------------

bool LinkListener::Open(const tLinkPlace& oPlace, tString& oWhy) {
  Close();
  if (oPlace.oKind == tLinkPlace::eTcp)
    iFd = ListenTcp(oPlace, oWhy);
  else
    oWhy = "only TCP can be listened on";
  return iFd >= 0;
}

bool LinkListener::Accept(Link& oLink, tTicks iMs) {
  if (iFd < 0 || !PollFd(iFd, POLLIN, iMs)) return false;
  const int fd = AcceptTcp(iFd);
  tString why;
  const bool taken = fd >= 0 && oLink.Adopt(fd, why);
  if (fd >= 0 && !taken) close(fd);
  return taken;
}

int LinkListener::Port() const {
  sockaddr_storage own = {};
  socklen_t size = sizeof own;
  if (iFd < 0 || getsockname(iFd, reinterpret_cast<sockaddr*>(&own), &size) != 0) return 0;
  // The port stands at the same place for both families.
  static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
  return ntohs(reinterpret_cast<sockaddr_in*>(&own)->sin_port);
}

void LinkListener::Close() {
  if (iFd >= 0) close(iFd);
  iFd = -1;
}

} // namespace zat

tBool EFTPLinkSetUp(PortSEtx_tag* poSelf, void* poHandle, tPortCmd* poPC) {
  return poHandle && poPC && zat::LinkCalls::SetUp(poSelf, static_cast<zat::Link*>(poHandle), poPC);
}
