// The power policy: when the screen goes off, when the device suspends, and the daily sleep. Data
// and nothing else.

#ifndef TARNVALE_KIOSKD_DEVICE_POWER_POLICY_H_
#define TARNVALE_KIOSKD_DEVICE_POWER_POLICY_H_

#include <cstdint>

namespace Tarnvale::KioskService {

struct PowerSchedule {
  bool enabled = false;
  std::int32_t sleepAt = 1320;  // Minutes after local midnight, 0 to 1439: 22:00.
  std::int32_t wakeAt = 420;    // 07:00; never equal to sleepAt.
  std::uint32_t days = 0x3E;    // Bit 0 Sunday to bit 6 Saturday: Monday to Friday.

  bool operator==(const PowerSchedule&) const = default;
};

struct PowerPolicy {
  std::int32_t screenOffMinutes = 15;  // Minutes of idleness, 0 to 240; 0 is never.
  std::int32_t sleepMinutes = 0;       // As above, until the device suspends.
  PowerSchedule schedule;

  bool operator==(const PowerPolicy&) const = default;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_POWER_POLICY_H_
