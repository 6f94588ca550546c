// The user's terminal: lines on the standard output, remarks on the standard error, and one line there that
// is rewritten while the cash desk waits. Texts are UTF-8 here and leave in the terminal's code page.
#pragma once
#include "charset.h"

namespace zat::till {

class Screen {
public:
  // From here on SIGPIPE has no effect: a reader of our output that goes away must not end a payment.
  explicit Screen(const tString& charset);

  // Text of one or more lines, with its line ends, to the standard output.
  void Print(const tString& text);

  // One remark, without a line end, to the standard error.
  void Remark(const tString& text);

  // How many characters a line of the standard output may have; without a terminal there is no limit.
  size_t Width() const;

  // Rewrites the live line; "" takes it away. Does nothing unless the standard error is a terminal.
  void Live(const tString& text);

private:
  void Write(int fd, const tString& text);
  void EraseLive();

  client::Charset oToTerminal;
  bool fLive;     // there may be a live line
  tString oShown; // the live line as it stands on the terminal
};

} // namespace zat::till
