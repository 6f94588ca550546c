// EFTP messages as the terminal sees them: one block of bytes each way, its parameters by tag in between.
#pragma once
#include "EFTPWork.h"
#include "gabids.h"
#include "ztypes.h"

namespace zat {

// A message that a till sent.
struct tRequest {
  tEFTPWorkId oWId = eEFTPwidNone; // as it stands on the wire: no internal variants
  tString oTId;                    // terminal id, ten characters
  bool fWhole = false;             // the data are as long as announced
  bool fGood = false;              // and cut into parameters as the operation wants them
  SqueezeT oPars;

  // A text parameter without the blanks it was filled with; empty when it is absent.
  tString Text(const char* pccTag);
  // A parameter of digits; 0 when it is absent, or longer than the 12 digits an amount has.
  uint64_t Amount(const char* pccTag);
};

// Reads a block. False when not even a header is there.
bool ReadRequest(const tString& oBlock, tRequest& oOut);

// The parameters of one message to send, by tag.
struct tFields {
  SqueezeT oPars;

  tFields() = default;
  // One parameter to begin with.
  tFields(const char* pccTag, const tString& oValue) { Put(pccTag, oValue); }
  // An empty value stands for an absent parameter.
  tFields& Put(const char* pccTag, const tString& oValue);
};

// The block of a message; empty when a parameter that the operation needs is missing, which is a mistake of ours.
tString MakeMessage(tEFTPWorkId oWId, const tString& oTId, tFields& oFields);

} // namespace zat
