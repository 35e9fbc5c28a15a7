// How the terminal reaches the outside. Data and nothing else.

#ifndef TARNVALE_KIOSKD_DEVICE_PROXY_CHANGE_H_
#define TARNVALE_KIOSKD_DEVICE_PROXY_CHANGE_H_

#include <string>
#include <vector>

namespace Tarnvale::KioskService {

struct ProxyChange {
  std::string mode;                 // "none", "manual" or "auto".
  std::string pacUrl;               // "auto" only: trimmed, in its own case.
  std::string server;               // "manual" only: host:port, trimmed, lower case.
  std::vector<std::string> bypass;  // "manual" only: hosts that go direct, lower case, no doubles.
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_PROXY_CHANGE_H_
