// A message taken apart into header and fields, with the place of each and of the first fault.
#pragma once
#include <vector>

#include "EFTPWork.h"
#include "forms.h"

namespace zat::tool {

struct tFoundField {
  const char* pccTag;
  size_t lOfs;    // of the bytes looked at
  size_t lSize;   // on the wire, a closing ESC included
  bool fAbsent;   // an ESC stands in its place
  tString oValue; // bytes as they stand, unmasked
};

struct tDissected {
  tUnwrapped oWrap;
  tEFTPWorkId oId =
      eEFTPwidNone; // its internal variant where the data says so; none when not even an id is there
  tString oWireId, oTid;
  size_t lAnnounced = 0; // data bytes that the header announces
  std::vector<tFoundField> oFields;
  std::optional<tFault> oFault; // the first one, wrapping included
};

tDissected Dissect(const tString& oBytes);

} // namespace zat::tool
