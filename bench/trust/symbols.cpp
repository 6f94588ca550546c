// What the object exports, beside the list of what it offers.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <set>

#include <fmt/core.h>

#include "guest.h"

namespace trust {

namespace {

typedef std::set<std::string> Names;

Names LinesOf(const std::string& text) {
  Names names;
  for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    names.insert(text.substr(at, end - at));
  return names;
}

std::string OutputOf(const char* command) {
  std::string text;
  FILE* stream = popen(command, "r");
  std::array<char, 4096> part;
  for (size_t n; stream && (n = fread(part.data(), 1, part.size(), stream)) > 0;) text.append(part.data(), n);
  if (stream) pclose(stream);
  return text;
}

// A listed name that ends with '*' stands for all that begin so: the members of a template of which the compiler leaves
// out those that it has inlined everywhere.
bool Fits(const std::string& name, const std::string& listed) {
  if (listed.back() != '*') return name == listed;
  return name.compare(0, listed.size() - 1, listed, 0, listed.size() - 1) == 0;
}

} // namespace

// A name too many could take the place of a host's function of that name, or be replaced by it.
Finding MeasureSymbols() {
  std::ifstream list(ZAT_SOURCE_DIR "/bench/trust/exported.txt");
  const Names listed = LinesOf({std::istreambuf_iterator<char>(list), {}});
  const Names found =
      LinesOf(OutputOf("nm -DC --defined-only " ZAT_INSTALLATION "/BIN/libzat_ms.so | cut -c20-"));
  std::string wrong;
  for (const std::string& name : found)
    if (std::none_of(listed.begin(), listed.end(), [&](const auto& one) { return Fits(name, one); }))
      wrong += "; not listed: " + name;
  for (const std::string& one : listed)
    if (std::none_of(found.begin(), found.end(), [&](const auto& name) { return Fits(name, one); }))
      wrong += "; not there: " + one;
  return {"the object exports what is listed and nothing else",
          fmt::format("{} names in bench/trust/exported.txt", listed.size()),
          fmt::format("{} exported{}", found.size(), wrong), wrong.empty() && !listed.empty()};
}

} // namespace trust
