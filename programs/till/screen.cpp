#include "screen.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace zat::till {
namespace {

constexpr size_t kUsualWidth = 80;
constexpr char kEraseLine[] = "\r\033[K";

bool IsSmartTerminal(int fd) {
  const char* kind = getenv("TERM");
  return isatty(fd) && kind && *kind && std::string_view(kind) != "dumb";
}

size_t Columns(int fd) {
  winsize size = {};
  bool known = ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : kUsualWidth;
}

// At most so many characters of a UTF-8 text: a line that wraps could not be taken back.
tString Cut(const tString& text, size_t width) {
  size_t shown = 0, at = 0;
  for (; at < text.size(); ++at)
    if (client::IsFirstByte(text[at]) && shown++ == width) break;
  return text.substr(0, at);
}

} // namespace

Screen::Screen(const tString& charset)
    : oToTerminal(charset, client::kUtf8), fLive(IsSmartTerminal(STDERR_FILENO)) {
  struct sigaction action = {};
  action.sa_handler = [](int) {}; // not SIG_IGN, which the terminal module would inherit
  sigaction(SIGPIPE, &action, nullptr);
}

void Screen::Print(const tString& text) {
  EraseLive();
  Write(STDOUT_FILENO, text);
}

void Screen::Remark(const tString& text) {
  EraseLive();
  Write(STDERR_FILENO, text + "\n");
}

size_t Screen::Width() const {
  return isatty(STDOUT_FILENO) ? Columns(STDOUT_FILENO) : std::numeric_limits<size_t>::max();
}

void Screen::Live(const tString& text) {
  if (!fLive) return;
  tString line = Cut(text, Columns(STDERR_FILENO) - 1);
  if (line == oShown) return;
  EraseLive();
  Write(STDERR_FILENO, line);
  oShown = line;
}

void Screen::EraseLive() {
  if (!oShown.empty()) Write(STDERR_FILENO, kEraseLine);
  oShown.clear();
}

// What cannot be written is dropped.
void Screen::Write(int fd, const tString& text) {
  tString bytes = oToTerminal(text);
  std::string_view rest = bytes;
  while (!rest.empty()) {
    ssize_t written = write(fd, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    rest.remove_prefix(static_cast<size_t>(written));
  }
}

} // namespace zat::till
