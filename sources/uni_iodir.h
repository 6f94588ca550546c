// Where the installation is: found from the loaded object's own path, never from the working directory.
#pragma once
#include "ztypes.h"

// The path of the file that this code was loaded from, as the dynamic loader knows it. A relative one is made absolute
// while the object is loaded: a host that changes its directory later does not lose its installation. Never null; not
// owned by the caller; good until the object is unloaded, in the last destructor too.
const char* GetModuleName();

// The directory part of a program's path, with its last '/'. A bare or relative name is taken to lie in the directory
// of the loaded object, which is put in front. pvDLLglobal is not used.
void DetectLocDir(const char* pccArgV0, tString& oOut, void* pvDLLglobal = nullptr);

// Replaces a directory (ending with '/') by its parent; one without a named parent gets "../" appended.
void ConvertLocToHome(tString& oPath);
