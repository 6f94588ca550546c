// Times of day as texts.
#pragma once
#include <ctime>

// Reads YYYYMMDDhhmmss (14 characters, none beyond them is looked at) as a local time and fills *poTm, which may be
// null, with it broken down as local time (fLocal) or as UTC. The year is counted from 1970 in a structure that counts
// from 1900, so the time lies 70 years before the text's; callers take differences, and stored names depend on it.
// -1, with *poTm untouched, when the text holds fewer than six numbers, and -1 when the time cannot be expressed.
time_t MakeLocTm(struct tm* poTm, const char* mcDaTin, bool fLocal);
