#include "hoststate.h"

#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pthread.h>
#include <set>
#include <unistd.h>

#include <fmt/core.h>

namespace trust {

namespace {

std::string TextOf(const sigset_t& set) {
  std::string text;
  for (int number = 1; number < NSIG; ++number)
    if (sigismember(&set, number) == 1) text += fmt::format(" {}", number);
  return text;
}

void AddSignals(HostState& state) {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) != 0) continue;
    state[fmt::format("signal {}", number)] =
        fmt::format("{} flags {:x} mask{}", reinterpret_cast<void*>(action.sa_handler), action.sa_flags,
                    TextOf(action.sa_mask));
  }
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  state["signal mask"] = TextOf(mask);
}

// The directory that is being read is open too; it is gone by the time its own entry is looked at.
void AddDescriptors(HostState& state) {
  std::set<std::string> numbers;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    numbers.insert(entry.path().filename().string());
  for (const std::string& number : numbers) {
    std::error_code gone;
    const auto target = std::filesystem::read_symlink("/proc/self/fd/" + number, gone);
    if (!gone) state["descriptor " + number] = target.string();
  }
}

std::string FileText(const std::string& name) {
  std::ifstream in(name);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A field of /proc/<pid>/status.
std::string StatusOf(const std::string& pid, const char* field) {
  const std::string text = FileText("/proc/" + pid + "/status");
  const size_t at = text.find(std::string("\n") + field + ":\t");
  if (at == std::string::npos) return "";
  const size_t begin = text.find('\t', at) + 1;
  return text.substr(begin, text.find('\n', begin) - begin);
}

void AddChildren(HostState& state) {
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream list(thread.path() / "children");
    for (std::string pid; list >> pid;) state["child " + pid] = StatusOf(pid, "State");
  }
}

} // namespace

HostState TakeState() {
  HostState state;
  AddSignals(state);
  AddDescriptors(state);
  AddChildren(state);
  state["umask"] = StatusOf("self", "Umask");
  state["threads"] = StatusOf("self", "Threads");
  state["directory"] = std::filesystem::current_path().string();
  state["locale"] = setlocale(LC_ALL, nullptr);
  state["thread's locale"] = fmt::format("{}", static_cast<void*>(uselocale(nullptr)));
  state["rounding"] = std::to_string(fegetround());
  for (char** entry = environ; *entry; ++entry) {
    const std::string name(*entry, strcspn(*entry, "="));
    if (name != "ZAT_L_LEVEL") state["environment " + name] = *entry;
  }
  return state;
}

std::string Differences(const HostState& before, const HostState& after) {
  std::string text;
  std::set<std::string> names;
  for (const HostState* state : {&before, &after})
    for (const auto& [name, value] : *state) names.insert(name);
  for (const std::string& name : names) {
    const auto was = before.find(name), is = after.find(name);
    const std::string from = was == before.end() ? "none" : was->second;
    const std::string to = is == after.end() ? "none" : is->second;
    if (from != to) text += fmt::format("{}{}: {} -> {}", text.empty() ? "" : "; ", name, from, to);
  }
  return text;
}

} // namespace trust
