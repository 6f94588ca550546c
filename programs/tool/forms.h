// The forms in which a message is met: alone, as a block of the pipes, as a frame of the link.
#pragma once
#include <optional>

#include "ztypes.h"

namespace zat::tool {

enum tForm : uint8_t { eFormMessage, eFormBlock, eFormFrame };

const char* FormName(tForm oForm);
std::optional<tForm> FormFromName(const tString& oName);

// Where something is wrong, as an offset of the bytes looked at, and what.
struct tFault {
  size_t lOfs;
  tString oWhat;
};

// A message in its wrapping.
struct tUnwrapped {
  tForm oForm;
  size_t lOfs;                  // where the message begins
  tString oMessage;             // as far as it is there
  std::optional<tFault> oFault; // of the wrapping: the first one
};

// Takes the wrapping off, which the first bytes tell: a block begins with 0x17, a frame with DLE STX.
tUnwrapped Unwrap(const tString& oBytes);

// Puts it on. Nothing for a message that is too long for the form.
std::optional<tString> Wrap(const tString& oMessage, tForm oForm);

} // namespace zat::tool
