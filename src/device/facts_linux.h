// What the running system tells about itself: the Linux slots bootTime, screenCount, osVersion and
// hostName.
//
// For pairing, which tells the portal what terminal asks for a code, and for Run, which ends a
// maintenance that began before the last boot. They read /proc/stat, the files `status` of the
// connectors below /sys/class/drm, /etc/os-release and the kernel's host name anew at each call:
// none of them costs more than a few small files. The texts are read by device/facts.h. Any thread;
// no lock, no wait; silent, because a machine that does not tell has a plain answer for each.

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
