// Runs a program and kills it at the N-th system call that changes files: what a power cut or an operator does, but at
// every point there is.
#pragma once
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// Whether a stopped process is about to make a system call that leaves a trace in the file system.
inline bool EntersChange(pid_t pid) {
  static const std::set<uint64_t> kCalls = {
#ifdef SYS_rename // older architectures have these besides the ...at forms
      SYS_rename,   SYS_link,      SYS_unlink,   SYS_mkdir,   SYS_rmdir, SYS_symlink,
#endif
      SYS_renameat, SYS_renameat2, SYS_unlinkat, SYS_mkdirat, SYS_fsync, SYS_write,
      SYS_linkat,   SYS_symlinkat, SYS_pwritev, SYS_ftruncate};
  __ptrace_syscall_info info = {};
  return ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) > 0 &&
         info.op == PTRACE_SYSCALL_INFO_ENTRY && kCalls.count(info.entry.nr);
}

// Runs argv and, before the call number killAt (from 1) is made by it or by anything it has started, kills all of them,
// or only the program itself. True when it was killed, false when everything had ended before that many calls.
// Returns when nothing of it runs any more.
inline bool RunAndKillAt(const std::vector<std::string>& argv, int killAt, bool fAll = true) {
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const pid_t first = fork();
  if (first == 0) {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // the leak check cannot work in a traced process
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    execv(args[0], args.data());
    _exit(127);
  }
  std::set<pid_t> alive{first};
  bool options = false, killed = false;
  for (int calls = 0, status;;) {
    const pid_t pid = waitpid(-1, &status, __WALL);
    if (pid < 0 && errno == EINTR) continue;
    if (pid < 0) return killed; // nobody left, not even one whose birth was still to be reported
    alive.insert(pid);
    if (WIFEXITED(status) || WIFSIGNALED(status)) {
      alive.erase(pid);
      continue;
    }
    if (!options && (options = true))
      ptrace(PTRACE_SETOPTIONS, pid, nullptr,
             PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                 PTRACE_O_EXITKILL);
    if (WSTOPSIG(status) == (SIGTRAP | 0x80) && EntersChange(pid) && ++calls == killAt) killed = true;
    if (killed && fAll)
      for (pid_t each : alive) kill(each, SIGKILL); // also one that was being forked and reports only now
    if (killed && alive.count(first)) kill(first, SIGKILL);
    ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
  }
}
