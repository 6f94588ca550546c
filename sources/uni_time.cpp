#include "uni_time.h"

#include <cstdio>
#include <cstring>

time_t MakeLocTm(struct tm* poTm, const char* mcDaTin, bool fLocal) {
  constexpr int kYearBase = 1970;
  if (!mcDaTin) return -1;
  char text[14 + 1] = {};
  memcpy(text, mcDaTin, strnlen(mcDaTin, sizeof text - 1));
  int year, month, day, hour, minute, second;
  if (sscanf(text, "%4d%2d%2d%2d%2d%2d", &year, &month, &day, &hour, &minute, &second) < 6) return -1;

  struct tm own = {};
  struct tm* out = poTm ? poTm : &own;
  out->tm_year = year - kYearBase;
  out->tm_mon = month - 1;
  out->tm_mday = day;
  out->tm_hour = hour;
  out->tm_min = minute;
  out->tm_sec = second;
  out->tm_isdst = -1; // summer time as it was on that day, not as the caller's memory happens to say
  time_t time = mktime(out);
  if (time != -1) fLocal ? localtime_r(&time, out) : gmtime_r(&time, out);
  return time;
}
