// Writing where nobody reads: no signal reaches the host, and it is not kept waiting.
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fmt/core.h>

#include "guest.h"
#include "shared.h"
#include "shop.h"
#include "upipes.h"

namespace trust {

namespace {

volatile sig_atomic_t iSignals; // SIGPIPEs that reached a handler of the host's

// A pipe without a reader.
int DeadEnd() {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  close(ends[0]);
  return ends[1];
}

// A channel to somebody who has gone.
bool ToChannel() {
  int in[2];
  UnnamedPipes pipes;
  return pipe(in) == 0 && pipes.Import(fmt::format("{}#{}", DeadEnd(), in[0]).c_str()) &&
         pipes.WriteBlock("text", 4, UnnamedPipes::eBTver0) == 0 && pipes.Write("text", 4) == 0;
}

// The log on a standard output that nobody reads any more, while the till sells.
bool ToLog() {
  Shop shop("[ENV]\nLOGLEVEL=H\nLOGFILE=stdout\n");
  const int end = DeadEnd();
  dup2(end, STDOUT_FILENO);
  close(end);
  LoadedObject object(shop.Library());
  void* session = object.create(nullptr);
  const bool paid = Sell(object, session, "0000000001") == Sale::paid;
  object.destroy(session);
  return paid;
}

// A FIFO in the place of the log and of the exception log, without a reader.
bool ToFifo() {
  Shop shop;
  if (mkfifo((shop / "BIN/zat_comm.log").c_str(), 0666) != 0 || mkfifo("zat_expt.log", 0666) != 0)
    return false;
  LoadedObject object(shop.Library());
  void* session = object.create(nullptr);
  object.destroy(&shop); // is no session, which the exception log shall tell
  const bool paid = Sell(object, session, "0000000001") == Sale::paid;
  object.destroy(session);
  unlink("zat_expt.log");
  return paid;
}

struct Row {
  const char* pccWhat;
  bool (*procWrite)();
};
constexpr Row kRows[] = {
    {"a channel", ToChannel}, {"the log on the standard output", ToLog}, {"a FIFO for a log", ToFifo}};

// One in a process with a handler, one with the default, which would end it; and the signal does not wait either.
int Try(const Row& row, bool handled) {
  alarm(20); // ends a wait for a reader
  struct sigaction action = {};
  if (handled) action.sa_handler = [](int) { iSignals = iSignals + 1; };
  sigaction(SIGPIPE, &action, nullptr);
  if (!row.procWrite()) return 1;
  sigset_t waiting;
  sigpending(&waiting);
  return iSignals != 0 || sigismember(&waiting, SIGPIPE) ? 2 : 0;
}

} // namespace

Finding MeasureBrokenPipes() {
  std::string tried, wrong;
  for (const Row& row : kRows) {
    tried += fmt::format("{}{}", tried.empty() ? "" : ", ", row.pccWhat);
    for (bool handled : {false, true}) {
      const pid_t child = Forked([&] { return Try(row, handled); });
      int status = -1;
      waitpid(child, &status, 0);
      if (status != 0)
        wrong += fmt::format("; {} ({}): status {:#x}", row.pccWhat, handled ? "handler" : "default", status);
    }
  }
  return {"neither a signal nor a wait in the host where nobody reads", tried,
          wrong.empty() ? "no signal, no wait" : wrong.substr(2), wrong.empty()};
}

} // namespace trust
