// The payment library as a till sees it: a shared object and three functions in it.
#pragma once
#include <memory>

#include "zat_client.h"
#include "zat_ms.h"
#include "ztypes.h"

namespace zat::client {

class Library {
public:
  // Loads the object at the path; a bare name means the current directory, never the system's search path.
  // Null with the fault otherwise; detail then holds the loader's words, or the function that is missing.
  static std::unique_ptr<Library> Load(const tString& path, LoadFault& fault, tString& detail);
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // From now on the object stays in memory until the process ends: a session in it is not over.
  void Keep() { fKeep = true; }

  // The terminal module that the library starts, which stands beside it.
  const tString& ModulePath() const { return oModule; }

  zat_ms_create_fn procCreate = nullptr;
  zat_ms_do_fn procDo = nullptr;
  zat_ms_destroy_fn procDestroy = nullptr;

private:
  Library(void* handle, const tString& path);

  void* pvHandle;
  bool fKeep = false;
  tString oModule;
};

} // namespace zat::client
