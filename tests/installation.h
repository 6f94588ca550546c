// An installation of its own for one test: copies of the built object and of a terminal module in a scratch
// directory, with configuration files that a test may replace. Nothing outside it is touched.
#pragma once
#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "scratch.h"
#include "zat_ms.h"

class Installation : public Scratch {
public:
  // `module` is the program that plays zat_mm; empty for an installation without one.
  explicit Installation(const std::string& module = "") {
    std::filesystem::create_directories(*this / "BIN");
    Copy(std::string(ZAT_INSTALLATION) + "/BIN/libzat_ms.so", "BIN/libzat_ms.so");
    if (!module.empty()) Copy(module, "BIN/zat_mm");
    Put("micromgl.cfg", "[ENV]\nLOGLEVEL=H\n[TILL]\nBREAK=1\n");
    Put("eftpos.cfg", "[COMMON]\nDefaultOkTimeout=0\nDefaultNOkTimeout=0\n");
  }

  void Copy(const std::string& from, const std::string& name) const {
    std::filesystem::copy_file(from, *this / name, std::filesystem::copy_options::overwrite_existing);
  }

  std::string Library() const { return *this / "BIN/libzat_ms.so"; }
  std::string Log() const { return Get("BIN/zat_comm.log"); }
};

// The object as a till has it: loaded with dlopen, the three functions taken with dlsym.
class LoadedObject {
public:
  explicit LoadedObject(const std::string& path) : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (!handle) return;
    create = reinterpret_cast<zat_ms_create_fn>(dlsym(handle, "eftp_create"));
    call = reinterpret_cast<zat_ms_do_fn>(dlsym(handle, "eftp_do"));
    destroy = reinterpret_cast<zat_ms_destroy_fn>(dlsym(handle, "eftp_destroy"));
  }
  ~LoadedObject() { Unload(); }
  LoadedObject(const LoadedObject&) = delete;
  LoadedObject& operator=(const LoadedObject&) = delete;

  void Unload() {
    if (handle) dlclose(handle);
    handle = nullptr;
  }

  void* handle;
  zat_ms_create_fn create = nullptr;
  zat_ms_do_fn call = nullptr;
  zat_ms_destroy_fn destroy = nullptr;
};
