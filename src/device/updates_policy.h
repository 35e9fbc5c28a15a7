// The OS updates policy: whether updates run by themselves, and in which window.
//
// It comes from the portal with a check-in and is kept in the state as the text of
// UpdatesPolicyToJson, never as it was sent. A policy that its reader refuses is refused as a
// whole. Any thread; silent.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_H_

#include <cstdint>

#include "json/json.h"

namespace Tarnvale::KioskService {

struct UpdatesPolicy {
  bool automatic = false;
  std::int32_t windowStart = 120;  // Minutes after local midnight: 02:00.
  std::int32_t windowEnd =
      300;  // 05:00, exclusive. Earlier than the start: the window passes midnight.
  std::uint32_t days = 127;  // Bit 0 Sunday to bit 6 Saturday: on which the window may open.

  bool operator==(const UpdatesPolicy&) const = default;
};

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

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_H_
