// The block with which the module of the measurements answers: a status or a print line of a terminal whose data is
// the moment it was written. In its frame it is what travels through the pipe.
#pragma once
#include "clock.h"
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace bench {

constexpr int kHeader = 2 + 10 + 2;
constexpr char kId[] = "0000000123";
constexpr char kStatus[] = "50"; // logged by its two characters
constexpr char kPrintLine[] =
    "32"; // not logged: its data begins with '0', as that of every line but the last does

//   offset  size  meaning
//        0     1  start byte of the frame
//        1     2  length of the block, low byte first
//        3    14  header of the block: work id, terminal id, length of the data "14"
//       17     1  '0'
//       18     8  the moment, nanoseconds of the monotonic clock
//       26    11  blanks
//       37     1  end byte of the frame
struct Answer {
  unsigned char start[3];
  char block[kHeader + 1 + 8 + 11];
  unsigned char end;
};
static_assert(sizeof(Answer) == 38);
constexpr int kStampAt = kHeader + 1; // in the block

inline Answer MakeAnswer(const char* workId, const char* id) {
  Answer answer{{0x17, sizeof answer.block, 0}, {}, 0x17};
  char text[sizeof answer.block + 1];
  snprintf(text, sizeof text, "%.2s%.10s%02X0%19s", workId, id,
           static_cast<unsigned>(sizeof answer.block) - kHeader, "");
  memcpy(answer.block, text, sizeof answer.block);
  return answer;
}

// Notes the moment; the write comes next.
inline void Stamp(Answer& answer) {
  const int64_t now = NowNs();
  memcpy(answer.block + kStampAt, &now, sizeof now);
}

// The moment that a block carries.
inline int64_t StampOf(const char* block) {
  int64_t ns;
  memcpy(&ns, block + kStampAt, sizeof ns);
  return ns;
}

} // namespace bench
