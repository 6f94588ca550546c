// How long a block is on its way: from the module's write to the return of eftp_do, beside a blocking read of the same
// bytes. The module works 2 to 4 ms before each block, so that the reader sleeps when it comes.
#include "measure.h"
#include "rows.h"
#include "till.h"
#include "utilf.h"
#include <fcntl.h>

namespace bench {

namespace {

constexpr int kRounds = 300;

unsigned WorkUs(int round) { return 2000 + static_cast<unsigned>(round) * 370 % 2000; }

double UsSince(const char* block) { return static_cast<double>(NowNs() - StampOf(block)) / 1000; }

// The other end of two plain pipes.
class BareModule {
public:
  BareModule() {
    int down[2], up[2];
    if (pipe(down) != 0 || pipe(up) != 0) throw std::runtime_error("no pipes");
    fcntl(down[1], F_SETFD, FD_CLOEXEC);
    fcntl(up[0], F_SETFD, FD_CLOEXEC);
    handle = SysCallBegin(fmt::format("{} bare {} {}", kModule, down[0], up[1]).c_str());
    close(down[0]);
    close(up[1]);
    to = down[1];
    from = up[0];
  }
  ~BareModule() {
    close(to);
    close(from);
    SysCallEnd(handle);
  }
  BareModule(const BareModule&) = delete;
  BareModule& operator=(const BareModule&) = delete;

  double Delay(unsigned us) {
    char bytes[ZAT_MS_BUFFER];
    if (write(to, &us, sizeof us) != sizeof us || read(from, bytes, sizeof bytes) != sizeof(Answer))
      throw std::runtime_error("the bare module did not answer");
    return UsSince(bytes + offsetof(Answer, block));
  }

private:
  void* handle;
  int to, from;
};

} // namespace

void MeasureDelay(Report& report) {
  Shop shop(kModule);
  Till till(shop);
  BareModule bare;
  till.Ask(Order(0, kStatus));
  const std::pair<const char*, const char*> kBlocks[] = {{kPrintLine, "delay of a print line"},
                                                         {kStatus, "delay of a status, with its log line"}};
  for (const auto& [workId, what] : kBlocks) {
    const Pair pair = Alternate(
        kRounds,
        [&, id = workId](int round) {
          till.Ask(Order(WorkUs(round), id));
          return UsSince(till.answer);
        },
        [&](int round) { return bare.Delay(WorkUs(round)); });
    report.Add({what, "us", pair.ours, pair.bare, "a blocking read of the same bytes", 1.5});
  }
  till.Call(Message("10", "end"));
}

} // namespace bench
