// The power policy as a JSON document.
//
// It comes from the portal with a check-in or is made at the terminal, and is kept in the state as
// the text of PowerPolicyToJson, never as it was sent. A policy that its reader refuses is refused
// as a whole. Any thread; silent.

#ifndef TARNVALE_KIOSKD_DEVICE_POWER_POLICY_JSON_H_
#define TARNVALE_KIOSKD_DEVICE_POWER_POLICY_JSON_H_

#include "device/power_policy.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// Accepts the JSON form, all members of which are required; overwrites `policy` on success only.
//
//   {"screenOffMinutes":15,"sleepMinutes":0,"schedule":{"enabled":false,"sleepAt":"22:00",
//    "wakeAt":"07:00","days":[]}}                    accepted
//   the same with "sleepMinutes":241                  refused
//   the same without "schedule"                       refused
[[nodiscard]] bool ReadPowerPolicy(const Json& value, PowerPolicy& policy);

// The reader of the member `schedule`. A disabled schedule may have no days, an enabled one not.
[[nodiscard]] bool ReadSchedule(const Json& value, PowerSchedule& schedule);

// The canonical object: screenOffMinutes, sleepMinutes, schedule (enabled, sleepAt, wakeAt, days).
[[nodiscard]] Json PowerPolicyToJson(const PowerPolicy& policy);

// Reads the policy that stands under a state key. False, with `policy` untouched, when there is
// none.
[[nodiscard]] bool LoadPowerPolicy(const char* key, PowerPolicy& policy);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_POWER_POLICY_JSON_H_
