// Texts between the bytes of messages (Windows-1251) and what people read and type (UTF-8).
#pragma once
#include <optional>

#include "ztypes.h"

namespace zat::tool {

// UTF-8 of message bytes; a byte that is no character of the code page becomes U+FFFD.
tString ToUtf8(const tString& oBytes);

// The same for one line on a screen: control characters as \e (ESC) or \xNN, a backslash doubled.
tString ToScreen(const tString& oBytes);

// Message bytes of a typed text: \e, \xNN and \\ as above, everything else from UTF-8. Nothing for an
// incomplete escape and for a character that the code page lacks.
std::optional<tString> FromTyped(const tString& oText);

// Two upper-case hexadecimal digits per byte, pcSep between the bytes.
tString ToHex(const tString& oBytes, const char* pccSep = "");

// Bytes of a text of hexadecimal digits in pairs, blanks and line ends anywhere between the digits. Nothing
// for any other text and for one without a digit.
std::optional<tString> FromHex(const tString& oText);

} // namespace zat::tool
