// What the object exports, beside the list of what it offers.
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

std::string Missing(const Names& from, const Names& in, const char* what) {
  std::string text;
  for (const std::string& name : from)
    if (!in.count(name)) text += fmt::format("; {}: {}", what, name);
  return text;
}

} // namespace

// A name too many could take the place of a host's function of that name, or be replaced by it.
Finding MeasureSymbols() {
  std::ifstream list(ZAT_SOURCE_DIR "/bench/trust/exported.txt");
  const Names wanted = LinesOf({std::istreambuf_iterator<char>(list), {}});
  const Names found =
      LinesOf(OutputOf("nm -DC --defined-only " ZAT_INSTALLATION "/BIN/libzat_ms.so | cut -c20-"));
  const std::string wrong = Missing(found, wanted, "not listed") + Missing(wanted, found, "not there");
  return {"the object exports what is listed and nothing else",
          fmt::format("{} names in bench/trust/exported.txt", wanted.size()),
          fmt::format("{} exported{}", found.size(), wrong), wrong.empty() && !wanted.empty()};
}

} // namespace trust
