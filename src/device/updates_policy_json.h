// The OS updates policy as a JSON document.
//
// It comes from the portal with a check-in and is kept in the state as the text of
// UpdatesPolicyToJson, never as it was sent. A policy that its reader refuses is refused as a
// whole. Any thread; silent.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_JSON_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_JSON_H_

#include "device/updates_policy.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// Accepts the JSON form and overwrites `policy` on success only. The window is required, also when
// `automatic` is false, and so is a day.
//
//   {"automatic":true,"window":{"start":"22:00","end":"04:00","days":[1]}}   accepted, passes
//   midnight the same with "end":"22:00"                                              refused
//   {"automatic":true}                                                       refused
[[nodiscard]] bool UpdatesPolicyFromJson(const Json& value, UpdatesPolicy& policy);

// The canonical object: automatic, window (start, end, days).
[[nodiscard]] Json UpdatesPolicyToJson(const UpdatesPolicy& policy);

// Reads the policy that stands in the state. False, with `policy` untouched, when there is none.
[[nodiscard]] bool LoadUpdatesPolicy(UpdatesPolicy& policy);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_JSON_H_
