#include "selfcheck.h"
#include "archive.h"
#include "install.h"
#include "tree.h"
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace zat {
namespace {

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

bool WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
  return bool(out.flush());
}

// A module, a larger file that does not compress away, a link, an empty directory.
bool MakeTree(const std::string& top) {
  std::string noise(100000, '\0');
  uint32_t state = 1;
  for (char& c : noise) c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
  for (const char* dir : {"", "/BIN", "/EMPTY"})
    if (mkdir((top + dir).c_str(), 0755)) return Complain("%s%s: %s", top.c_str(), dir, strerror(errno));
  return WriteAll(top + "/BIN/zat_mm", "module") && WriteAll(top + "/noise", noise) &&
         chmod((top + "/BIN/zat_mm").c_str(), 0755) == 0 &&
         symlink("../noise", (top + "/BIN/link").c_str()) == 0;
}

bool SameTree(const std::string& left, const std::string& right) {
  std::vector<tTreeEntry> a, b;
  if (!ListTree(left, a) || !ListTree(right, b)) return false;
  bool same = a.size() == b.size();
  for (size_t i = 0; same && i < a.size(); ++i) {
    same = a[i].path == b[i].path && a[i].mode == b[i].mode && a[i].target == b[i].target;
    if (S_ISREG(a[i].mode))
      same = same && ReadAll(left + "/" + a[i].path) == ReadAll(right + "/" + a[i].path);
  }
  return same || Complain("%s and %s differ", left.c_str(), right.c_str());
}

bool Check(const std::string& top) {
  const std::string tree = top + "/tree", file = top + "/update", bad = top + "/damaged";
  const std::string unpacked = top + "/unpacked", root = top + "/root";
  if (!MakeTree(tree) || PackUpdate(tree, file) != eMUgood) return false;
  if (UnpackUpdate(file, unpacked) != eMUunpacked || !SameTree(tree, unpacked)) return false;
  if (mkdir(root.c_str(), 0755) || InstallUpdate(unpacked, root, false) != eMUunderway) return false;
  std::string bytes = ReadAll(file);
  if (!SameTree(tree, root) || bytes.empty()) return false;
  bytes[bytes.size() / 2] ^= 1;
  const tQuiet quiet;
  return WriteAll(bad, bytes) && UnpackUpdate(bad, unpacked) == eMUbad;
}

} // namespace

tMUResult SelfCheck() {
  const char* wanted = getenv("TMPDIR");
  for (const char* place : {wanted ? wanted : "/tmp", "/tmp", "/var/tmp"}) {
    std::string top = std::string(place) + "/zat_mu_XXXXXX";
    if (*place != '/' || !mkdtemp(top.data())) continue;
    const bool good = Check(top);
    RemoveTree(top);
    return good ? eMUgood : eMUbad;
  }
  return Complain("no temporary directory"), eMUbad;
}

} // namespace zat
