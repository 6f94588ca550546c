// The updater program. Command lines and exit codes are a contract with the launcher; --help lists both.
#include "archive.h"
#include "install.h"
#include "selfcheck.h"
#include <CLI/CLI.hpp>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zat {

static int iQuiet = 0;

tQuiet::tQuiet() { ++iQuiet; }
tQuiet::~tQuiet() { --iQuiet; }

bool Complain(const char* fmt, ...) {
  if (iQuiet) return false;
  char text[1024];
  va_list args;
  va_start(args, fmt);
  vsnprintf(text, sizeof text, fmt, args);
  va_end(args);
  dprintf(STDERR_FILENO, "zat_mu: %s\n", text); // one write: two updaters may share the terminal
  return false;
}

namespace {

const char* const kUsage = R"(Unpacks updates of a card payment installation and puts them in place.

  zat_mu FILE DIR         unpack the update FILE into the directory DIR
  zat_mu DIR ROOT         install the unpacked tree DIR over the installation ROOT
  zat_mu --pack DIR FILE  make the update FILE of the tree DIR
  zat_mu                  check that this updater works on this machine
  zat_mu --help           show this text

FILE is a tar archive compressed with xz, gzip or bzip2. An installation goes on in the background after exit
code 3; its report is ROOT/updtlast.log, and it is over when ROOT/updtlock.lck is gone.

Exit codes:
)";

std::string Usage(const CLI::App*, std::string, CLI::AppFormatMode) {
  std::string text = kUsage;
#define UPDATER_LINE(name, value, meaning) text += std::string("  " #value "\t") + meaning + "\n";
  UPDATER_RESULTS(UPDATER_LINE)
#undef UPDATER_LINE
  return text;
}

int Run(int argc, char** argv) {
  std::vector<std::string> what;
  bool pack = false;
  CLI::App app;
  app.formatter_fn(Usage);
  app.add_flag("--pack", pack);
  app.add_option("arguments", what)->expected(0, 2);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) { return app.exit(error) ? eMUusage : eMUgood; }
  if (what.empty() && !pack) return SelfCheck();
  if (what.size() != 2) return Complain("two arguments are wanted; see --help"), eMUusage;
  if (pack) return PackUpdate(what[0], what[1]);
  // A file is unpacked, a directory is installed. What is neither may be a tree that a broken-off
  // installation had already removed: the installation knows.
  struct stat info;
  const bool file = stat(what[0].c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
  if (file && !S_ISREG(info.st_mode)) return Complain("%s: not a file", what[0].c_str()), eMUbad;
  return file ? UnpackUpdate(what[0], what[1]) : InstallUpdate(what[0], what[1], true);
}

} // namespace
} // namespace zat

int main(int argc, char** argv) {
  // A till starts the updater with whatever it has open; the background run must not keep any of it, least of
  // all the lock of another module. And with whatever it has not: a file opened as descriptor 2 would receive the
  // complaints.
  close_range(3, ~0U, 0);
  for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;) fd = open("/dev/null", O_RDWR);
  close_range(3, ~0U, 0);
  signal(SIGPIPE, SIG_IGN); // the reader of our complaints may be gone
  signal(SIGCHLD, SIG_DFL); // a till that ignores it hands that down, and a child's exit would go unseen
  umask(022);
  setlocale(LC_CTYPE, "C.UTF-8"); // names in archives are UTF-8 wherever they are not plain
  try {
    return zat::Run(argc, argv);
  } catch (const std::exception& error) {
    zat::Complain("%s", error.what());
    return zat::eMUbad;
  }
}
