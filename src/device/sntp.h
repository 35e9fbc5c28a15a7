// The SNTP packet: the request, and what the answer tells of the clock.
//
// For SntpOffset (device/time_linux.cc), which does the exchange. A packet is 48 bytes; any bytes
// may be handed in. The answer is believed without proof, from any sender: the offset is for
// reporting, and nothing sets the clock by it. Pure functions on any thread.

#ifndef TARNVALE_KIOSKD_DEVICE_SNTP_H_
#define TARNVALE_KIOSKD_DEVICE_SNTP_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tarnvale::KioskService {

inline constexpr std::size_t kSntpPacketBytes = 48;

// The request, the same for every server: version 3, client, all timestamps zero.
[[nodiscard]] std::string SntpRequest();

// Works out by how many milliseconds the local clock is behind the server's, negative when it is
// ahead, from the answer and the local times around the exchange (milliseconds since the Unix
// epoch). The mean of both ways, truncated toward zero. False, with `offsetMs` untouched, when the
// packet is not a synchronised server's answer:
//
//   48 bytes, mode 4, stratum 1, both stamps 5 s after the local times   5000
//   the same with stratum 0, which a server refuses with                 false
//   the same with 47 bytes                                               false
[[nodiscard]] bool ReadSntpAnswer(std::string_view packet, std::int64_t sentAtMs,
                                  std::int64_t receivedAtMs, std::int64_t& offsetMs);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_SNTP_H_
