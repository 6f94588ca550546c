#include "output.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "texts.h"

namespace zat::tool {

namespace {

constexpr const char* kColours[] = {"", "\033[2m", "\033[1m", "\033[32m", "\033[33m", "\033[31m"};
constexpr char kPlain[] = "\033[0m";

bool Set(const char* variable) {
  const char* value = getenv(variable);
  return value && *value;
}

bool WantsColour() {
  const char* kind = getenv("TERM");
  return isatty(STDOUT_FILENO) && !Set("NO_COLOR") && kind && *kind && std::string_view(kind) != "dumb";
}

size_t Width() {
  winsize size = {};
  return isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

// Where the character, or the colour, at `at` ends.
size_t Next(std::string_view line, size_t at) {
  if (line[at] == '\033') return std::min(line.find('m', at), line.size() - 1) + 1;
  do { ++at; } while (at < line.size() && !client::IsFirstByte(line[at]));
  return at;
}

// At most `width` characters of a line; a mark at the end shows that there was more. Colours take no room.
tString Cut(std::string_view line, size_t width) {
  size_t shown = 0, fits = 0; // fits: where the last character but one that has room ends
  for (size_t at = 0; at < line.size(); at = Next(line, at)) {
    if (line[at] == '\033') continue;
    if (++shown == width) fits = at;
  }
  if (shown <= width) return tString(line);
  return tString(line.substr(0, fits)) + ">" + (line.find('\033') < fits ? kPlain : "");
}

} // namespace

Output::Output()
    : oToUser(till::UserManner().oCharset, client::kUtf8), fColour(WantsColour()), lWidth(Width()) {}

tString Output::In(tColour oColour, std::string_view oText) const {
  if (!fColour || oColour == eColPlain) return tString(oText);
  return fmt::format("{}{}{}", kColours[oColour], oText, kPlain);
}

void Output::Line(std::string_view oText) { Text((lWidth ? Cut(oText, lWidth) : tString(oText)) + "\n"); }

void Output::Text(std::string_view oText) {
  const tString bytes = oToUser(oText);
  fGood = fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() && fGood;
}

bool Output::Flush() { return fflush(stdout) == 0 && fGood; }

void Complain(std::string_view oText) {
  fflush(stdout);
  client::Charset convert(till::UserManner().oCharset, client::kUtf8);
  const tString bytes = convert(fmt::format("zat_tool: {}\n", oText));
  fwrite(bytes.data(), 1, bytes.size(), stderr);
}

} // namespace zat::tool
