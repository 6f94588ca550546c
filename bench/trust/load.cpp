// Many tills of one installation at once, with an update that comes in the middle: nothing lost, and a whole log.
#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <sys/wait.h>

#include <fmt/core.h>

#include "areas.h"
#include "logwatch.h"
#include "shared.h"
#include "shop.h"

namespace trust {

namespace {

constexpr int kTills = 8;
constexpr int kFirstId = 2001;
constexpr unsigned long kLimit = 1 << 20; // LOGMEGSIZE=1
constexpr int kRepeats = 50;
constexpr int kNewDayEvery = 50;

struct TillSeen {
  std::atomic<pid_t> pid;
  std::atomic<int> paid, refused, unclear, givenUp, calls;
};

struct LoadSeen {
  std::atomic<int> next;    // the number of sales begun
  std::atomic<int> allowed; // how many may begin
  TillSeen moTill[kTills];
};

std::string Id(int till) { return fmt::format("{:010}", kFirstId + till); }

// Takes the next sale, when it may begin; false when there is none left.
bool Next(LoadSeen& seen, int wanted) {
  const int mine = seen.next++;
  while (mine < wanted && mine >= seen.allowed) usleep(100);
  return mine < wanted;
}

// Sells until as many sales as are wanted have begun; what is refused is asked for again.
int SellAll(const Shop& shop, LoadSeen& seen, int till, int wanted, int64_t end) {
  TillSeen& mine = seen.moTill[till];
  mine.pid = getpid();
  LoadedObject object(shop.Library());
  void* session = object.create(nullptr);
  for (int sale = 0; Next(seen, wanted) || NowNs() < end; ++sale) {
    Sale result = Sale::refused;
    int calls = 0;
    for (int i = 0; i < kRepeats && result == Sale::refused; ++i) {
      result = Sell(object, session, Id(till), nullptr, &calls);
      mine.refused += result == Sale::refused;
    }
    mine.calls += calls;
    ++(result == Sale::paid ? mine.paid : result == Sale::unclear ? mine.unclear : mine.givenUp);
    if (sale % kNewDayEvery == kNewDayEvery - 1) shop.NewDay(Id(till));
  }
  object.destroy(session);
  return 0;
}

// The next module as an update, delivered for one of the tills, whose next sale finds it.
class Update {
public:
  explicit Update(const Shop& oShop) : shop(oShop) {
    std::filesystem::create_directories(shop / folder);
    const std::string line = fmt::format("{} --pack {}/next {} >/dev/null 2>&1", shop / "BIN/zat_mu",
                                         ZAT_INSTALLATION, shop / "packed");
    if (std::system(line.c_str()) != 0) throw std::runtime_error("the update cannot be packed");
  }

  void Deliver() const {
    std::filesystem::rename(shop / "packed", shop / (folder + "/0000001A.000"));
    shop.Put(folder + "/verslist.upd", "[LAST]\nHI = 0000001A.000\n");
  }

private:
  const Shop& shop;
  const std::string folder = "DOWNLOAD/" + Id(0).substr(Id(0).find_first_not_of('0'));
};

// Fills the log until so much is left to its limit.
void FillLog(const Shop& shop, unsigned long left) {
  std::string text;
  while (text.size() < kLimit - left) text += "2026-01-01 00.00.00 {00000000} : what was here before\r\n";
  shop.Put("BIN/zat_comm.log", text);
}

// What the log of one till must hold, by what the till itself has counted.
int MissingLines(const TillSeen& till, const LogRead& read) {
  const auto found = read.oByProcess.find(till.pid);
  if (found == read.oByProcess.end()) return till.calls;
  const LogCounts& counts = found->second;
  const auto lines = [&](int i) {
    const auto at = counts.oLines.find(mpccCounted[i]);
    return at == counts.oLines.end() ? 0 : at->second;
  };
  const int requests = till.paid + till.refused;
  const int wanted[] = {till.calls, till.calls, till.calls, requests,  requests,  requests,
                        requests,   till.paid,  till.paid,  till.paid, till.paid, till.paid};
  int missing = 0;
  for (size_t i = 0; i < std::size(wanted); ++i) missing += std::abs(wanted[i] - lines(static_cast<int>(i)));
  return missing + std::abs(lines(kPut) - lines(kRemoved) - lines(kRemovedClient)); // what is locked is freed
}

struct Verdict {
  int paid = 0, refused = 0, unclear = 0, deaths = 0, missing = 0, odd = 0;
  double dSeconds = 0;
};

Verdict Sum(const LoadSeen& seen, const LogRead& read) {
  Verdict sum;
  std::map<int, int> lengths; // of the answers in the log: since all sales are alike, there is one
  for (const TillSeen& till : seen.moTill) {
    sum.paid += till.paid;
    sum.refused += till.refused;
    sum.unclear += till.unclear + till.givenUp;
    sum.missing += MissingLines(till, read);
    const auto found = read.oByProcess.find(till.pid);
    if (found == read.oByProcess.end()) continue;
    for (const auto& [length, times] : found->second.oAnswers) lengths[length] += times;
  }
  int usual = 0, all = 0;
  for (const auto& [length, times] : lengths) {
    usual = std::max(usual, times);
    all += times;
  }
  sum.odd = all - usual;
  return sum;
}

Findings FindingsOf(const Verdict& sum, const LogWatch& watch, const LogRead& read) {
  const bool all = sum.paid > 0 && sum.unclear == 0 && sum.deaths == 0;
  return {
      {"every request of every till gets its result, also around an update",
       fmt::format("{} tills at once, {} sales in {:.0f} s, an update in the middle", kTills,
                   sum.paid + sum.unclear, sum.dSeconds),
       fmt::format("{} paid, {} unclear, {} tills lost; {} refused and asked again; the last module is {}",
                   sum.paid, sum.unclear, sum.deaths, sum.refused, read.oLastVersion),
       all && read.oLastVersion == "zat_mm 1.1.0"},
      {"no log line is torn or missing",
       fmt::format("{} lines at level H in {} files", read.lLines, watch.Files().size()),
       fmt::format("{} malformed, {} missing, {} exchanges of another length, {} files written to after they "
                   "were moved",
                   read.lMalformed, sum.missing, sum.odd, watch.Late()),
       watch.Late() == 0 && read.lMalformed == 0 && sum.missing == 0 && sum.odd == 0 && read.lLines > 0},
      {"nobody writes while another holds the log's lock",
       fmt::format("held {} times from outside", watch.iHeld),
       fmt::format("{} times written all the same", watch.iWrittenUnder),
       watch.iHeld > 0 && watch.iWrittenUnder == 0},
      {"the log is moved by the first module that starts beyond its limit",
       fmt::format("limit {} bytes, watched each half millisecond", kLimit),
       fmt::format("largest {:+} bytes beyond it; at most {} modules started meanwhile",
                   static_cast<long>(watch.ulLargest) - static_cast<long>(kLimit), read.iLateStarts),
       read.iLateStarts <= kTills && watch.Files().size() > 1}};
}

} // namespace

Findings MeasureLoad(const Extent& extent) {
  const int wanted = extent.Of(10000, 40);
  const int64_t begin = NowNs(), end = begin + static_cast<int64_t>(extent.dSeconds * kSecondNs);
  Shop shop("[ENV]\nLOGLEVEL=H\nLOGMEGSIZE=1\n");
  shop.Copy(std::string(kBin) + "zat_mu", "BIN/zat_mu");
  const Update update(shop);
  FillLog(shop, extent.Of(kLimit, 100000ul)); // even a short run shall move it
  Shared<LoadSeen> seen;
  std::vector<pid_t> tills;
  for (int i = 0; i < kTills; ++i)
    tills.push_back(Forked([&] { return SellAll(shop, *seen, i, wanted, end); }));
  LogWatch watch(shop / "BIN/zat_comm.log");
  seen->allowed = wanted / 2;
  while (seen->next < wanted / 2) usleep(1000);
  update.Deliver();
  seen->allowed = wanted;
  int deaths = 0;
  for (pid_t till : tills) {
    int status = -1;
    waitpid(till, &status, 0);
    deaths += status != 0;
  }
  const double seconds = static_cast<double>(NowNs() - begin) / kSecondNs;
  watch.Stop();
  const LogRead read = ReadLog(watch.Files(), kLimit);
  Verdict sum = Sum(*seen, read);
  sum.deaths = deaths;
  sum.dSeconds = seconds;
  return FindingsOf(sum, watch, read);
}

} // namespace trust
