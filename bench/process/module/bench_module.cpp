// The terminal module of the measurements. It works as long as it is told, then writes one block that carries the
// moment of the write, so that the reader knows how long the block was on its way.
//
//   bench_module PIPES ...       over the pipes of a till, in framed blocks: the data of a request is "N WORKID",
//                                the microseconds of the work and the kind of block to answer with, or "end"
//   bench_module bare READ WRITE the same without frames and without a till: 4 bytes of microseconds in, the same
//                                number of bytes out
#include "../answer.h"
#include "upipes.h"
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <time.h>
#include <unistd.h>

namespace {

void Work(unsigned us) {
  const timespec time{us / 1000000, static_cast<long>(us % 1000000) * 1000};
  nanosleep(&time, nullptr);
}

int ServeBare(int readEnd, int writeEnd) {
  uint32_t us;
  while (read(readEnd, &us, sizeof us) == sizeof us) {
    bench::Answer answer = bench::MakeAnswer(bench::kStatus, bench::kId);
    Work(us);
    bench::Stamp(answer);
    if (write(writeEnd, &answer, sizeof answer) != sizeof answer) return 1;
  }
  return 0;
}

int ServeTill(const char* exported) {
  UnnamedPipes pipes;
  if (!pipes.Import(exported)) return 2;
  const char greeting[] = "bench_module";
  pipes.WriteBlock(greeting, sizeof greeting - 1, UnnamedPipes::eBTver0);
  char request[4096];
  for (;;) {
    const int length = pipes.ReadBlock(request, sizeof request - 1, UnnamedPipes::eBTver0);
    if (length < bench::kHeader) return 1;
    request[length] = 0;
    const char* data = request + bench::kHeader;
    if (strcmp(data, "end") == 0) break;
    char* kind = nullptr;
    const unsigned us = static_cast<unsigned>(strtoul(data, &kind, 10));
    bench::Answer answer = bench::MakeAnswer(kind + 1, request + 2);
    Work(us);
    // One plain write, as the other kind of module makes it: what is measured is the reader.
    bench::Stamp(answer);
    if (write(pipes.miHLoc[1], &answer, sizeof answer) != sizeof answer) return 1;
  }
  const std::string end = "#0" + std::string(request + 2, 10) + "00";
  pipes.WriteBlock(end.data(), static_cast<int>(end.size()), UnnamedPipes::eBTver0);
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  if (argc == 4 && strcmp(argv[1], "bare") == 0) return ServeBare(atoi(argv[2]), atoi(argv[3]));
  return argc > 1 ? ServeTill(argv[1]) : 2;
}
