#include "EFTPPlace.h"
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace zat {

namespace {

// ---- the text of a place ----

bool TcpFromText(const tString& text, tLinkPlace& place, tString& why) {
  const size_t colon = text.rfind(':');
  if (colon == tString::npos || colon + 1 == text.length()) {
    why = "'" + text + "': a host and a port are wanted, host:port";
    return false;
  }
  place.oKind = tLinkPlace::eTcp;
  place.oHost = text.substr(0, colon);
  place.oPort = text.substr(colon + 1);
  if (place.oHost.length() >= 2 && place.oHost.front() == '[' && place.oHost.back() == ']')
    place.oHost = place.oHost.substr(1, place.oHost.length() - 2);
  return true;
}

bool FrameFromText(const tString& text, tLinkPlace& place) {
  if (text.length() != 3 || !strchr("78", text[0]) || !strchr("NEO", text[1]) || !strchr("12", text[2]))
    return false;
  place.cBits = text[0];
  place.cParity = text[1];
  place.cStop = text[2];
  return true;
}

bool FlowFromText(const tString& text, tLinkPlace& place) {
  static constexpr struct {
    const char* pccWord;
    tLinkPlace::tFlow oFlow;
  } kWords[] = {
      {"none", tLinkPlace::eFlowNone}, {"rtscts", tLinkPlace::eFlowHard}, {"xonxoff", tLinkPlace::eFlowSoft}};
  for (const auto& row : kWords)
    if (text == row.pccWord) {
      place.oFlow = row.oFlow;
      return true;
    }
  return false;
}

constexpr struct {
  unsigned uSpeed;
  speed_t oCode;
} kSpeeds[] = {{1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},     {19200, B19200},
               {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400}, {460800, B460800}};

speed_t SpeedCode(unsigned speed) {
  for (const auto& row : kSpeeds)
    if (row.uSpeed == speed) return row.oCode;
  return B0;
}

bool SpeedFromText(const tString& text, tLinkPlace& place) {
  const char* end = text.data() + text.length();
  unsigned speed = 0;
  const auto read = std::from_chars(text.data(), end, speed);
  if (read.ec != std::errc() || read.ptr != end || SpeedCode(speed) == B0) return false;
  place.uSpeed = speed;
  return true;
}

bool SerialFromText(const tString& text, tLinkPlace& place, tString& why) {
  static constexpr struct {
    bool (*procRead)(const tString&, tLinkPlace&);
    const char* pccWant;
  } kParts[] = {{SpeedFromText, "a speed such as 9600 or 115200"},
                {FrameFromText, "data bits, parity and stop bits such as 8N1"},
                {FlowFromText, "none, rtscts or xonxoff"}};
  size_t comma = text.find(',');
  place.oKind = tLinkPlace::eSerial;
  place.oDevice = text.substr(0, comma);
  for (const auto& part : kParts) {
    if (comma == tString::npos) break;
    const size_t next = text.find(',', comma + 1);
    const tString word = text.substr(comma + 1, next == tString::npos ? next : next - comma - 1);
    if (!part.procRead(word, place)) {
      why = "'" + word + "': " + part.pccWant + " is wanted";
      return false;
    }
    comma = next;
  }
  if (place.oDevice.empty() || comma != tString::npos) {
    why = "'" + text + "': a device, speed, 8N1 and flow control are wanted, separated by commas";
    return false;
  }
  return true;
}

// ---- descriptors ----

// Fails with what was tried and the system's reason; closes the descriptor unless it is -1.
int Fail(int fd, tString& why, const tString& what, int error = errno) {
  char text[128];
  why = what + ": " + strerror_r(error, text, sizeof text);
  if (fd >= 0) close(fd);
  return -1;
}

// Moves a descriptor off the standard ones: a host that has closed those may open them again for itself.
int AboveStandard(int fd) {
  if (fd < 0 || fd > 2) return fd;
  const int higher = fcntl(fd, F_DUPFD_CLOEXEC, 3);
  close(fd);
  return higher;
}

void Settings(const tLinkPlace& place, termios& line) {
  cfmakeraw(&line);
  line.c_iflag &= ~static_cast<tcflag_t>(IXOFF | IXANY);
  line.c_iflag |= IGNBRK;
  if (place.oFlow == tLinkPlace::eFlowSoft) line.c_iflag |= IXON | IXOFF;
  if (place.cParity != 'N') line.c_iflag |= INPCK; // a damaged byte arrives as 0, and the LRC tells
  line.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
  line.c_cflag |= CREAD | CLOCAL | (place.cBits == '7' ? CS7 : CS8);
  if (place.cParity != 'N') line.c_cflag |= PARENB;
  if (place.cParity == 'O') line.c_cflag |= PARODD;
  if (place.cStop == '2') line.c_cflag |= CSTOPB;
  if (place.oFlow == tLinkPlace::eFlowHard) line.c_cflag |= CRTSCTS;
  line.c_cc[VMIN] = 1; // a read without bytes then fails with EAGAIN, and 0 means that the line has hung up
  line.c_cc[VTIME] = 0;
  cfsetispeed(&line, SpeedCode(place.uSpeed));
  cfsetospeed(&line, SpeedCode(place.uSpeed));
}

// True when the device now has the settings: tcsetattr succeeds when it could make any one of the changes.
bool Taken(int fd, const termios& wanted) {
  constexpr tcflag_t kFrame = CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS;
  termios now;
  return tcgetattr(fd, &now) == 0 && (now.c_cflag & kFrame) == (wanted.c_cflag & kFrame) &&
         now.c_iflag == wanted.c_iflag && cfgetospeed(&now) == cfgetospeed(&wanted);
}

struct FreeInfo {
  void operator()(addrinfo* po) const { freeaddrinfo(po); }
};
typedef std::unique_ptr<addrinfo, FreeInfo> tAddresses;

tAddresses LookUp(const tLinkPlace& place, bool passive, tString& why) {
  addrinfo hints = {}, *found = nullptr;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = passive ? AI_PASSIVE : 0;
  const int error =
      getaddrinfo(place.oHost.empty() ? nullptr : place.oHost.c_str(), place.oPort.c_str(), &hints, &found);
  if (error != 0) why = "cannot find " + place.oHost + ":" + place.oPort + ": " + gai_strerror(error);
  return tAddresses(error == 0 ? found : nullptr);
}

int StreamSocket(const addrinfo& address) {
  return AboveStandard(
      socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol));
}

// Small frames are answered one by one: nothing is gained by collecting them, and each would wait for the
// other.
void SendAtOnce(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
}

// One address: 0 or the error.
int ConnectOne(int fd, const addrinfo& address, tTicks msWait) {
  if (connect(fd, address.ai_addr, address.ai_addrlen) == 0) return 0;
  if (errno != EINPROGRESS && errno != EINTR) return errno;
  if (!PollFd(fd, POLLOUT, msWait)) return ETIMEDOUT;
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

} // namespace

bool LinkPlaceFromText(const tString& oText, tLinkPlace& oPlace, tString& oWhy) {
  oPlace = tLinkPlace();
  if (oText.starts_with("tcp:")) return TcpFromText(oText.substr(4), oPlace, oWhy);
  if (oText.starts_with("serial:")) return SerialFromText(oText.substr(7), oPlace, oWhy);
  oWhy = "'" + oText + "': tcp:HOST:PORT or serial:DEVICE is wanted";
  return false;
}

int OpenSerial(const tLinkPlace& oPlace, termios& oFormer, tString& oWhy) {
  const tString what = "cannot open " + oPlace.oDevice;
  const int fd = AboveStandard(open(oPlace.oDevice.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (fd < 0) return Fail(fd, oWhy, what);
  if (tcgetattr(fd, &oFormer) != 0) return Fail(fd, oWhy, what + " as a serial line");
  // Not TIOCEXCL: on a pseudo-terminal that outlives a killed process, and the line would stay closed to
  // others.
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) return Fail(fd, oWhy, what + " for this process alone");
  termios line = oFormer;
  Settings(oPlace, line);
  if (tcsetattr(fd, TCSANOW, &line) != 0) return Fail(fd, oWhy, what + " with these settings");
  if (!Taken(fd, line)) return Fail(fd, oWhy, what + " with these settings", ENOTSUP);
  tcflush(fd, TCIFLUSH); // what arrived before belongs to nobody
  return fd;
}

int ConnectTcp(const tLinkPlace& oPlace, tTicks iMsWait, tString& oWhy) {
  const tTicks begin = NowMs();
  tAddresses found = LookUp(oPlace, false, oWhy);
  int error = 0;
  for (const addrinfo* one = found.get(); one; one = one->ai_next) {
    const int fd = StreamSocket(*one);
    const tTicks used = NowMs() - begin;
    error = fd < 0 ? errno : ConnectOne(fd, *one, iMsWait > used ? iMsWait - used : 0);
    if (error == 0) {
      SendAtOnce(fd);
      return fd;
    }
    if (fd >= 0) close(fd);
  }
  return error != 0 ? Fail(-1, oWhy, "cannot connect to " + oPlace.oHost + ":" + oPlace.oPort, error) : -1;
}

int ListenTcp(const tLinkPlace& oPlace, tString& oWhy) {
  tAddresses found = LookUp(oPlace, true, oWhy);
  if (!found) return -1;
  const tString what = "cannot listen on " + oPlace.oHost + ":" + oPlace.oPort;
  const int fd = StreamSocket(*found);
  const int on = 1;
  if (fd < 0) return Fail(fd, oWhy, what);
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(fd, found->ai_addr, found->ai_addrlen) != 0 || listen(fd, 8) != 0) return Fail(fd, oWhy, what);
  return fd;
}

int AcceptTcp(int iFd) {
  const int fd = AboveStandard(accept4(iFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (fd >= 0) SendAtOnce(fd);
  return fd;
}

tTicks NowMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<tTicks>(now.tv_sec) * 1000 + static_cast<tTicks>(now.tv_nsec) / 1000000;
}

bool PollFd(int iFd, short iEvents, tTicks iMs) {
  constexpr tTicks kLongest = 1000000; // what one poll is given at most, well inside an int
  const tTicks begin = NowMs();
  for (;;) {
    const tTicks used = NowMs() - begin;
    const tTicks left = iMs > used ? iMs - used : 0;
    pollfd one = {iFd, iEvents, 0};
    const int ready = poll(&one, 1, static_cast<int>(std::min(left, kLongest)));
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    if (left == 0) return false;
  }
}

} // namespace zat
