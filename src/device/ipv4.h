// IPv4 addresses as text and as numbers.
//
// Called by the commands that take addresses from the peer (`net.set`, `proxy.set`) and by whoever
// writes them out again. Pure functions on any thread. In a number the first octet is in the top
// byte, so that masks and comparisons read as they are written.

#ifndef TARNVALE_KIOSKD_DEVICE_IPV4_H_
#define TARNVALE_KIOSKD_DEVICE_IPV4_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "json/json.h"

namespace Tarnvale::KioskService {

// Reads a JSON string of exactly four decimal octets, at most 15 bytes. A leading zero is refused,
// because some programs take such an octet for an octal number. False, silently and with `address`
// untouched, for everything else.
//
//   "192.168.0.7"    0xC0A80007
//   "192.168.010.7"  refused
//   "192.168.0.256"  refused
[[nodiscard]] bool ParseIpv4(const Json& value, std::uint32_t& address);

// The address in dotted decimal, as ParseIpv4 reads it.
[[nodiscard]] std::string FormatIpv4(std::uint32_t address);

// All of them in dotted decimal, with `separator` between each two.
[[nodiscard]] std::string JoinIpv4(const std::vector<std::uint32_t>& addresses,
                                   std::string_view separator);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_IPV4_H_
