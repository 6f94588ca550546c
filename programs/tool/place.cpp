#include "place.h"

#include <unistd.h>

#include "simplecfg.h"
#include "utilf.h"

namespace zat::tool {

namespace {

constexpr char kLogName[] = "zat_comm.log";

} // namespace

tString OwnRoot() {
  char name[4096];
  const ssize_t size = readlink("/proc/self/exe", name, sizeof name);
  tString root = size > 0 ? tString(name, fsplitp(tString(name, static_cast<size_t>(size)).c_str())) : "./";
  ConvertLocToHome(root);
  return root;
}

tString LogOfRoot(const tString& oRoot) {
  SimpleCfg cfg;
  cfg.LoadFile((oRoot + "micromgl.cfg").c_str());
  const tString named = cfg.GetValue("ENV", "LOGFILE", "");
  return named.empty() ? oRoot + "BIN/" + kLogName : named;
}

tString LogOfPlace(const tString& oPlace) {
  if (oPlace.empty()) return LogOfRoot(OwnRoot());
  if (oPlace == "-" || fdpresent(oPlace.c_str()) != 0) return oPlace;
  const tString directory = oPlace.ends_with('/') ? oPlace : oPlace + "/";
  const tString beside = directory + kLogName;
  return frpresent(beside.c_str()) == 0 ? beside : LogOfRoot(directory);
}

} // namespace zat::tool
