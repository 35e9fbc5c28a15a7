// Writing the system proxy: the slot applyProxy.
//
// Called by `proxy.set` on its connection's thread, without a lock: of two at once the last rename
// of each file stands. Writes proxy.env in the configured directory, and
// /etc/apt/apt.conf.d/95tarnvale-kiosk-proxy; nothing else in the service touches them. Both are
// 0644. Runs no child and waits for nothing but the disk.

#ifndef TARNVALE_KIOSKD_DEVICE_PROXY_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_PROXY_LINUX_H_

#include <string>

#include "device/proxy_change.h"

namespace Tarnvale::KioskService {

// Writes proxy.env into `etcDir`, which it makes when it is missing, and the package manager's file
// for a manual proxy; for the other modes that one is removed. Files that agree already are not
// touched. True when proxy.env exists afterwards, so a write that failed over an old file counts as
// success; WriteIfChanged logs it. No way back between the two files.
[[nodiscard]] bool ApplyProxy(const ProxyChange& change, const std::string& etcDir);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_PROXY_LINUX_H_
