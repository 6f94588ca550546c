// The system calls that one block costs its reader, counted from outside: the reader is traced.
#include "rows.h"
#include "upipes.h"
#include <cstdlib>
#include <fmt/core.h>
#include <optional>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr long kMark = SYS_getpgrp; // made before and after what is counted, and nowhere else

// In the traced process: a block that is in the pipe already is read by the operation that waits.
[[noreturn]] void ReadOne(UnnamedPipes& pipes, int length) {
  char block[4096];
  ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  raise(SIGSTOP);
  syscall(kMark);
  const int got = pipes.ReadBlock(block, sizeof block, UnnamedPipes::eBTver0);
  syscall(kMark);
  _exit(got == length ? 0 : 1);
}

// The number of the call at whose entry the process stands; -1 at the return from one.
long CallEntered(pid_t child) {
  __ptrace_syscall_info info = {};
  ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
  return info.op == PTRACE_SYSCALL_INFO_ENTRY ? static_cast<long>(info.entry.nr) : -1;
}

// The calls between the two marks; nothing when tracing is not allowed here or the block did not come.
std::optional<int> Count(pid_t child) {
  int status = 0, count = 0, marks = 0;
  if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return std::nullopt;
  if (ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0)
    return std::nullopt;
  while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
         WIFSTOPPED(status)) {
    const long call = CallEntered(child);
    if (call == kMark)
      ++marks;
    else if (call >= 0 && marks == 1)
      ++count;
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || marks != 2) return std::nullopt;
  return count;
}

std::optional<int> CallsToRead(int length) {
  UnnamedPipes pipes, other;
  const std::string data(static_cast<size_t>(length), 'x');
  if (!pipes.Open() || !other.Import(pipes.Export())) return std::nullopt;
  other.WriteBlock(data.data(), length, UnnamedPipes::eBTver0);
  const pid_t child = fork();
  if (child == 0) ReadOne(pipes, length);
  return child < 0 ? std::nullopt : Count(child);
}

} // namespace

void MeasureCalls(Report& report) {
  for (int length : {100, 2000}) {
    Row row{fmt::format("system calls to read a block of {} bytes", length), ""};
    row.limit = "one read";
    row.bare = 1;
    row.oursMost = 4;
    if (const std::optional<int> count = CallsToRead(length))
      row.ours = *count;
    else
      row.note = "this machine does not let a process be traced";
    report.Add(row);
  }
}

} // namespace bench
