// What a person at the terminal wants of one network adapter. Data and nothing else.

#ifndef TARNVALE_KIOSKD_DEVICE_NET_CHANGE_H_
#define TARNVALE_KIOSKD_DEVICE_NET_CHANGE_H_

#include <cstdint>
#include <string>
#include <vector>

namespace Tarnvale::KioskService {

// Addresses carry their first octet in the top byte.
struct NetChange {
  std::string adapter;  // Interface name, at most 15 bytes.
  bool dhcp = true;     // Without it the fields from `ip` to `gateway` count.
  std::uint32_t ip = 0;
  std::uint32_t netmask = 0;  // Made from `prefix`.
  std::int32_t prefix = 0;    // 1 to 32.
  bool hasGateway = false;
  std::uint32_t gateway = 0;
  std::vector<std::uint32_t> dns;  // At most 4, in the order of the request.
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_NET_CHANGE_H_
