// A request before it goes out: the operation, and its data made by the table of messages.
#pragma once
#include <initializer_list>

#include "EFTPWork.h"
#include "zat_client.h"
#include "zat_ms.h"

namespace zat::client {

struct Request {
  tEFTPWorkId oId = eEFTPwidNone;
  tString oTid;         // up to 10 characters; the wire has zeros on its left
  tString oData;        // as the wire has them: at most kMaxData bytes, and not 255
  int iPauseLimit = 60; // seconds that a pause between two requests is waited for; 0: refuse at once
};

constexpr size_t kMaxData = ZAT_MS_BUFFER - ZAT_MS_HEADER;
constexpr size_t kImpossibleData = 255; // a header with this length stands for a message without data

// False when no message can be made of the request: nothing of it reaches the terminal then.
bool CanBeSent(const Request& request);

// A value for a field of a request, as text; null: the request goes without it.
struct Field {
  const char* pccTag;
  const tString* poText;
};

// Makes the data of an operation from its fields. False for an operation that has no message, and for a missing field.
bool MakeData(tEFTPWorkId id, std::initializer_list<Field> fields, tString& data);

// Operations that are answered with a response: payments of every kind, and the question about one of them.
bool NeedsResponse(tEFTPWorkId id);

// What a till gives as a terminal id (1 to 10 Latin letters and digits), as a reference number (1 to 12 of them) and as
// a work id (two printable ASCII characters).
bool IsTid(std::string_view text);
bool IsReference(std::string_view text);
bool IsWorkId(std::string_view text);

} // namespace zat::client
