#include "version.h"

#ifndef ZAT_MM_VERSION
#define ZAT_MM_VERSION "1.0.0"
#endif

namespace {
constexpr char mcModule[] = "zat_mm " ZAT_MM_VERSION;
constexpr int kGreeting = 29;
static_assert(sizeof mcModule - 1 <= kGreeting, "a till would cut this greeting");
} // namespace

const char* const zat::pccModule = mcModule;
