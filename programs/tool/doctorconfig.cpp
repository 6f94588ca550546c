// The configuration: keys that nothing reads, and values that mean something else than they seem to.
#include <algorithm>
#include <cctype>
#include <charconv>

#include <fmt/format.h>

#include "doctor.h"
#include "simplecfg.h"
#include "utilf.h"

namespace zat::tool {

namespace {

enum tKind : uint8_t { eText, eLevel, eNumber, eFlag };

// One row per key; '%' in a key stands for any character, those of a work id.
struct tKeyRow {
  const char *pccFile, *pccSection, *pccKey;
  tKind oKind;
  long lFrom, lTo;
};
constexpr tKeyRow kKeys[] = {
    {"micromgl.cfg", "ENV", "LOGLEVEL", eLevel, 0, 0},
    {"micromgl.cfg", "ENV", "LOGFILE", eText, 0, 0},
    {"micromgl.cfg", "ENV", "LOGMEGSIZE", eNumber, 0, 1000},
    {"micromgl.cfg", "TILL", "CP", eNumber, 1, 65535},
    {"micromgl.cfg", "TILL", "BREAK", eFlag, 0, 0},
    {"micromgl.cfg", "TILL", "OLDRET", eFlag, 0, 0},
    {"eftpos.cfg", "COMMON", "DefaultOkTimeout", eNumber, 0, 3600},
    {"eftpos.cfg", "COMMON", "DefaultNOkTimeout", eNumber, 0, 3600},
    {"eftpos.cfg", "COMMON", "TimeoutAfter-%%-Ok", eNumber, 0, 3600},
    {"eftpos.cfg", "COMMON", "TimeoutAfter-%%-NOk", eNumber, 0, 3600},
};

bool SameText(std::string_view pattern, std::string_view text) {
  const auto same = [](char a, char b) {
    return a == '%' || tolower(static_cast<unsigned char>(a)) == tolower(static_cast<unsigned char>(b));
  };
  return std::equal(pattern.begin(), pattern.end(), text.begin(), text.end(), same);
}

const tKeyRow* RowOf(const char* file, const char* section, const char* key) {
  for (const tKeyRow& row : kKeys)
    if (tString(file) == row.pccFile && SameText(row.pccSection, section) && SameText(row.pccKey, key))
      return &row;
  return nullptr;
}

// What is wrong with a value, or nothing.
tString Wrong(const tKeyRow& row, const tString& value) {
  long number = 0;
  const auto [end, fault] = std::from_chars(value.data(), value.data() + value.size(), number);
  switch (row.oKind) {
  case eText: return "";
  case eLevel:
    return value.size() == 1 && tString("HML").find(value) != tString::npos
               ? ""
               : "one of H, M, L is wanted; it counts as M";
  case eNumber:
    if (fault != std::errc() || end != value.data() + value.size()) return "no number: the default is used";
    return number >= row.lFrom && number <= row.lTo
               ? ""
               : fmt::format("not between {} and {}", row.lFrom, row.lTo);
  case eFlag:
    for (const char* word : {"true", "false", "yes", "no", "on", "off", "1", "0", "t", "f", "y", "n"})
      if (SameText(word, value)) return "";
    return "neither true nor false: it counts as false";
  }
  return "";
}

void CheckKey(Findings& found, const char* file, const SimpleCfg& cfg, const char* section, const char* key) {
  const tString name = fmt::format("{}: {}/{}", file, section, key), value = cfg.GetValue(section, key, "");
  const tKeyRow* row = RowOf(file, section, key);
  if (!row)
    return found.Warn("configuration", name + " is a key that nothing reads",
                      "check its spelling and section");
  if (const tString wrong = Wrong(*row, value); !wrong.empty())
    return found.Warn("configuration", fmt::format("{} = '{}': {}", name, value, wrong), "correct it");
  if (SameText("LOGMEGSIZE", key) && cfg.GetLongValue(section, key, 15) % 11 == 0)
    found.Warn(
        "configuration",
        fmt::format("{} = {} is a limit of 0 MiB: every start of a till moves the log away", name, value),
        "take 10 for 10 MiB; only the remainder of a division by 11 counts");
}

void CheckFile(Findings& found, const char* file, bool needed) {
  const tString path = found.oRoot + file;
  SimpleCfg cfg;
  if (cfg.LoadFile(path.c_str()) < 0) {
    if (needed)
      found.Problem("configuration",
                    fmt::format("{} is missing or cannot be read: there will be no log", file),
                    "put the one of the package in place; the till's user must be able to read it");
    else
      found.Warn("configuration", fmt::format("{} is missing or cannot be read: the defaults hold", file),
                 "put the one of the package in place");
    return;
  }
  const size_t before = found.oAll.size();
  tIniDocument::TNamesDepend sections, keys;
  cfg.GetAllSections(sections);
  for (const auto& section : sections) {
    keys.clear();
    cfg.GetAllKeys(section.pItem, keys);
    for (const auto& key : keys) CheckKey(found, file, cfg, section.pItem, key.pItem);
  }
  if (found.oAll.size() == before)
    found.Ok("configuration", fmt::format("{}: every key and value is understood", file));
}

// The simulated terminal is told there to misbehave; forgotten in a shop it is hard to find.
void CheckFaults(Findings& found) {
  SimpleCfg cfg;
  if (cfg.LoadFile((found.oRoot + "simulator.cfg").c_str()) < 0) return;
  tIniDocument::TNamesDepend sections, keys;
  cfg.GetAllSections(sections);
  for (const auto& section : sections) {
    tIniDocument::TNamesDepend some;
    cfg.GetAllKeys(section.pItem, some);
    keys.splice(keys.end(), some);
  }
  if (!keys.empty())
    found.Warn("configuration",
               fmt::format("simulator.cfg: {} faults of the simulated terminal are on", keys.size()),
               "comment them out unless this is a trial");
}

} // namespace

void CheckConfiguration(Findings& oFound) {
  CheckFile(oFound, "micromgl.cfg", true);
  CheckFile(oFound, "eftpos.cfg", false);
  CheckFaults(oFound);
}

} // namespace zat::tool
