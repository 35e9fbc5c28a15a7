#include "device/power_files.h"

#include <cstddef>
#include <iterator>
#include <vector>

#include "core/text.h"
#include "device/policy_fields.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kSecondsPerMinute = 60;
constexpr const char* kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

std::string JoinDays(std::uint32_t days) {
  std::vector<std::string> names;
  for (std::size_t day = 0; day < std::size(kDayNames); ++day) {
    if ((days >> day & 1U) != 0) names.emplace_back(kDayNames[day]);
  }
  return Join(names, ",");
}

}  // namespace

std::string PowerEnvText(const PowerPolicy& policy) {
  return FormatText("SCREEN_OFF_SECONDS=%d\nSLEEP_SECONDS=%d\n",
                    policy.screenOffMinutes * kSecondsPerMinute,
                    policy.sleepMinutes * kSecondsPerMinute);
}

std::string IdleDropInText(const PowerPolicy& policy) {
  return FormatText("[Login]\nIdleAction=suspend\nIdleActionSec=%dmin\n", policy.sleepMinutes);
}

std::string SleepServiceText() {
  return "[Unit]\n"
         "Description=Tarnvale kiosk scheduled sleep\n"
         "\n"
         "[Service]\n"
         "Type=oneshot\n"
         "ExecStart=/usr/lib/tarnvale-stream/tarnvale-kioskd --sleep-now\n";
}

std::string SleepTimerText(const PowerSchedule& schedule) {
  return "[Unit]\n"
         "Description=Tarnvale kiosk scheduled sleep\n"
         "\n"
         "[Timer]\n"
         "OnCalendar=" +
         CalendarText(schedule) +
         "\n"
         "Persistent=false\n"
         "AccuracySec=1s\n"
         "\n"
         "[Install]\n"
         "WantedBy=timers.target\n";
}

std::string CalendarText(const PowerSchedule& schedule) {
  return JoinDays(schedule.days) + " " + FormatClock(schedule.sleepAt) + ":00";
}

}  // namespace Tarnvale::KioskService
