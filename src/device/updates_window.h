// Maintenance windows: which one is open at a moment.
//
// A window is known by the day on which it opened, so one that runs past midnight keeps its name
// through the night. The updates loop asks once a minute, and again when a run has ended. Reads the
// system's time zone and nothing else. Silent.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_WINDOW_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_WINDOW_H_

#include <ctime>
#include <string>

#include "device/updates_policy.h"

namespace Tarnvale::KioskService {

// The key of the window that is open at `now`, the local date on which it opened as
// "%04d-%02d-%02d"; empty when none is open. The days of the policy ask about that date, and
// whether the policy is automatic does not matter.
//
//   02:00 to 05:00 on Mondays, Monday 2026-10-05 at 02:00    "2026-10-05"
//   22:00 to 04:00 on Mondays, Tuesday 2026-10-06 at 01:00   "2026-10-05"
//   02:00 to 05:00 on Mondays, Monday 2026-10-05 at 05:00    ""
//
// Behind midnight the opening day is that of 86400 seconds earlier. In the first hour after a day
// of 23 hours this is the day before that one.
[[nodiscard]] std::string WindowKey(const UpdatesPolicy& policy, std::time_t now);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_WINDOW_H_
