// Texts between code pages: Windows-1251 of the terminal's messages, UTF-8 inside this program, and whatever
// the user's terminal shows.
#pragma once
#include <string_view>

#include <iconv.h>

#include "ztypes.h"

namespace zat::client {

constexpr char kUtf8[] = "UTF-8";
constexpr char kCp1251[] = "CP1251";

// One direction of conversion. Not for use from two threads at a time.
class Charset {
public:
  // A code page that iconv does not know is treated as ASCII: its names come from the user's environment.
  Charset(const tString& to, const tString& from);
  ~Charset();
  Charset(const Charset&) = delete;
  Charset& operator=(const Charset&) = delete;

  // Converts a text. What the target cannot show, and what is no character of the source, becomes U+FFFD
  // where the target has it, else a question mark; nothing is dropped.
  tString operator()(std::string_view text);

  // True when the target has every character of the text.
  bool Fits(std::string_view text);

private:
  bool Convert(std::string_view text, tString& out);
  void Replace(std::string_view& rest, tString& out);

  iconv_t pvHandle;
  bool fUtf8Source;
  tString oReplacement;
};

// True for a byte that begins a character of a UTF-8 text.
inline bool IsFirstByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }

// How many characters a UTF-8 text has.
size_t Characters(std::string_view utf8);

// A text of the terminal in UTF-8, its control characters made harmless: it is a text of somebody else, and an
// escape sequence in it could repaint the outcome that is printed below. A tab becomes a blank, any other control
// byte a question mark.
tString FromWire(std::string_view cp1251);

} // namespace zat::client
