// What the updater's pieces share: the exit codes, and the one way to say what went wrong.
#pragma once

namespace zat {

// The exit codes. The launcher acts on 0, 2 and 3; any other one means that the step failed.
//   X(constant, value, text)
#define UPDATER_RESULTS(X)                                                                                   \
  X(eMUgood, 0, "the check was passed, the update file is made, or help was shown")                          \
  X(eMUbad, 1, "failed: nothing is unpacked, made or installed")                                             \
  X(eMUunpacked, 2, "the update is unpacked, complete on the disk")                                          \
  X(eMUunderway, 3, "the installation is under way and goes on in the background")                           \
  X(eMUbusy, 4, "nothing done: a launcher or another updater is at work on this installation")               \
  X(eMUusage, 64, "the command line makes no sense")

enum tMUResult : int {
#define UPDATER_CONSTANT(name, value, text) name = value,
  UPDATER_RESULTS(UPDATER_CONSTANT)
#undef UPDATER_CONSTANT
};

// Writes one line, "zat_mu: " and the text, to standard error, which the background run has turned into the
// report file. Always false, so that a check can end with it.
bool Complain(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// While one of these lives, nothing is complained of: failures are what is being tried out.
struct tQuiet {
  tQuiet();
  ~tQuiet();
};

} // namespace zat
