// What the updater does when it is run without arguments: an updater that comes with an update must show that
// it works on this machine before it may take the place of the old one.
#pragma once
#include "updater.h"

namespace zat {

// Packs a small tree, unpacks and installs it in a temporary directory, compares every file, and makes sure
// that a damaged update is refused. eMUgood or eMUbad.
tMUResult SelfCheck();

} // namespace zat
