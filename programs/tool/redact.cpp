// zat_tool redact: hides card numbers in logs and other files, or tells where they are.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "cards.h"
#include "command.h"
#include "logfile.h"
#include "output.h"

namespace zat::tool {

namespace {

struct tOptions {
  std::vector<tString> oFiles; // none: standard input
  bool fCheck = false, fInPlace = false;
};

bool PutAt(int fd, const char* bytes, size_t size, size_t at) {
  while (size > 0) {
    const ssize_t count = pwrite(fd, bytes, size, static_cast<off_t>(at));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<size_t>(count);
    at += static_cast<size_t>(count);
  }
  return true;
}

// Overwrites only the bytes that change: a log that tills are writing to loses nothing.
bool WriteBack(const tString& name, const tString& before, const tString& after) {
  const int fd = open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  bool good = fd >= 0;
  for (size_t at = 0; good && at < after.size(); ++at) {
    size_t end = at;
    while (end < after.size() && before[end] != after[end]) ++end;
    if (end > at) good = PutAt(fd, after.data() + at, end - at, at);
    at = end;
  }
  good = good && fsync(fd) == 0;
  const int code = errno;
  if (fd >= 0) close(fd);
  errno = code;
  return good;
}

// One line for each card, which is shown masked.
void Report(const tString& name, const tString& bytes, const std::vector<tCard>& cards, Output& out) {
  tString masked = bytes;
  MaskCards(masked);
  size_t line = 1, at = 0;
  for (const tCard& card : cards) {
    line += static_cast<size_t>(std::count(bytes.begin() + static_cast<ptrdiff_t>(at),
                                           bytes.begin() + static_cast<ptrdiff_t>(card.lOfs), '\n'));
    at = card.lOfs;
    out.Line(fmt::format("{}:{}: {}", name == "-" ? "(standard input)" : name, line,
                         masked.substr(card.lOfs, card.lSize)));
  }
}

int Refuse(const tString& what, const tString& name) {
  Complain(fmt::format("cannot {} {}: {}", what, name == "-" ? "the standard input" : name, strerror(errno)));
  return eExitUsage;
}

int RedactFile(const tString& name, const tOptions& options, Output& out) {
  tString bytes;
  if (!ReadWhole(name, bytes)) return Refuse("read", name);
  if (options.fCheck) {
    const std::vector<tCard> cards = FindCards(bytes);
    Report(name, bytes, cards, out);
    return cards.empty() ? eExitGood : eExitFault;
  }
  tString masked = bytes;
  const size_t count = MaskCards(masked);
  if (options.fInPlace) {
    if (!WriteBack(name, bytes, masked)) return Refuse("write", name);
    if (count)
      Complain(fmt::format("{}: {} masked", name,
                           count == 1 ? "1 card number" : fmt::format("{} card numbers", count)));
    return eExitGood;
  }
  // The bytes as they are: neither the file's code page nor its line ends are ours to change.
  const bool written =
      fwrite(masked.data(), 1, masked.size(), stdout) == masked.size() && fflush(stdout) == 0;
  return written ? eExitGood : Refuse("write", "the standard output");
}

int Redact(tOptions options) {
  Output out;
  if (options.oFiles.empty()) options.oFiles = {"-"};
  int exit = eExitGood;
  for (const tString& name : options.oFiles) exit = std::max(exit, RedactFile(name, options, out));
  return out.Flush() ? exit : Refuse("write", "the standard output");
}

} // namespace

void AddRedact(CLI::App& oApp, int* piExit) {
  CLI::App* cmd =
      oApp.add_subcommand("redact", "Hide card numbers in a log or any other file, or look for them.");
  auto options = std::make_shared<tOptions>();
  cmd->add_option("file", options->oFiles, "Files to read; none or - for the standard input");
  CLI::Option* check = cmd->add_flag("--check", options->fCheck, "Only tell where card numbers are");
  cmd->add_flag("-i,--in-place", options->fInPlace, "Change the files; a log in use may be")->excludes(check);
  cmd->footer(
      "The result goes to the standard output, as long as the original: only digits become *, and the last\n"
      "four of a number stay. Amounts, dates, references and merchant numbers in the messages of a log stay\n"
      "as they are.\n\n"
      "Exit status: 0 done, or no card number found; 1 with --check: there are some; 2 a file that cannot\n"
      "be read or written, wrong arguments.\n\n"
      "  zat_tool redact BIN/zat_comm.log > for_support.log\n"
      "  zat_tool redact --check /var/log/till/*.log || echo do not send them\n"
      "  zat_tool redact --in-place old.log");
  cmd->callback([options, piExit] {
    if (options->fInPlace && (options->oFiles.empty() || options->oFiles.front() == "-")) {
      Complain("--in-place wants a file");
      *piExit = eExitUsage;
    } else {
      *piExit = Redact(*options);
    }
  });
}

} // namespace zat::tool
