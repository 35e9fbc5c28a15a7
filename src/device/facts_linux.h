// What the running system tells about itself: the Linux slots bootTime, screenCount, osVersion and
// hostName. Any thread; a few file reads each; silent.

#ifndef TARNVALE_KIOSKD_DEVICE_FACTS_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_FACTS_LINUX_H_

#include <string>

namespace Tarnvale::KioskService {

// From /proc/stat, in milliseconds since the epoch; 0 when it does not tell.
[[nodiscard]] long BootTime();

// Connected outputs of all cards below /sys/class/drm. A terminal that reports none is taken to
// have one, so the portal never sees a 0.
[[nodiscard]] int ScreenCount();

// From /etc/os-release; "Linux" when it does not tell.
[[nodiscard]] std::string OsVersion();

// gethostname, at most 255 bytes; empty on failure.
[[nodiscard]] std::string HostName();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_FACTS_LINUX_H_
