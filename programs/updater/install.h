// Putting an unpacked update over an installation.
//
//   1  staged: each file is linked (or copied) beside its place under another name and is on the disk;
//   2  marked: the lock says so, on the disk;
//   3  placed: each file is renamed over the old one; the module's old file first gets a second name,
//   zat_mm.prev; 4  the unpacked tree is removed, the lock given up.
//
// Whatever can run out of space or meet a wrong file happens in step 1, which can be taken back. A power cut
// or a kill before the mark leaves the installation as it was; after it every place holds the old or the new
// file, and whoever runs the updater next finishes steps 3 and 4.
#pragma once
#include "updater.h"
#include <string>

namespace zat {

// Installs the tree dir over root. A broken-off installation is finished first; dir may then be missing.
// background set: eMUunderway as soon as the mark stands, and the rest goes on in a process of its own, whose
// report is the root's "updtlast.log". Otherwise eMUunderway when all is done. eMUbad: root is as it was
// before, or an earlier installation that kept failing was given up. eMUbusy: somebody else holds the lock.
tMUResult InstallUpdate(const std::string& dir, const std::string& root, bool background);

} // namespace zat
