// The object, the terminal module and the updater: there, whole, loadable.
#include <cerrno>
#include <csignal>
#include <cstring>

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "doctor.h"
#include "logfile.h"

namespace zat::tool {

namespace {

constexpr unsigned kLoadSeconds = 10;

// Why a file is no program that this machine could run; empty when nothing speaks against it.
tString NoProgram(const tString& bytes) {
  if (bytes.empty()) return "is empty";
  if (bytes.starts_with("#!")) return "";
  Elf64_Ehdr head;
  if (bytes.size() < sizeof head || !bytes.starts_with(ELFMAG)) return "is no program";
  memcpy(&head, bytes.data(), sizeof head);
  // The section table comes last: a file that ends before it was not copied to its end.
  const bool is64 = head.e_ident[EI_CLASS] == ELFCLASS64;
  if (is64 && head.e_shoff > bytes.size()) return "is cut off: it was not copied whole";
  return "";
}

// ---- the object -------------------------------------------------------------------------------------------

// Runs in the child. The bytes are loaded from memory, not from their place: an object that is loaded opens the log of
// the directory it lies in, and a log that this made would belong to whoever runs the check.
[[noreturn]] void LoadInChild(const tString& bytes, int report) {
  const auto fail = [&](const char* why) {
    [[maybe_unused]] const ssize_t told = write(report, why, strlen(why));
    _exit(1);
  };
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
  alarm(kLoadSeconds);
  if (const int null = open("/dev/null", O_RDWR); null >= 0)
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null, fd);
  const int memory = memfd_create("libzat_ms.so", 0);
  if (memory < 0 || write(memory, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
    fail("no memory");
  void* handle = dlopen(fmt::format("/proc/self/fd/{}", memory).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) fail(dlerror());
  for (const char* name : {"eftp_create", "eftp_do", "eftp_destroy"})
    if (!dlsym(handle, name)) fail(fmt::format("it has no {}", name).c_str());
  _exit(0);
}

// Why the object cannot be loaded; empty when it can.
tString LoadFault(const tString& bytes) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC)) return strerror(errno);
  const pid_t child = fork();
  if (child == 0) LoadInChild(bytes, ends[1]);
  close(ends[1]);
  char text[512];
  const ssize_t size = child < 0 ? 0 : read(ends[0], text, sizeof text);
  close(ends[0]);
  int status = 0;
  if (child < 0 || TEMP_FAILURE_RETRY(waitpid(child, &status, 0)) != child) return "no process for the trial";
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
    return fmt::format("it is not loaded after {} s", kLoadSeconds);
  if (WIFSIGNALED(status)) return fmt::format("it ends its process with signal {}", WTERMSIG(status));
  if (WEXITSTATUS(status) == 0) return "";
  tString why(text, size > 0 ? static_cast<size_t>(size) : 0);
  if (const size_t behind = why.find(": "); why.starts_with("/proc/self/fd/") && behind != why.npos)
    why.erase(0, behind + 2);
  return why.empty() ? "it ends its process" : why;
}

tString VersionIn(const tString& bytes) {
  constexpr std::string_view kMark = "LocVer: ";
  const size_t at = bytes.find(kMark);
  const size_t end = at == bytes.npos ? at : bytes.find_first_not_of("0123456789", at + kMark.size());
  return end == bytes.npos ? "unknown" : bytes.substr(at + kMark.size(), end - at - kMark.size());
}

void CheckObject(Findings& found) {
  const tString name = "BIN/libzat_ms.so", path = found.oRoot + name;
  tString bytes;
  const char* again = "put it in place again from the package";
  if (!ReadWhole(path, bytes))
    return found.Problem("object", fmt::format("{}: {}", name, strerror(errno)), again);
  tString fault = NoProgram(bytes);
  if (fault.empty()) fault = LoadFault(bytes);
  if (fault.empty())
    found.Ok("object", fmt::format("{} can be loaded, launcher version {}", name, VersionIn(bytes)));
  else
    found.Problem("object", fmt::format("{} cannot be loaded: {}", name, fault), again);
}

void CheckProgram(Findings& found, const char* about, const char* file, const char* without) {
  const tString name = tString("BIN/") + file, path = found.oRoot + name;
  struct stat info;
  tString bytes;
  if (stat(path.c_str(), &info))
    return found.Problem(about, fmt::format("{}: {}: {}", name, strerror(errno), without),
                         "put it in place again from the package");
  if (!S_ISREG(info.st_mode))
    return found.Problem(about, name + " is no file", "remove it and put the program in place again");
  if (!(info.st_mode & 0111) || access(path.c_str(), X_OK))
    return found.Problem(about, fmt::format("{} cannot be executed: {}", name, without), "chmod 755 " + path);
  // A program may be executable without being readable.
  const tString fault = ReadWhole(path, bytes) ? NoProgram(bytes) : "";
  if (fault.empty())
    found.Ok(about, name + " can be executed");
  else
    found.Problem(about, fmt::format("{} {}: {}", name, fault, without),
                  "put it in place again from the package");
}

} // namespace

void CheckPrograms(Findings& oFound) {
  CheckObject(oFound);
  CheckProgram(oFound, "module", "zat_mm", "every payment is refused with X8");
  CheckProgram(oFound, "updater", "zat_mu", "updates are lost");
}

} // namespace zat::tool
