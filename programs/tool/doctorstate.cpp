// What the installation has been doing: updates and log.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cards.h"
#include "doctor.h"
#include "exchanges.h"
#include "logfile.h"
#include "place.h"
#include "simplecfg.h"
#include "timeline.h"
#include "utilf.h"

namespace zat::tool {

namespace {

constexpr long kDelivery = 3600; // seconds without a byte after which a delivery has been broken off
constexpr unsigned long kMiB = 1 << 20;
constexpr char kFinished[] = "[0-9A-Fa-f][0-9A-Fa-f][0-9A-Fa-f][0-9A-Fa-f][0-9A-Fa-f][0-9A-Fa-f][0-9A-Fa-f]["
                             "0-9A-Fa-f].[0-9][0-9][0-9]";
constexpr char kNone[] = "00000000.000";

bool IsUpdateName(const tString& name) {
  constexpr std::string_view kHex = "0123456789ABCDEFabcdef";
  return name.size() == 12 && name[8] == '.' && name.find_first_not_of(kHex) == 8 &&
         name.find_first_not_of(kHex.substr(0, 10), 9) == tString::npos;
}

long AgeOf(const tString& path) {
  struct stat info;
  return stat(path.c_str(), &info) ? 0 : time(nullptr) - info.st_mtime;
}

void CheckHalfWritten(Findings& found, const tString& dir, const tString& shown) {
  for (const tString& name : NamesIn(dir, "*.tmp")) {
    const long age = AgeOf(dir + name);
    const tString text = fmt::format("{}{} is half written, last byte {} ago", shown, name, AgeText(age));
    if (age > kDelivery)
      found.Warn("updates", text + ": the delivery was broken off",
                 "deliver it again, then remove this file");
    else
      found.Ok("updates", text + ": it is being delivered");
  }
}

// One client's version list and the updates beside it and in DOWNLOAD/ itself.
void CheckClient(Findings& found, const tString& client) {
  const tString downloads = found.oRoot + "DOWNLOAD/", dir = downloads + client + "/",
                shown = "DOWNLOAD/" + client + "/";
  CheckHalfWritten(found, dir, shown);
  SimpleCfg list;
  if (list.LoadFile((dir + "verslist.upd").c_str()) < 0 && errno == ENOENT)
    return found.Ok("updates",
                    fmt::format("client {}: no version list yet, nothing was ever released", client));
  const tString installed = list.GetValue("LAST", "INST", kNone),
                highest = list.GetValue("LAST", "HI", kNone);
  if (!IsUpdateName(installed) || !IsUpdateName(highest))
    return found.Problem(
        "updates", fmt::format("{}verslist.upd is damaged (INST '{}', HI '{}')", shown, installed, highest),
        "write it again, holding its lock: docs/updates.md");
  std::vector<tString> names = NamesIn(dir, kFinished), shared = NamesIn(downloads, kFinished);
  names.insert(names.end(), shared.begin(), shared.end());
  const auto pending = std::count_if(names.begin(), names.end(),
                                     [&](const tString& n) { return n > installed && n <= highest; });
  const tString text = fmt::format("client {}: installed {}, released up to {}", client, installed, highest);
  if (pending > 0)
    found.Warn("updates", fmt::format("{}, {} waiting", text, pending),
               "nothing: the next request installs it; if it stays, see zat_tool log and updtlast.log");
  else if (highest > installed)
    found.Warn("updates", text + ", which is not there", "deliver it: the file first, HI after it");
  else
    found.Ok("updates", highest == kNone ? fmt::format("client {}: nothing is released", client) : text);
}

} // namespace

void CheckUpdates(Findings& oFound) {
  const tString downloads = oFound.oRoot + "DOWNLOAD/", unpacked = oFound.oRoot + "UPDATE_T";
  const size_t before = oFound.oAll.size();
  CheckHalfWritten(oFound, downloads, "DOWNLOAD/");
  for (const tString& client : NamesIn(downloads, "*"))
    if (fdpresent((downloads + client).c_str()) == 0) CheckClient(oFound, client);
  if (fdpresent(unpacked.c_str()) == 0 && !NamesIn(unpacked, "*").empty())
    oFound.Warn("updates", "UPDATE_T/ holds an update that was unpacked and not installed",
                "nothing: the next update clears it away; see updtlast.log");
  if (oFound.oAll.size() == before) oFound.Ok("updates", "none was ever delivered");
}

// ---- the log ----------------------------------------------------------------------------------------------

namespace {

void CheckSize(Findings& found, const tString& path, unsigned long size) {
  SimpleCfg cfg;
  cfg.LoadFile((found.oRoot + "micromgl.cfg").c_str());
  const long limit = std::max(cfg.GetLongValue("ENV", "LOGMEGSIZE", 15), 0L) % 11;
  const tString text = fmt::format("{}: {} KiB, the limit is {} MiB", path, size >> 10, limit);
  if (size > 3 * kMiB * static_cast<unsigned long>(std::max(limit, 1L)))
    found.Warn("log", text, "restart the till: the log is moved to its backup when a till starts");
  else
    found.Ok("log", text);
}

// What the lines themselves tell: card numbers, and a clock that was set back.
void CheckLines(Findings& found, const tString& path) {
  tString text;
  if (!ReadWhole(path, text))
    return found.Warn("log", fmt::format("{} cannot be read: {}", path, strerror(errno)),
                      "run this as the till's user");
  if (const size_t cards = FindCards(text).size())
    found.Problem("log", fmt::format("{} holds {} card numbers in clear", path, cards),
                  "zat_tool redact --in-place " + path);
  time_t last = 0;
  ForEachRecord(text, [&](const tRecord& record) {
    if (!record.oWhen.empty()) last = std::max(last, LogTime(record.oWhen));
  });
  if (last > time(nullptr) + 60)
    found.Warn("clock", fmt::format("the log has lines of {}, which is in the future", TimeText(last)),
               "set the clock, or wait: it was set back");
}

// The exception log stands in the till's working directory, which is often one of these.
void CheckExceptions(Findings& found) {
  for (const tString& dir : {found.oRoot, found.oRoot + "BIN/"})
    if (const tString path = dir + "zat_expt.log"; frpresent(path.c_str()) == 0)
      found.Warn("log", fmt::format("{} is there, last line {} ago", path, AgeText(AgeOf(path))),
                 "read it: locks that could not be had, or a till that uses a wrong handle");
}

} // namespace

void CheckLog(Findings& oFound) {
  const tString path = LogOfRoot(oFound.oRoot);
  CheckExceptions(oFound);
  if (path == "stdout") return oFound.Ok("log", "goes to the till's standard output");
  struct stat info, top;
  if (stat(path.c_str(), &info)) {
    if (errno == ENOENT && access(path.substr(0, fsplitp(path.c_str())).c_str(), W_OK) == 0)
      return oFound.Ok("log", path + " is not there: no till has run yet");
    return oFound.Problem("log", fmt::format("{} cannot be written: {}", path, strerror(errno)),
                          "correct LOGFILE, or the rights of its directory");
  }
  if (!S_ISREG(info.st_mode) || access(path.c_str(), W_OK))
    return oFound.Problem("log", path + " cannot be written",
                          "give it to the till's user with chown, or remove what stands there");
  const bool all = info.st_mode & S_IWGRP; // of the group, when the tills' users have one in common
  if (stat(oFound.oRoot.c_str(), &top) == 0 && top.st_uid != info.st_uid &&
      !(all && top.st_gid == info.st_gid))
    oFound.Warn("log",
                path + " belongs to another user than the installation: tills may not be able to write it",
                "chown it to the till's user");
  CheckSize(oFound, path, static_cast<unsigned long>(info.st_size));
  CheckLines(oFound, path);
}

} // namespace zat::tool
