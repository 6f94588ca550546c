// A whole sale against the simulated terminal, and many tills that sell at once.
#include "measure.h"
#include "place.h"
#include "rows.h"
#include "till.h"
#include "upipes.h"
#include <fcntl.h>
#include <filesystem>

namespace bench {

namespace {

constexpr int kRounds = 60;
constexpr int kCurveMs = 2500; // how long each number of tills sells

// 12.50, approved, with a card that the till has read itself, so that nothing is waited for.
constexpr char kSale[] = "0000000012504000001234567899=2512101123";

// The terminal's day file, which would grow with every sale.
void NewDay(const Shop& shop, const std::string& id) {
  std::error_code ignored;
  for (const auto& file : std::filesystem::directory_iterator(shop / "", ignored))
    if (file.path().filename().string().rfind("simulator-" + id.substr(id.find_first_not_of('0')), 0) == 0)
      std::filesystem::remove(file.path(), ignored);
}

// From the first call to the last; the number of blocks.
int Sell(Till& till, const std::string& request) {
  int blocks = 0, result = till.Call(request);
  bool paid = false;
  for (; result == ZAT_MS_MORE; result = till.Call("")) {
    ++blocks;
    paid = paid || memcmp(till.answer, "60", 2) == 0;
  }
  if (result != ZAT_MS_END || !paid)
    throw std::runtime_error("the sale failed: " + std::string(till.answer, 60));
  return blocks;
}

// The same without this system: the module's start, bare reads and writes, its end.
int SellBare(const Shop& shop, const std::string& id, const std::string& request) {
  UnnamedPipes pipes;
  if (!pipes.Open()) throw std::runtime_error("no pipes");
  fcntl(pipes.miHLoc[0], F_SETFL, 0);
  const std::string program = shop / "BIN/zat_mm", ends = pipes.Export();
  char* arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>(ends.c_str()),
                       const_cast<char*>("-"), const_cast<char*>(id.c_str()), nullptr};
  const pid_t child = vfork();
  if (child == 0) {
    execv(program.c_str(), arguments);
    _exit(255);
  }
  std::string frame = std::string("\x17") + static_cast<char>(request.size()) + '\0' + request + '\x17';
  std::string got;
  bool over = false;
  int blocks = -1; // the greeting is none
  while (!over) {
    char bytes[4096];
    const ssize_t n = read(pipes.miHLoc[0], bytes, sizeof bytes);
    if (n <= 0) break;
    got.append(bytes, static_cast<size_t>(n));
    while (!over && got.size() >= 4) {
      const size_t length = static_cast<unsigned char>(got[1]) | static_cast<size_t>(got[2]) << 8;
      if (got.size() < length + 4) break;
      over = got[3] == '#';
      if (blocks < 0 && write(pipes.miHLoc[1], frame.data(), frame.size()) < 0) break;
      blocks += !over;
      got.erase(0, length + 4);
    }
  }
  waitpid(child, nullptr, 0);
  return blocks;
}

double MsSince(int64_t begin) { return static_cast<double>(NowNs() - begin) / 1e6; }

// Sales of one till for as long as the others sell too.
double SellFor(const Shop& shop, const std::string& id, int64_t begin) {
  Till till(shop);
  const std::string request = Message("10", kSale, id);
  while (NowNs() < begin) usleep(1000);
  const int64_t end = begin + kCurveMs * INT64_C(1000000);
  double sales = 0;
  for (; NowNs() < end; ++sales) {
    Sell(till, request);
    NewDay(shop, id);
  }
  return sales / (static_cast<double>(NowNs() - begin) / 1e9);
}

double SalesPerSecond(int tills) {
  Shop shop(kSimulator);
  const int64_t begin = NowNs() + INT64_C(200000000); // when all have loaded the object
  std::vector<Child<double>> all;
  for (int i = 0; i < tills; ++i)
    all.emplace_back([&, i] { return SellFor(shop, fmt::format("{:010}", 1001 + i), begin); });
  double sum = 0;
  for (Child<double>& one : all) sum += one.Get();
  return sum;
}

bool NoSimulator(Report& report, const char* what) {
  if (std::filesystem::exists(kSimulator)) return false;
  Row row{what, ""};
  row.note = fmt::format("{} is not built", kSimulator);
  report.Add(row);
  return true;
}

} // namespace

namespace {

Pair Sales() {
  Shop shop(kSimulator);
  Till till(shop);
  const std::string request = Message("10", kSale);
  int blocks = 0, bareBlocks = 0;
  const Pair pair = Alternate(
      kRounds,
      [&](int) {
        const int64_t begin = NowNs();
        blocks = Sell(till, request);
        const double ms = MsSince(begin);
        NewDay(shop, kId);
        return ms;
      },
      [&](int) {
        const int64_t begin = NowNs();
        bareBlocks = SellBare(shop, kId, request);
        const double ms = MsSince(begin);
        NewDay(shop, kId);
        return ms;
      });
  if (blocks != bareBlocks) throw std::runtime_error("the bare sale is another one");
  return pair;
}

} // namespace

void MeasureSale(Report& report) {
  const std::pair<Place, const char*> kPlaces[] = {{Place::memory, "a whole sale, simulated terminal"},
                                                   {Place::disk, "the same, the installation on the disk"}};
  for (const auto& [place, what] : kPlaces) {
    if (NoSimulator(report, what)) return;
    KeepIn(place);
    const Pair pair = Sales();
    report.Add({what, "ms", pair.ours, pair.bare,
                "start of the same module, bare reads and writes of the same blocks", 1.5});
  }
}

void MeasureTills(Report& report) {
  if (NoSimulator(report, "1, 2, 4, 8 tills at once")) return;
  const long cores = sysconf(_SC_NPROCESSORS_ONLN);
  double one = 0;
  for (int tills : {1, 2, 4, 8}) {
    const double rate = SalesPerSecond(tills);
    if (tills == 1) one = rate;
    const double limit = one * static_cast<double>(std::min<long>(tills, cores));
    report.Add({fmt::format("{} till{} at once, sales per second", tills, tills == 1 ? "" : "s"), "/s", rate,
                limit, "one till, times the cores it can use", kNone, kNone});
  }
}

} // namespace bench
