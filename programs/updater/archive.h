// Update files: a tar archive, compressed with xz, gzip or bzip2, of the tree that is put over an
// installation.
#pragma once
#include "updater.h"
#include <string>

namespace zat {

// Unpacks an update file into a directory, which is made when it is missing and must otherwise be empty, or
// hold nothing but what an earlier, broken-off run left. eMUunpacked: all of it is there and on the disk.
// eMUbad: the directory is empty again. Refused are damaged archives, names and links that leave the
// directory, entries that are neither files nor directories nor links, a name that comes twice, and more than
// 2 GiB.
tMUResult UnpackUpdate(const std::string& file, const std::string& dir);

// Makes an update file of a directory. The file gets its name when it is complete: until then it has ".tmp"
// behind its name, which is how a download directory knows an update that is still being written. eMUgood or
// eMUbad.
tMUResult PackUpdate(const std::string& dir, const std::string& file);

} // namespace zat
