#include "device/power_policy_json.h"

#include "core/state.h"
#include "device/policy_fields.h"
#include "json/object.h"

namespace Tarnvale::KioskService {

bool ReadPowerPolicy(const Json& value, PowerPolicy& policy) {
  PowerPolicy read;
  if (!value.IsObject()) return false;
  if (!ReadWholeNumber(value.Get("screenOffMinutes"), 0, kMaxIdleMinutes, read.screenOffMinutes)) {
    return false;
  }
  if (!ReadWholeNumber(value.Get("sleepMinutes"), 0, kMaxIdleMinutes, read.sleepMinutes)) {
    return false;
  }
  if (!ReadSchedule(value.Get("schedule"), read.schedule)) return false;
  policy = read;
  return true;
}

bool ReadSchedule(const Json& value, PowerSchedule& schedule) {
  PowerSchedule read;
  if (!value.IsObject() || !value.Get("enabled").IsBool()) return false;
  read.enabled = value.Get("enabled").boolean;
  if (!ParseClock(value.Get("sleepAt"), read.sleepAt)) return false;
  if (!ParseClock(value.Get("wakeAt"), read.wakeAt)) return false;
  if (read.sleepAt == read.wakeAt) return false;
  if (!ParseDays(value.Get("days"), read.days)) return false;
  if (read.enabled && read.days == 0) return false;
  schedule = read;
  return true;
}

Json PowerPolicyToJson(const PowerPolicy& policy) {
  Json schedule = Json::Object();
  schedule.Set("enabled", policy.schedule.enabled);
  schedule.Set("sleepAt", FormatClock(policy.schedule.sleepAt));
  schedule.Set("wakeAt", FormatClock(policy.schedule.wakeAt));
  schedule.Set("days", DaysToJson(policy.schedule.days));
  Json object = Json::Object();
  object.Set("screenOffMinutes", policy.screenOffMinutes);
  object.Set("sleepMinutes", policy.sleepMinutes);
  object.Set("schedule", schedule);
  return object;
}

bool LoadPowerPolicy(const char* key, PowerPolicy& policy) {
  return ReadPowerPolicy(ParseObjectOrEmpty(StateGetString(key)), policy);
}

}  // namespace Tarnvale::KioskService
