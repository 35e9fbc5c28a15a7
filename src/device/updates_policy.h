// The OS updates policy: whether updates run by themselves, and in which window. Data and nothing
// else.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_H_

#include <cstdint>

namespace Tarnvale::KioskService {

struct UpdatesPolicy {
  bool automatic = false;
  std::int32_t windowStart = 120;  // Minutes after local midnight: 02:00.
  std::int32_t windowEnd =
      300;  // 05:00, exclusive. Earlier than the start: the window passes midnight.
  std::uint32_t days = 127;  // Bit 0 Sunday to bit 6 Saturday: on which the window may open.

  bool operator==(const UpdatesPolicy&) const = default;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_POLICY_H_
