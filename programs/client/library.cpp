#include "library.h"

#include <dlfcn.h>
#include <unistd.h>

namespace zat::client {
namespace {

constexpr char kModule[] = "zat_mm";

tString Directory(const tString& path) { return path.substr(0, path.rfind('/') + 1); }

template<class Function> bool Take(void* handle, const char* name, Function& function, tString& missing) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  if (!function) missing = name;
  return function != nullptr;
}

} // namespace

Library::Library(void* handle, const tString& path) : pvHandle(handle), oModule(Directory(path) + kModule) {}

Library::~Library() {
  if (!fKeep) dlclose(pvHandle);
}

std::unique_ptr<Library> Library::Load(const tString& given, LoadFault& fault, tString& detail) {
  tString path = given.find('/') == given.npos ? "./" + given : given;
  fault = LoadFault::Missing;
  if (access(path.c_str(), F_OK) != 0) return nullptr;

  fault = LoadFault::Unreadable;
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* words = dlerror();
    detail = words ? words : "";
    if (detail.starts_with(path + ": ")) detail.erase(0, path.size() + 2); // our own words name it already
    return nullptr;
  }

  fault = LoadFault::Foreign;
  std::unique_ptr<Library> library(new Library(handle, path));
  if (!Take(handle, "eftp_create", library->procCreate, detail) ||
      !Take(handle, "eftp_do", library->procDo, detail) ||
      !Take(handle, "eftp_destroy", library->procDestroy, detail))
    return nullptr;
  fault = LoadFault::None;
  return library;
}

} // namespace zat::client
