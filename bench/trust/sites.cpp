#include "sites.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <fmt/core.h>

#include "faults/plan.h"

namespace trust {

namespace {

constexpr const char* kNames[] = {
#define FAILS(result, name, parameters, arguments, failed) #name,
#define MOVES(result, name, parameters, arguments, failed, part) #name,
#define CLOSES(result, name, parameters, arguments, failed) #name,
#define NEVER(result, name, parameters, arguments) #name,
#define OTHER(name) #name,
#include "faults/calls.inc"
#undef FAILS
#undef MOVES
#undef CLOSES
#undef NEVER
#undef OTHER
};

// What is taken from outside and never reaches the system, or cannot be refused by it and needs no look. The names of
// other libraries (C++, archives) are not looked at: they call by names of C, which are counted wherever they come from.
constexpr const char* kHarmless[] = {
    // Memory: another area.
    "malloc",
    "free",
    "strdup",
    "strndup",
    "freeaddrinfo",
    // The language.
    "__assert_fail",
    "abort",
    "__errno_location",
    "__tls_get_addr",
    "__gmon_start__",
    "__popcountdi2",
    "_Unwind_Resume",
    "_ITM_deregisterTMCloneTable",
    "_ITM_registerTMCloneTable",
    "__libc_start_main",
    "_exit",
    "dladdr",
    "getenv",
    "pthread_mutex_lock",
    "pthread_mutex_unlock",
    "pthread_setcancelstate",
    "stdout",
    "environ",
    // Texts, numbers and dates. The time zone's file is read once, by the first of them.
    "__isoc99_sscanf",
    "difftime",
    "gmtime_r",
    "localtime_r",
    "mktime",
    "strftime",
    "fnmatch",
    "gai_strerror",
    "memchr",
    "memcmp",
    "memcpy",
    "memmove",
    "memrchr",
    "memset",
    "explicit_bzero",
    "ntohs",
    "isspace",
    "snprintf",
    "sprintf",
    "vsnprintf",
    "strchr",
    "strcmp",
    "strerror",
    "strerror_r",
    "strerrordesc_np",
    "strerrorname_np",
    "strlen",
    "strnlen",
    "strrchr",
    "strspn",
    "strstr",
    "strtod",
    "strtol",
    "strtold",
    "strtoll",
    // Sets and settings in the caller's memory.
    "sigaddset",
    "sigemptyset",
    "sigfillset",
    "sigismember",
    "cfgetospeed",
    "cfmakeraw",
    "cfsetispeed",
    "cfsetospeed",
    // Streams: what they only remember.
    "ferror",
    "fileno",
    // Settings that the updater makes for its own process.
    "signal",
    "setlocale",
};

bool IsName(std::string_view name) {
  return std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames);
}

bool IsHarmless(std::string_view name) {
  return name.starts_with("_Z") || name.starts_with("archive_") || name.starts_with("gz") ||
         name.starts_with("__cxa_") || name.starts_with("__gxx_") ||
         std::find(std::begin(kHarmless), std::end(kHarmless), name) != std::end(kHarmless);
}

// The lines that a command writes; none when it fails.
bool ForEachLine(const std::string& command, const auto& take) {
  FILE* in = popen(command.c_str(), "r");
  if (!in) return false;
  char* line = nullptr;
  size_t room = 0;
  for (ssize_t n; (n = getline(&line, &room, in)) > 0;)
    take(std::string_view(line, static_cast<size_t>(n - 1)));
  free(line);
  return pclose(in) == 0;
}

} // namespace

const char* NameOf(unsigned number) { return number < std::size(kNames) ? kNames[number] : "?"; }

// objdump's lines:   0000000000012340 <function>:
//                       12345:	call   12000 <close@plt>
bool Sites::Load(const std::string& file) {
  uint64_t before = 0; // a call that the next instruction stands behind
  std::string target;
  bool pending = false, jump = false;
  const bool listed = ForEachLine(
      "objdump -d -j .text --no-show-raw-insn " + file + " 2>/dev/null", [&](std::string_view line) {
        const uint64_t at = strtoull(std::string(line.substr(0, 20)).c_str(), nullptr, 16);
        const size_t open = line.rfind('<');
        const bool head = line.ends_with(">:");
        if (pending && at > before) TakeCall(at, jump, target);
        pending = false;
        if (head) functions[at] = line.substr(open + 1, line.size() - open - 3);
        const bool call = line.find("\tcall") != line.npos;
        jump = line.find("\tjmp") != line.npos;
        if (head || !(call || jump)) return;
        pending = true;
        before = at;
        target = open == line.npos ? "" : line.substr(open + 1, line.rfind('>') - open - 1);
      });
  const bool named =
      ForEachLine("nm -D --undefined-only " + file + " 2>/dev/null", [&](std::string_view line) {
        std::string_view name = line.substr(line.find_last_of(" \t") + 1);
        name = name.substr(0, name.find('@'));
        if (!IsName(name) && !IsHarmless(name)) unknown.emplace(name);
      });
  return listed && named && FindPlaces(file);
}

void Sites::TakeCall(uint64_t after, bool jump, const std::string& target) {
  // A program that carries the calls has them without a "@plt".
  const std::string name = target.substr(0, target.find("@plt"));
  const auto behind = functions.upper_bound(after - 1);
  const std::string in = behind == functions.begin() ? "" : std::prev(behind)->second;
  const bool carrying = in.find("6faults") != in.npos || in.starts_with("Call_") || IsName(in);
  if (IsName(name) && !carrying)
    calls[after] = {"", name, in, jump};
  else if (!jump)
    inner[after] = target;
}

bool Sites::FindPlaces(const std::string& file) {
  std::string command = "addr2line -e " + file;
  for (const auto& [after, call] : calls) command += fmt::format(" {:#x}", after - 1);
  auto call = calls.begin();
  const bool asked = ForEachLine(command + " 2>/dev/null", [&](std::string_view line) {
    if (call == calls.end()) return;
    line = line.substr(0, line.find(' ')); // the rest tells one of several copies on a line from the others
    const size_t directory = line.rfind('/');
    call->second.oPlace = call->second.oName + " at " + std::string(line.substr(directory + 1));
    // Without a line: what an exception gives back on its way, which is the place's twin.
    if (!call->second.oPlace.ends_with('?')) places[call->second.oPlace] = false;
    ++call;
  });
  return asked && call == calls.end() && !places.empty();
}

// The places that a call which returned there can have been made from: one, or several that look alike from there.
std::vector<std::string> Sites::PlacesOf(const std::string& name, uint64_t offset) const {
  const auto call = calls.find(offset);
  if (call != calls.end() && !call->second.fJump && call->second.oName == name) return {call->second.oPlace};
  // It returned to the caller of a function that ends with the call: that function is the one called there.
  std::vector<std::string> all;
  const auto caller = inner.find(offset);
  for (const auto& [after, jump] : calls) {
    if (!jump.fJump || jump.oName != name || caller == inner.end()) continue;
    if (caller->second.empty() || caller->second == jump.oFunction) all.push_back(jump.oPlace);
  }
  return all;
}

bool Sites::Visit(const std::string& name, uint64_t offset) { return VisitAs(*this, name, offset); }

bool Sites::VisitAs(const Sites& other, const std::string& name, uint64_t offset) {
  bool found = false;
  for (const std::string& text : other.PlacesOf(name, offset)) {
    const auto place = places.find(text);
    if (place != places.end()) found = place->second = true;
  }
  return found;
}

void Sites::LeaveOut(const Sites& other) {
  std::erase_if(places, [&](const auto& place) { return other.places.count(place.first) > 0; });
}

size_t Sites::Count() const { return places.size(); }

std::vector<std::string> Sites::Unvisited() const {
  std::vector<std::string> all;
  for (const auto& [text, visited] : places)
    if (!visited) all.push_back(text);
  return all;
}

std::string Sites::Text(const std::string& name, uint64_t offset) const {
  const std::vector<std::string> all = PlacesOf(name, offset);
  return all.empty() ? name : all.front();
}

} // namespace trust
