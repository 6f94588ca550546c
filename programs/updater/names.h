// Which names and links of an update may be put into a directory: only those that stay inside it.
#pragma once
#include <string>

namespace zat {

// A file that stands in a directory while an update is being unpacked there: its contents are not whole.
inline constexpr const char* kUnpacking = ".zat_mu";
// The end of a file's name while it waits beside the one it will replace.
inline constexpr const char* kStaged = ".updtnew";

// The path of an archive's entry without "." parts and doubled or closing slashes; empty when it names the
// directory itself.
std::string TidyPath(const std::string& path);

// Whether a tidy path may be unpacked: relative, without "..", and no name that the updater or the launchers
// use for themselves (lock files in the root, the two names above).
bool PathStays(const std::string& path);

// Whether a symbolic link at the tidy path, pointing to target, stays inside. ".." is allowed only at the
// target's beginning and no further up than the link stands deep: after another name it would climb from
// wherever that name leads to, and a chain of harmless-looking links could leave the directory.
bool LinkStays(const std::string& path, const std::string& target);

} // namespace zat
