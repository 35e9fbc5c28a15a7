// The texts of the files that carry a power policy to the system: the environment of the idle
// watcher, the drop-in of logind, and the two units of the sleep schedule. No file is touched here;
// the slots in power_linux.h write them. Any thread; silent.

#ifndef TARNVALE_KIOSKD_DEVICE_POWER_FILES_H_
#define TARNVALE_KIOSKD_DEVICE_POWER_FILES_H_

#include <string>

#include "device/power_policy.h"

namespace Tarnvale::KioskService {

// The environment file that the idle watcher of the kiosk session reads: seconds of idleness, 0 for
// never.
//
//   15 and 0 minutes      "SCREEN_OFF_SECONDS=900\nSLEEP_SECONDS=0\n"
//   0 and 240 minutes     "SCREEN_OFF_SECONDS=0\nSLEEP_SECONDS=14400\n"
[[nodiscard]] std::string PowerEnvText(const PowerPolicy& policy);

// The drop-in that makes logind suspend an idle terminal. Only for `sleepMinutes` above 0: logind
// would take 0 for "at once".
[[nodiscard]] std::string IdleDropInText(const PowerPolicy& policy);

// The unit that the timer starts: the installed executable with `--sleep-now` and nothing else,
// whatever options the running service was given.
[[nodiscard]] std::string SleepServiceText();

// The timer unit of a schedule with at least one day. It does not make up for a time that the
// terminal missed while it was off.
[[nodiscard]] std::string SleepTimerText(const PowerSchedule& schedule);

// When the schedule sends the terminal to sleep, as systemd's calendar reads it and the log tells
// it. The week begins on Sunday.
//
//   Monday to Friday, 22:00      "Mon,Tue,Wed,Thu,Fri 22:00:00"
//   Sunday and Saturday, 00:05   "Sun,Sat 00:05:00"
[[nodiscard]] std::string CalendarText(const PowerSchedule& schedule);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_POWER_FILES_H_
