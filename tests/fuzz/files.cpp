// Files of an installation that somebody else has written: configuration, version list, locks, record logs.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "MiscFunc.h"
#include "fuzz.h"
#include "microus.h"
#include "quiet.h"
#include "scratch.h"
#include "simplecfg.h"
#include "utilf.h"

namespace {

// One directory for the whole run; a trial leaves it as it was.
const Scratch& Place() {
  static const Scratch place;
  return place;
}

void Write(const std::string& name, const std::string& bytes) {
  const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  FUZZ_HOLDS(fd >= 0 && write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  close(fd);
}

} // namespace

FUZZ_TARGET(settings) {
  const std::string first = in.Text(in.Word()), second = in.Rest();
  SimpleCfg cfg;
  cfg.LoadData(first);
  cfg.LoadData(second); // over the first
  for (const char* key : {"LOGLEVEL", "LOGMEGSIZE", "CP", "a"})
    for (const char* section : {"ENV", "TILL", ""}) {
      cfg.GetLongValue(section, key, 7);
      cfg.GetBoolValue(section, key, true);
    }
  std::string saved;
  SimpleCfg again;
  FUZZ_HOLDS(cfg.Save(saved, false) < 0 || again.LoadData(saved) >= 0);
}

FUZZ_TARGET(verslist) {
  fuzz::Quiet();
  const std::string list = Place() / "DOWNLOAD/7/verslist.upd";
  FListStorage store;
  Place().Put("DOWNLOAD/7/keep", "");
  Write(list, in.Rest());
  FUZZ_HOLDS(store.Open(Place() / "DOWNLOAD/", "7") && store.mpccOL[0] && store.pccHi && store.pccLD);
  FUZZ_HOLDS(access(store.oFNameL.c_str(), F_OK) != 0); // the lock is given back
  store.SaveLI("0000001A.000");
  FListStorage again;
  FUZZ_HOLDS(again.Open(Place() / "DOWNLOAD/", "7"));
  FUZZ_HOLDS(strcmp(again.mpccOL[0], "0000001A.000") == 0);
}

// A lock file left behind, with anything in it: nobody reads it, so it is taken, and gone when it is given back.
FUZZ_TARGET(locks) {
  fuzz::Quiet();
  const std::string lock = Place() / "main.lck", bytes = in.Rest();
  Write(lock, bytes);
  FUZZ_HOLDS(isflock(lock.c_str()) == 0);
  FUZZ_HOLDS(tryflock(lock.c_str()) == 0 && holdsflock(lock.c_str()) && tryflock(lock.c_str()) == 1);
  FUZZ_HOLDS(remflock(lock.c_str()) == 0 && access(lock.c_str(), F_OK) != 0);

  // When the system fails in the middle, nothing is held afterwards, and an interruption is no failure.
  constexpr int kCodes[] = {EINTR, EINTR, ENOSPC, EMFILE, EWOULDBLOCK};
  for (int code : kCodes)
    for (int times = 1; times <= 3; ++times) {
      fuzz::Weather(times, code);
      const int taken = bytes.size() % 2 ? putflock(lock.c_str()) : tryflock(lock.c_str(), true);
      fuzz::Weather(code == EINTR ? 1 : 0, code);
      const int brief = taken == 0 ? -1 : zat::TakeBriefLock(lock.c_str());
      fuzz::Weather(0, 0);
      FUZZ_HOLDS(code != EINTR || taken == 0);
      if (taken == 0) FUZZ_HOLDS(remflock(lock.c_str()) == 0);
      if (brief >= 0) zat::FreeBriefLock(lock.c_str(), brief);
      FUZZ_HOLDS(!holdsflock(lock.c_str()) && tryflock(lock.c_str()) == 0 && remflock(lock.c_str()) == 0);
      fuzz::Weather(times, code);
      const int once = zat::TakeBriefLock(lock.c_str());
      fuzz::Weather(0, 0);
      if (once >= 0) zat::FreeBriefLock(lock.c_str(), once);
    }

  // The same bytes as a record log and as a file with a checksum.
  const std::string log = Place() / "records.log";
  Write(log, bytes);
  const uint16_t id = static_cast<uint16_t>(bytes.size() > 4 ? bytes[bytes.size() - 3] : 0);
  char record[64];
  for (const bool sums : {false, true}) {
    const uint16_t records = logCheck(log.c_str(), id, sums ? &flatcrc16 : nullptr);
    for (uint16_t n = 0; n < 3; ++n) {
      const uint16_t size = logRead(log.c_str(), record, sizeof record, n, id, &flatcrc16, sums);
      FUZZ_HOLDS(size <= sizeof record);
      logTest(log.c_str(), n, id, &flatcrc16, sums);
    }
    if (records && logAppend(log.c_str(), "data", 4, id, &flatcrc16, false) && !bytes.empty())
      FUZZ_HOLDS(logCheck(log.c_str(), id, nullptr) == records + 1);
    Write(log, bytes);
  }
  for (int mode = 0; mode <= 3; ++mode) truefilecrc16(log.c_str(), mode);
}
