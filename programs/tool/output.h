// The standard output of a command that people and pipes read: in the code page of the user's terminal, as wide as
// that is, in colour where that helps.
#pragma once
#include <string_view>

#include "charset.h"

namespace zat::tool {

enum tColour : uint8_t { eColPlain, eColFaint, eColBold, eColGood, eColWarn, eColBad };

class Output {
public:
  // Colour and a limited width only on a terminal; no colour when NO_COLOR is set or the terminal is dumb.
  Output();

  // A UTF-8 text in a colour, or as it is. It must hold no line end when it is coloured.
  tString In(tColour oColour, std::string_view oText) const;

  // One line without its line end. On a terminal what does not fit is cut off; colours count for nothing.
  void Line(std::string_view oText);

  // A text with line ends, never cut.
  void Text(std::string_view oText);

  // Everything is on its way. False when some of it could not be written.
  bool Flush();

private:
  client::Charset oToUser;
  bool fColour;
  size_t lWidth; // 0: no limit
  bool fGood = true;
};

// One line to the standard error, "zat_tool: " and the text, in the user's code page.
void Complain(std::string_view oText);

} // namespace zat::tool
