// Leaving the running state: the Linux slot reboot.

#ifndef TARNVALE_KIOSKD_DEVICE_POWER_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_POWER_LINUX_H_

namespace Tarnvale::KioskService {

// Asks logind to restart the terminal, and systemctl when logind does not answer. True when one of
// them accepted; logs logind's refusal. At most 40 s.
[[nodiscard]] bool Reboot();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_POWER_LINUX_H_
