#include "text.h"

#include <fmt/format.h>
#include <iconv.h>

namespace zat::tool {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD"; // U+FFFD

// One conversion, whole texts only.
class Iconv {
public:
  Iconv(const char* to, const char* from) : pv(iconv_open(to, from)) {}
  ~Iconv() {
    if (pv != reinterpret_cast<iconv_t>(-1)) iconv_close(pv);
  }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  std::optional<tString> operator()(const tString& text) {
    tString out(text.length() * 4, '\0');
    char *from = const_cast<char*>(text.data()), *to = out.data(); // iconv only reads its input
    size_t left = text.length(), room = out.length();
    if (pv == reinterpret_cast<iconv_t>(-1) || iconv(pv, &from, &left, &to, &room) == static_cast<size_t>(-1))
      return std::nullopt;
    out.resize(out.length() - room);
    return out;
  }

private:
  iconv_t pv;
};

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// The byte that the escape at text[i] (behind its backslash) stands for; i moves to its last character. -1: none.
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

tString ToUtf8(const tString& oBytes) {
  Iconv convert("UTF-8", "CP1251");
  if (auto whole = convert(oBytes)) return *whole;
  tString out; // the one unassigned byte of the code page is somewhere in it
  for (char c : oBytes) out += convert(tString(1, c)).value_or(kReplacement);
  return out;
}

tString ToScreen(const tString& oBytes) {
  tString out;
  for (char c : oBytes) {
    const unsigned char b = static_cast<unsigned char>(c);
    if (b == 0x1B)
      out += "\\e";
    else if (c == '\\')
      out += "\\\\";
    else if (b < ' ' || b == 0x7F)
      out += fmt::format("\\x{:02X}", b);
    else
      out += ToUtf8(tString(1, c));
  }
  return out;
}

std::optional<tString> FromTyped(const tString& oText) {
  tString out, plain;
  Iconv convert("CP1251", "UTF-8");
  const auto flush = [&] {
    const auto bytes = convert(plain);
    if (bytes) out += *bytes;
    plain.clear();
    return bytes.has_value();
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
