#include "device/scheduled_sleep.h"

#include <time.h>

#include <optional>
#include <string>

#include "core/clock.h"
#include "core/files.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "core/units.h"
#include "device/power.h"
#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kExitDone = 0;
constexpr int kExitNotSuspended = 1;

constexpr std::size_t kMaxPresenceBytes = 4 * kKiB;
// The client reports well within that time, so an older record is one that nobody keeps up.
constexpr std::int64_t kPresenceLifetimeMs = 150 * kSecondMs;

constexpr std::int64_t kSecondsPerDay = 24 * kHourMs / kSecondMs;
constexpr int kMinutesPerHour = 60;
// Today's time may have passed and the same weekday be the only one, hence a week and a day.
constexpr int kDaysAhead = 7;
constexpr std::int64_t kShortestSleepSeconds = 60;

bool IsStreamLive(const std::string& runDir) {
  std::string text;
  if (!ReadFileLimited(runDir + "/kiosk-presence.json", kMaxPresenceBytes, text)) return false;
  const std::optional<Json> presence = Json::Parse(text);
  if (!presence || !presence->Get("live").AsBool(false)) return false;
  // Compared in this way, no time that the file may hold overflows.
  return presence->Get("at").AsInt(0) > WallNowMs() - kPresenceLifetimeMs;
}

// A local override decides alone: with its schedule off, the portal's does not count.
std::optional<PowerSchedule> FindScheduleInForce() {
  PowerPolicy policy;
  if (!LoadPowerPolicyInForce(policy) || !policy.schedule.enabled) return std::nullopt;
  return policy.schedule;
}

tm LocalTime(std::int64_t seconds) {
  const time_t moment = seconds;
  tm local = {};
  (void)::localtime_r(&moment, &local);  // fails only beyond the years that an int can count
  return local;
}

bool IsOneOfDays(int weekday, std::uint32_t days) {
  return (days >> weekday & 1U) != 0;
}

// That time of the day on a local date. -1 when there is no such time.
std::int64_t TimeOnDate(tm date, std::int32_t minutes) {
  date.tm_hour = minutes / kMinutesPerHour;
  date.tm_min = minutes % kMinutesPerHour;
  date.tm_sec = 0;
  date.tm_isdst = -1;  // whether it is summer time then is for the time zone to say
  return ::mktime(&date);
}

}  // namespace

int ScheduledSleep(const Config& config, Ops (*makeOps)(const Config& config)) {
  SetService(config, makeOps(config));
  StateLoad();
  if (IsStreamLive(config.runDir)) {
    Log("<4>power: scheduled sleep skipped, a stream session is live\n");
    return kExitDone;
  }
  const std::optional<PowerSchedule> schedule = FindScheduleInForce();
  if (!schedule) {
    Log("<4>power: scheduled sleep with no schedule in force; skipped\n");
    return kExitDone;
  }
  const std::int64_t wakeAt = FindWakeTime(*schedule, WallNowMs() / kSecondMs);
  Log("<6>power: scheduled sleep, waking at %lld\n", static_cast<long long>(wakeAt));
  return Platform().suspendUntil(wakeAt) ? kExitDone : kExitNotSuspended;
}

std::int64_t FindWakeTime(const PowerSchedule& schedule, std::int64_t now) {
  for (int day = 0; day <= kDaysAhead; ++day) {
    const tm date = LocalTime(now + day * kSecondsPerDay);
    if (!IsOneOfDays(date.tm_wday, schedule.days)) continue;
    const std::int64_t wakeAt = TimeOnDate(date, schedule.wakeAt);
    if (wakeAt > now + kShortestSleepSeconds) return wakeAt;
  }
  return 0;
}

}  // namespace Tarnvale::KioskService
