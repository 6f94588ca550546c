// The block with which the module of the measurements answers: a status or a print line of a terminal whose data is
// the moment it was written. In its frame it is what travels through the pipe.
#pragma once
#include "clock.h"
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace bench {

constexpr int kHeader = 2 + 10 + 2;
constexpr int kStamp = 20; // digits of the moment, nanoseconds of the monotonic clock
constexpr char kId[] = "0000000123";

//   offset  size  meaning
//        0     1  start byte of the frame
//        1     2  length of the block, low byte first
//        3    34  the block: work id, terminal id, length of the data "14", the data
//       37     1  end byte of the frame
struct Answer {
  unsigned char start[3];
  char block[kHeader + kStamp];
  unsigned char end;
};
static_assert(sizeof(Answer) == 38);

constexpr char kStatus[] = "50"; // logged by its two characters
constexpr char kPrintLine[] =
    "32"; // not logged: its data begins with '0', as that of every line but the last does

inline Answer MakeAnswer(const char* workId, const char* id) {
  Answer answer{{0x17, sizeof answer.block, 0}, {}, 0x17};
  char text[sizeof answer.block + 1];
  snprintf(text, sizeof text, "%.2s%.10s%02X%0*llu", workId, id, kStamp, kStamp,
           static_cast<unsigned long long>(NowNs()));
  memcpy(answer.block, text, sizeof answer.block);
  return answer;
}

// The moment that a block carries.
inline int64_t StampOf(const char* block) {
  int64_t ns = 0;
  for (int i = 0; i < kStamp; ++i) ns = ns * 10 + (block[kHeader + i] - '0');
  return ns;
}

} // namespace bench
