// The types that every layer shares.
#pragma once
#include <cstdint>
#include <string>

typedef std::string tString; // bytes, no encoding; texts for people are Windows-1251 unless said otherwise
typedef uint64_t tTicks;     // process-times clock ticks (TicksGet); limits given beside them are milliseconds
typedef uint64_t tLen;       // a count of bytes on the link
typedef char tBool;          // 0 or 1, one byte wide: part of structures that other programs fill
