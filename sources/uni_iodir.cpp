#include "uni_iodir.h"
#include "utilf.h"
#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <unistd.h>

namespace {

// A name without any '/' is that of a program found along PATH, where the working directory says nothing.
tString Absolute(const char* name) {
  namespace fs = std::filesystem;
  if (name[0] == '/' && std::strstr(name, "/..")) return name; // ".." may lead out of a symbolic link
  std::error_code error;
  fs::path path;
  if (!std::strchr(name, '/')) path = fs::read_symlink("/proc/self/exe", error);
  if (error || path.empty()) path = fs::absolute(name, error);
  // "." and ".." go, and doubled slashes, because a parent directory is found by cutting the text
  return error ? tString(name) : path.lexically_normal().string();
}

// Plain memory, because destructors of other globals still ask for the name when this file's are long gone.
char mcModule[PATH_MAX];

const char* FindModule() {
  Dl_info info = {};
  if (dladdr(reinterpret_cast<void*>(&GetModuleName), &info) == 0 || !info.dli_fname) return "";
  tString name = Absolute(info.dli_fname);
  if (name.size() >= sizeof mcModule) return info.dli_fname;
  std::memcpy(mcModule, name.c_str(), name.size() + 1);
  return mcModule;
}

[[maybe_unused]] const char* const pccAtLoad = GetModuleName();

} // namespace

const char* GetModuleName() {
  static const char* const pccName = FindModule();
  return pccName;
}

void DetectLocDir(const char* pccArgV0, tString& oOut, void*) {
  oOut.assign(pccArgV0 ? pccArgV0 : "", fsplitp(pccArgV0));
  if (!oOut.empty() && oOut.front() == '/') return;
  const char* module = GetModuleName();
  oOut.insert(0, module, fsplitp(module));
}

void ConvertLocToHome(tString& oPath) {
  size_t parent = fpathup(oPath.c_str());
  if (parent > 0)
    oPath.resize(parent);
  else
    oPath += "../";
}
