#include "charset.h"

#include <algorithm>
#include <cerrno>

namespace zat::client {
namespace {

const iconv_t kNone = reinterpret_cast<iconv_t>(-1);
constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD"; // U+FFFD

} // namespace

Charset::Charset(const tString& to, const tString& from)
    : pvHandle(iconv_open(to.c_str(), from.c_str())), fUtf8Source(from == kUtf8),
      oReplacement(to == kUtf8 ? kReplacementUtf8 : "?") {
  if (pvHandle == kNone) pvHandle = iconv_open("ASCII", from.c_str());
}

Charset::~Charset() {
  if (pvHandle != kNone) iconv_close(pvHandle);
}

tString Charset::operator()(std::string_view text) {
  tString out;
  Convert(text, out);
  return out;
}

bool Charset::Fits(std::string_view text) {
  tString out;
  return Convert(text, out);
}

// False when something had to be replaced.
bool Charset::Convert(std::string_view text, tString& out) {
  if (pvHandle == kNone) { // no iconv at all: ASCII passes in every code page that a terminal has
    for (char c : text) out += static_cast<unsigned char>(c) < 0x80 ? c : '?';
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  }
  bool whole = true;
  iconv(pvHandle, nullptr, nullptr, nullptr, nullptr);
  while (!text.empty()) {
    char piece[256];
    char* to = piece;
    size_t room = sizeof piece;
    char* from = const_cast<char*>(text.data()); // iconv only reads it
    size_t left = text.size();
    size_t result = iconv(pvHandle, &from, &left, &to, &room);
    int fault = result == static_cast<size_t>(-1) ? errno : 0;
    out.append(piece, to);
    text = text.substr(text.size() - left);
    if (fault == EILSEQ || fault == EINVAL) {
      Replace(text, out);
      whole = false;
    }
  }
  return whole;
}

// One mark for one character, not for each of its bytes.
void Charset::Replace(std::string_view& rest, tString& out) {
  out += oReplacement;
  size_t length = 1;
  while (fUtf8Source && length < rest.size() && !IsFirstByte(rest[length])) ++length;
  rest.remove_prefix(length);
}

size_t Characters(std::string_view utf8) {
  return static_cast<size_t>(std::count_if(utf8.begin(), utf8.end(), IsFirstByte));
}

tString FromWire(std::string_view cp1251) {
  tString out = Charset(kUtf8, kCp1251)(cp1251);
  for (char& c : out) {
    unsigned char byte = static_cast<unsigned char>(c);
    if (c == '\t')
      c = ' ';
    else if (byte < ' ' || byte == 0x7F)
      c = '?';
  }
  return out;
}

} // namespace zat::client
