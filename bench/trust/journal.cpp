// No payment forgotten: tills that are killed at random moments of their sales, and what the journal says afterwards,
// against the simulated terminal's own record of the day.
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <random>
#include <set>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "areas.h"
#include "shop.h"

namespace trust {
namespace {

typedef std::chrono::steady_clock Clock;
using std::chrono::milliseconds;

constexpr int kTills = 4;
constexpr int kLeftAlone = 8; // every so many-th sale is not killed
constexpr int kAskAgain = 3;  // how often a recovery may be killed before it is left to end

// Amounts on purpose few, so that a payment cannot be told from another one by its amount. By their last digits
// the terminal approves, declines, or approves and dies before it says so.
constexpr const char* kAmounts[] = {"12.00", "12.00", "12.00", "13.00", "12.05", "12.77"};

pid_t Start(const std::vector<std::string>& words) {
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t silent;
  posix_spawn_file_actions_init(&silent);
  for (int fd : {1, 2}) posix_spawn_file_actions_addopen(&silent, fd, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  if (posix_spawn(&child, argv[0], &silent, nullptr, argv.data(), environ) != 0) child = -1;
  posix_spawn_file_actions_destroy(&silent);
  return child;
}

// The exit code; -1 for a process that was killed.
int Wait(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {}
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Counts {
  int iSales = 0, iKilled = 0, iTold = 0; // told: the till itself said that the sale was approved
  int iRecovers = 0, iNotClosed = 0;
};

// One till of the shop: its sales one after another, each followed by a look at what became of it.
class Seller {
public:
  Seller(const Shop& shop, int till, uint64_t seed)
      : oProgram(shop / "BIN/zat_till"), oId(std::to_string(till)),
        oDice(seed + static_cast<uint64_t>(till)) {}

  void Sell(int sales) {
    for (int i = 0; i < sales; ++i) {
      const size_t amount = std::uniform_int_distribution<size_t>(0, std::size(kAmounts) - 1)(oDice);
      const bool kills = i % kLeftAlone != 0;
      const int code = Run({oProgram, "sale", kAmounts[amount], "--tid", oId}, kills, oSale);
      ++oCounts.iSales;
      oCounts.iKilled += code == -1;
      oCounts.iTold += code == 0;
      Recover();
    }
  }

  Counts oCounts;

private:
  typedef std::chrono::duration<double> Seconds;

  // Runs a program. One that is killed dies within the time that such a one usually takes, or a little after; one that
  // is not teaches how long that is, as the machine gets busy or idle.
  int Run(const std::vector<std::string>& words, bool kills, Seconds& usual) {
    const auto begin = Clock::now();
    const pid_t child = Start(words);
    if (child < 0) return -2;
    if (kills) {
      std::this_thread::sleep_for(usual * std::uniform_real_distribution<double>(0, 1.2)(oDice));
      kill(child, SIGKILL);
    }
    const int code = Wait(child);
    if (!kills) usual = std::min<Seconds>((usual + (Clock::now() - begin)) / 2, kLongest);
    return code;
  }

  // The recovery may be killed too; the one after it has to come to its end.
  void Recover() {
    int code = -1;
    for (int i = 0; i <= kAskAgain && code == -1; ++i) {
      const bool kills = i < kAskAgain && std::bernoulli_distribution(0.2)(oDice);
      code = Run({oProgram, "recover", "--tid", oId}, kills, oAsk);
      ++oCounts.iRecovers;
    }
    oCounts.iNotClosed += code != 0;
  }

  static constexpr Seconds kLongest{0.5};
  const std::string oProgram, oId;
  std::mt19937_64 oDice;
  Seconds oSale{0.05}, oAsk{0.02};
};

// A payment as the terminal has it.
struct Made {
  std::string oAmount, oWhen; // kopecks; YYYYMMDDhhmmss
};

// The terminal's record of its day, by reference number; numbers grow.
std::map<std::string, Made> DayOf(const Shop& shop, const std::string& id) {
  std::map<std::string, Made> day;
  std::istringstream file(shop.Get("simulator-" + id + ".day"));
  std::string ref, key, equals, value;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    if (line.starts_with("[")) ref = line.substr(1, line.find(']') - 1);
    if (ref == "DAY" || !(words >> key >> equals >> value)) continue;
    if (key == "Amount") day[ref].oAmount = value;
    if (key == "When") day[ref].oWhen = value;
  }
  return day;
}

// Digits alone: "2026-11-21T12:00:03+0000" and "12.00" as the terminal writes them.
std::string Digits(const std::string& text, size_t length) {
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
               [](char c) { return c >= '0' && c <= '9'; });
  return digits.substr(0, length);
}

struct Compared {
  int iMade = 0, iMissing = 0, iTwice = 0, iWrong = 0, iUnknown = 0, iRecovered = 0, iNotMade = 0,
      iEntries = 0;
};

// Every payment of the terminal is one approved entry, and the other way round; and it is the right one: made after its
// intent and before the next one, of its amount, in the order of the entries.
void Compare(const std::map<std::string, Made>& day, const std::vector<nlohmann::json>& entries,
             Compared& sum) {
  std::map<std::string, int> seen;
  std::string before;
  for (size_t i = 0; i < entries.size(); ++i) {
    const nlohmann::json& entry = entries[i];
    const std::string state = entry["state"], ref = entry.value("rrn", "");
    ++sum.iEntries;
    sum.iUnknown += state == "unknown" || state == "running";
    sum.iNotMade += state == "notMade";
    if (state != "approved") continue;
    sum.iRecovered += entry["toldBy"] == "terminal";
    const auto made = day.find(ref);
    if (made == day.end() || ref <= before) {
      ++sum.iWrong;
      continue;
    }
    sum.iTwice += seen[ref]++ > 0;
    before = ref;
    const bool early = made->second.oWhen < Digits(entry["time"], 14);
    const bool late = i + 1 < entries.size() && made->second.oWhen > Digits(entries[i + 1]["time"], 14);
    sum.iWrong += early || late || made->second.oAmount != Digits(entry["amount"], 12);
  }
  sum.iMade += static_cast<int>(day.size());
  for (const auto& [ref, made] : day) sum.iMissing += seen[ref] == 0;
}

bool CompareAll(const Shop& shop, Compared& sum) {
  const std::string list = shop / "list", command = shop / "BIN/zat_till" + " journal --all --json >" + list;
  if (system(command.c_str()) != 0) return false;
  const nlohmann::json journal = nlohmann::json::parse(shop.Get("list"), nullptr, false);
  if (!journal.is_object() || journal["damaged"] != false) return false;
  std::map<std::string, std::vector<nlohmann::json>> entries;
  for (const nlohmann::json& entry : journal["entries"]) entries[entry.value("tid", "?")].push_back(entry);
  for (auto& [id, own] : entries) {
    std::sort(own.begin(), own.end(),
              [](const nlohmann::json& a, const nlohmann::json& b) { return a["number"] < b["number"]; });
    Compare(DayOf(shop, id), own, sum);
  }
  return true;
}

bool OneRound(int sales, uint64_t seed, Counts& counts, Compared& compared) {
  const Shop shop;
  shop.Copy(std::string(kBin) + "zat_till", "BIN/zat_till");
  std::vector<Seller> sellers;
  std::vector<std::thread> threads;
  for (int till = 1; till <= kTills; ++till) sellers.emplace_back(shop, till, seed);
  const int each = (sales + kTills - 1) / kTills;
  for (Seller& seller : sellers) threads.emplace_back([&seller, each] { seller.Sell(each); });
  for (std::thread& thread : threads) thread.join();
  for (const Seller& seller : sellers) {
    counts.iSales += seller.oCounts.iSales;
    counts.iKilled += seller.oCounts.iKilled;
    counts.iTold += seller.oCounts.iTold;
    counts.iRecovers += seller.oCounts.iRecovers;
    counts.iNotClosed += seller.oCounts.iNotClosed;
  }
  return CompareAll(shop, compared);
}

} // namespace

Findings MeasureJournal(const Extent& extent) {
  const char* given = getenv("ZAT_CHECK_SEED");
  const uint64_t seed = given ? strtoull(given, nullptr, 10) : std::random_device()();
  const auto end = Clock::now() + std::chrono::duration<double>(extent.dSeconds);
  Counts counts;
  Compared found;
  bool read = true;
  uint64_t round = 0;
  do read = OneRound(extent.Of(500, 16), seed + 1000 * round++, counts, found) && read;
  while (read && Clock::now() < end);

  const bool told = counts.iTold <= found.iMade;
  const bool good = read && found.iMade > 0 && counts.iKilled > 0;
  return {{"no payment is missing in the journal, none is twice",
           fmt::format("{} sales, {} tills killed at random (seed {})", counts.iSales, counts.iKilled, seed),
           fmt::format("{} made: {} missing, {} twice, {} wrong", found.iMade, found.iMissing, found.iTwice,
                       found.iWrong),
           good && told && found.iMissing + found.iTwice + found.iWrong == 0},
          {"every unknown outcome is found out", fmt::format("{} recoveries, some killed", counts.iRecovers),
           fmt::format("{} made, {} not made, {} unknown", found.iRecovered, found.iNotMade, found.iUnknown),
           good && found.iUnknown == 0 && counts.iNotClosed == 0}};
}

} // namespace trust
