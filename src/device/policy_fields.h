// The readers and writers of fields that the policies share: minutes, clock times, days of the
// week.
//
// For the power policy and the OS updates policy (their *_json.cc), and for `net.set`, whose prefix
// is such a number. The values come from the portal or from a client, parsed and otherwise unlooked
// at; a field that is not exactly right is refused, and its policy with it, because half a policy
// is none. Limits: 240 minutes, seven days, clock texts of five bytes. Pure functions on any
// thread; silent.

#ifndef TARNVALE_KIOSKD_DEVICE_POLICY_FIELDS_H_
#define TARNVALE_KIOSKD_DEVICE_POLICY_FIELDS_H_

#include <cstdint>
#include <string>

#include "json/json.h"

namespace Tarnvale::KioskService {

// The longest idle time that a policy may name.
inline constexpr int kMaxIdleMinutes = 240;

// Each reader fills its out-parameter on success and leaves it alone otherwise. All are silent.

// A JSON number that is whole and from `lowest` to `highest`. A string that holds a number is
// refused.
//
//   240 of 0 to 240    240
//   2.5                refused
//   "15"               refused
[[nodiscard]] bool ReadWholeNumber(const Json& value, int lowest, int highest, std::int32_t& out);

// Clock text of exactly five bytes, as minutes after midnight.
//
//   "22:00"   1320
//   "7:00"    refused
//   "24:00"   refused
[[nodiscard]] bool ParseClock(const Json& value, std::int32_t& minutes);

// At most seven whole numbers from 0 (Sunday) to 6, none twice, as a bit mask. No days are a mask
// of 0.
//
//   [1,5]   the mask 0x22
//   [1,1]   refused
//   [7]     refused
[[nodiscard]] bool ParseDays(const Json& value, std::uint32_t& mask);

// Minutes after midnight as "%02d:%02d".
[[nodiscard]] std::string FormatClock(std::int32_t minutes);

// The set bits of the mask as an ascending array.
[[nodiscard]] Json DaysToJson(std::uint32_t mask);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_POLICY_FIELDS_H_
