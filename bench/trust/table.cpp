#include "table.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <fstream>
#include <sstream>
#include <sys/utsname.h>
#include <unistd.h>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

namespace trust {

namespace {

constexpr size_t kColumns = 4; // and the verdict, which is as wide as it is
constexpr std::array<size_t, kColumns> kWidths = {9, 40, 42, 48};
typedef std::array<std::string, kColumns> Cells;

// How many characters a UTF-8 text shows.
size_t Width(const std::string& text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// The lines that a text takes in a column. A word that is wider stands out of it.
std::vector<std::string> Wrap(const std::string& text, size_t width) {
  std::vector<std::string> lines(1);
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!lines.back().empty() && Width(lines.back()) + 1 + Width(word) > width) lines.emplace_back();
    if (!lines.back().empty()) lines.back() += ' ';
    lines.back() += word;
  }
  return lines;
}

void PrintRow(const Cells& cells, const std::string& verdict) {
  std::array<std::vector<std::string>, kColumns> wrapped;
  size_t height = 0;
  for (size_t i = 0; i < kColumns; ++i) {
    wrapped[i] = Wrap(cells[i], kWidths[i]);
    height = std::max(height, wrapped[i].size());
  }
  for (size_t line = 0; line < height; ++line) {
    std::string out;
    for (size_t i = 0; i < kColumns; ++i) {
      const std::string cell = line < wrapped[i].size() ? wrapped[i][line] : "";
      out += cell + std::string(kWidths[i] + 2 - std::min(kWidths[i], Width(cell)), ' ');
    }
    out += line == 0 ? verdict : "";
    out.erase(out.find_last_not_of(' ') + 1);
    fmt::print("{}\n", out);
  }
  fflush(stdout);
}

nlohmann::json JsonOf(const Findings& findings) {
  nlohmann::json all = nlohmann::json::array();
  for (const Finding& f : findings)
    all.push_back({{"what", f.oWhat}, {"tried", f.oTried}, {"found", f.oFound}, {"good", f.fGood}});
  return all;
}

// Hostile bytes may get into a finding; a program that reads the JSON gets replacement characters for them.
std::string Dump(const nlohmann::json& json, int indent) {
  return json.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace

void Table::PrintHead() { PrintRow({"area", "promise", "tried", "found"}, ""); }

void Table::Add(const std::string& area, const Findings& findings, double seconds) {
  std::string title = fmt::format("{} {:.1f}\u00A0s", area, seconds); // two lines: the time does not break
  for (const Finding& f : findings) {
    PrintRow({title, f.oWhat, f.oTried, f.oFound}, f.fGood ? "good" : "BAD");
    title.clear();
  }
  parts.push_back({area, seconds, findings});
}

int Table::Bad() const {
  int bad = 0;
  for (const Part& part : parts)
    for (const Finding& f : part.oFindings) bad += !f.fGood;
  return bad;
}

bool Table::Save(const std::string& file) const {
  utsname system = {};
  uname(&system);
  nlohmann::json out = {{"machine",
                         {{"cores", sysconf(_SC_NPROCESSORS_ONLN)},
                          {"kernel", std::string(system.sysname) + " " + system.release}}},
                        {"time", time(nullptr)},
                        {"areas", nlohmann::json::array()}};
  for (const Part& part : parts)
    out["areas"].push_back(
        {{"name", part.oArea}, {"seconds", part.dSeconds}, {"findings", JsonOf(part.oFindings)}});
  return static_cast<bool>(std::ofstream(file) << Dump(out, 2) << std::endl);
}

std::string ToText(const Findings& findings) { return Dump(JsonOf(findings), -1); }

Findings FromText(const std::string& text) {
  Findings findings;
  const nlohmann::json all = nlohmann::json::parse(text, nullptr, false);
  if (!all.is_array()) return findings;
  for (const nlohmann::json& f : all) findings.push_back({f["what"], f["tried"], f["found"], f["good"]});
  return findings;
}

} // namespace trust
