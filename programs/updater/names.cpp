#include "names.h"
#include <algorithm>
#include <string_view>
#include <vector>

namespace zat {
namespace {

// The names between the slashes, empty ones and "." left out.
std::vector<std::string_view> Split(std::string_view path) {
  std::vector<std::string_view> parts;
  for (size_t at = 0; at < path.size();) {
    const size_t end = std::min(path.find('/', at), path.size());
    const std::string_view part = path.substr(at, end - at);
    if (!part.empty() && part != ".") parts.push_back(part);
    at = end + 1;
  }
  return parts;
}

bool Reserved(std::string_view name) { return name == kUnpacking || name.ends_with(kStaged); }

// What launchers and updaters make in the root. An update that brought one of these would block every till.
bool ReservedInRoot(std::string_view name) {
  return name == "UPDATE_T" || name == "mainlock.lck" || name.starts_with("updtlock.lck") ||
         (name.starts_with("cid") && name.ends_with(".lck"));
}

} // namespace

std::string TidyPath(const std::string& path) {
  std::string tidy = path.starts_with('/') ? "/" : "";
  for (std::string_view part : Split(path)) {
    if (!tidy.empty() && tidy != "/") tidy += '/';
    tidy += part;
  }
  return tidy;
}

bool PathStays(const std::string& path) {
  const auto parts = Split(path);
  if (path.starts_with('/') || parts.empty() || ReservedInRoot(parts[0])) return false;
  return std::none_of(parts.begin(), parts.end(), [](auto part) { return part == ".." || Reserved(part); });
}

bool LinkStays(const std::string& path, const std::string& target) {
  if (target.empty() || target.starts_with('/')) return false;
  const auto parts = Split(target);
  const auto down = std::find_if(parts.begin(), parts.end(), [](auto part) { return part != ".."; });
  const auto up = static_cast<size_t>(down - parts.begin());
  return up < Split(path).size() && std::find(down, parts.end(), "..") == parts.end();
}

} // namespace zat
