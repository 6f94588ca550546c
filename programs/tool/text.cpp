#include "text.h"

#include <fmt/format.h>

#include "charset.h"

namespace zat::tool {

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// The byte that the escape at text[i] (behind its backslash) stands for; i moves to its last character. Else -1.
int Escape(const tString& text, size_t& i) {
  if (i >= text.length()) return -1;
  if (text[i] == 'e') return 0x1B;
  if (text[i] == '\\') return '\\';
  if (text[i] != 'x' || i + 2 >= text.length()) return -1;
  const int high = HexDigit(text[i + 1]), low = HexDigit(text[i + 2]);
  i += 2;
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

} // namespace

tString ToUtf8(const tString& oBytes) { return client::Charset(client::kUtf8, client::kCp1251)(oBytes); }

tString ToScreen(const tString& oBytes) {
  tString escaped; // the escapes are ASCII, so they can go in before the conversion
  for (char c : oBytes) {
    const unsigned char b = static_cast<unsigned char>(c);
    if (b == 0x1B)
      escaped += "\\e";
    else if (c == '\\')
      escaped += "\\\\";
    else if (b < ' ' || b == 0x7F)
      escaped += fmt::format("\\x{:02X}", b);
    else
      escaped += c;
  }
  return ToUtf8(escaped);
}

std::optional<tString> FromTyped(const tString& oText) {
  tString out, plain;
  client::Charset convert(client::kCp1251, client::kUtf8);
  const auto flush = [&] {
    const bool fits = convert.Fits(plain);
    out += convert(plain);
    plain.clear();
    return fits;
  };
  for (size_t i = 0; i < oText.length(); ++i) {
    if (oText[i] != '\\') {
      plain += oText[i];
      continue;
    }
    const int byte = Escape(oText, ++i);
    if (byte < 0 || !flush()) return std::nullopt;
    out += static_cast<char>(byte);
  }
  if (!flush()) return std::nullopt;
  return out;
}

tString ToHex(const tString& oBytes, const char* pccSep) {
  tString out;
  for (char c : oBytes)
    out += fmt::format("{}{:02X}", out.empty() ? "" : pccSep, static_cast<unsigned char>(c));
  return out;
}

std::optional<tString> FromHex(const tString& oText) {
  tString out;
  int high = -1;
  for (char c : oText) {
    if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
    const int digit = HexDigit(c);
    if (digit < 0) return std::nullopt;
    if (high >= 0) out += static_cast<char>(high * 16 + digit);
    high = high >= 0 ? -1 : digit;
  }
  if (high >= 0 || out.empty()) return std::nullopt;
  return out;
}

} // namespace zat::tool
