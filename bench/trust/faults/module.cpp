// The terminal module of the measurements: answers one sale, keeps a record of what it did, and where it is told to dies,
// stops or goes silent after any byte that it writes.
#include "plan.h"
#include "script.h"
#include "upipes.h"

#include <algorithm>
#include <csignal>
#include <poll.h>
#include <unistd.h>

using namespace faults;

namespace {

Plan* plan = nullptr;
UnnamedPipes pipes;
size_t sent = 0;

// True as soon as something can be read or the till is gone; false when the measurement wants no more of it.
bool Await() {
  pollfd in{pipes.miHLoc[0], POLLIN, 0};
  while (!plan->fHangUp)
    if (poll(&in, 1, 10) > 0) return true;
  return false;
}

void GoSilent() {
  plan->fSilent = true;
  pollfd in{pipes.miHLoc[0], 0, 0}; // the till's end is closed: it is gone
  while (!plan->fHangUp && poll(&in, 1, 10) == 0) {}
  _exit(0);
}

void DoCut() {
  const int how = plan->iCutHow.exchange(eNoCut);
  if (how == eDies) raise(SIGKILL);
  if (how == eStops) {
    plan->fSilent = true;
    raise(SIGSTOP);
    plan->fSilent = false;
  }
  if (how == eGoesSilent) GoSilent();
}

void Put(const char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t n = write(pipes.miHLoc[1], bytes, size);
    if (n < 0) _exit(1);
    bytes += n;
    size -= static_cast<size_t>(n);
  }
}

bool Cuts() {
  const int how = plan->iCutHow;
  return how == eDies || how == eStops || how == eGoesSilent;
}

void Send(std::string_view block) {
  char frame[256] = {0x17, static_cast<char>(block.size()), 0};
  char* end = std::copy(block.begin(), block.end(), frame + 3);
  *end = 0x17;
  const size_t size = block.size() + kFrame, cut = static_cast<size_t>(plan->iCut);
  const bool last = sent + size == kStream, cuts = Cuts();
  if (last && !cuts) ++plan->iEnds; // before the till can have it; with a cut, when it has it
  const size_t before = !cuts || cut >= sent + size ? size : cut > sent ? cut - sent : 0;
  Put(frame, before);
  if (before < size) DoCut();
  Put(frame + before, size - before);
  sent += size;
  if (last && cuts) ++plan->iEnds;
  if (Cuts() && cut == sent) DoCut();
}

} // namespace

int main(int argc, char** argv) {
  plan = Attach();
  if (!plan || argc < 2 || !pipes.Import(argv[1])) return 2;
  plan->iModule = getpid();
  Send(kGreeting);
  char request[256];
  plan->fAwaits = true;
  const bool wanted = Await();
  plan->fAwaits = false;
  if (!wanted) return 0;
  const int length = pipes.ReadBlock(request, sizeof request, UnnamedPipes::eBTver0);
  if (length <= 0 || std::string_view(request, static_cast<size_t>(length)) != kSale) return 1;
  ++plan->iRequests;
  for (std::string_view answer : kAnswers) {
    if (answer == kAnswers[kResponse]) ++plan->iApprovals; // before anybody can know of it
    Send(answer);
  }
  return 0;
}
