// Hosts and ports as they stand in proxy addresses.
//
// Called by `proxy.set` on its connection's thread. Pure and silent functions on text that is in
// lower case already. What passes here ends up unquoted in an environment file and in a file of the
// package manager: no byte that means anything there gets through. Limits: a name of 253 bytes with
// labels of 63, an IPv6 address of 45 bytes, a port of 5 digits.

#ifndef TARNVALE_KIOSKD_DEVICE_HOSTS_H_
#define TARNVALE_KIOSKD_DEVICE_HOSTS_H_

#include <cstdint>
#include <string_view>

namespace Tarnvale::KioskService {

// Whether this is an IPv4 address or a host name in lower case; with `bracketed`, whether it is an
// IPv6 address as it stands between brackets. What looks like an IPv4 address and is none is
// refused: it cannot be a name.
//
//   proxy.example   valid
//   ::1, bracketed  valid
//   10.0.0.256      not valid
[[nodiscard]] bool ValidHost(std::string_view text, bool bracketed);

// 1 to 5 digits without a leading zero, from 1 to 65535. False otherwise, with `port` untouched.
//
//   3128    3128
//   080     refused
//   65536   refused
[[nodiscard]] bool ParsePort(std::string_view text, std::int32_t& port);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_HOSTS_H_
