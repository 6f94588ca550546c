// In the archive that other programs link, the message pieces say nothing: the log belongs to libzat_ms.so, and a
// program that merely talks to it must not find files written beside itself.
#include "SLogger.h"

void GSLog(int, const char*, ...) {}
void GSData(int, const char*, const char*, int, bool) {}
bool GSWants(int) { return false; }
void GSErrno(const char*, const char*, const char*) {}
