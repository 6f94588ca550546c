#include "uni_iodir.h"

#include <climits>
#include <cstring>

#include <dlfcn.h>
#include <unistd.h>

#include "utilf.h"

namespace {

tString FindModule() {
  Dl_info info = {};
  if (!dladdr(reinterpret_cast<const void*>(&GetModuleName), &info) || !info.dli_fname) return "";
  tString name = info.dli_fname;
  char directory[PATH_MAX];
  if (name.starts_with("./"))
    name.erase(0, 2); // otherwise "." would count as a directory with a parent of its own
  if (name[0] != '/' && getcwd(directory, sizeof directory)) name = tString(directory) + "/" + name;
  return name;
}

} // namespace

const char* GetModuleName() {
  static const tString name = FindModule();
  return name.c_str();
}

void DetectLocDir(const char* pccArgV0, tString& oOut, void*) {
  oOut.assign(pccArgV0 ? pccArgV0 : "", fsplitp(pccArgV0));
  if (oOut.empty() || oOut[0] != '/') oOut.insert(0, GetModuleName(), fsplitp(GetModuleName()));
}

void ConvertLocToHome(tString& oPath) {
  size_t parent = fpathup(oPath.c_str());
  if (parent)
    oPath.resize(parent);
  else
    oPath.append("..").append("/");
}
