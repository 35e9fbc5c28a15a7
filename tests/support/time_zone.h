// The local time of a test, whatever that of the machine is.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_TIME_ZONE_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_TIME_ZONE_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace Tarnvale::KioskService {

// The rules are written out, so no test depends on the zone files that are installed.
inline constexpr char kUtc[] = "UTC0";
// An hour is left out on the last Sunday of March at 02:00, and comes twice on that of October at
// 02:00 to 03:00.
inline constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

inline void UseTimeZone(const char* rule) {
  ASSERT_EQ(::setenv("TZ", rule, 1), 0);
}

// Seconds since the epoch at this local time; where that comes twice, the second with `dst` 0 and
// the first with 1.
inline std::time_t LocalTime(int year, int month, int day, int hour, int minute, int second = 0,
                             int dst = -1) {
  std::tm local = {};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = dst;
  return std::mktime(&local);
}

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_TIME_ZONE_H_
