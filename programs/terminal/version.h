// The name and version that the module greets with: the one thing that tells two builds of it apart.
#pragma once

namespace zat {

// "zat_mm 1.0.0"; at most 29 bytes, because a till reads no more of a greeting.
extern const char* const pccModule;

} // namespace zat
