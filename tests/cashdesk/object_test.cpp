// The shared object as a guest in somebody's process.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>
#include <string>

#include "till.h"

namespace {

std::string OutputOf(const std::string& command) {
  std::string text;
  FILE* stream = popen(command.c_str(), "r");
  std::array<char, 4096> part;
  for (size_t n; stream && (n = fread(part.data(), 1, part.size(), stream)) > 0;) text.append(part.data(), n);
  if (stream) pclose(stream);
  return text;
}

// A name more would let a host's function of the same name take the place of ours.
TEST(Object, ExportsItsInterfaceAndNothingElse) {
  std::string listing =
      OutputOf("nm -D --defined-only " ZAT_INSTALLATION "/BIN/libzat_ms.so | awk '{print $3}'");
  std::set<std::string> names;
  for (size_t at = 0, end; (end = listing.find('\n', at)) != std::string::npos; at = end + 1)
    names.insert(listing.substr(at, end - at));
  for (const char* name : {"eftp_create", "eftp_do", "eftp_destroy", "main"})
    EXPECT_EQ(names.count(name), 1u) << name;
  std::set<std::string> link = {};
  for (const std::string& name : names)
    if (name != "main" && !name.starts_with("eftp_")) link.insert(name);
  EXPECT_EQ(link.size(), 0u) << listing;
}

TEST(Object, IsUnloadedByDlclose) {
  Installation site(ZAT_SCRIPTED_MODULE);
  LoadedObject lib(site.Library());
  ASSERT_NE(lib.handle, nullptr);
  lib.destroy(lib.create(nullptr));
  lib.Unload();
  EXPECT_EQ(dlopen(site.Library().c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

} // namespace
