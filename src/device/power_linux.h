// Power on a Linux system: the slots applyPower, removePower, suspendUntil and reboot.
//
// A policy becomes three of the system's own mechanisms, and no daemon of ours runs for it:
// "power.env" in Config.etcDir for the idle watcher of the kiosk session, a drop-in below
// /etc/systemd/logind.conf.d for suspending an idle terminal, and the units
// "tarnvale-kiosk-sleep.timer" and ".service" in /etc/systemd/system, which start this program with
// `--sleep-now`. Driven with systemctl, rtcwake and logind's D-Bus interface. Any thread.

#ifndef TARNVALE_KIOSKD_DEVICE_POWER_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_POWER_LINUX_H_

#include <string>

#include "core/config.h"
#include "device/power_policy.h"

namespace Tarnvale::KioskService {

// Writes the policy to the system. Touches nothing and starts nothing when the files already agree.
// Logs what has changed; the writer logs a file that could not be written, which counts as
// unchanged, so that the next application tries again. The result is empty, or "wake_unavailable"
// when the schedule is in force on a terminal whose clock cannot wake it: that is logged each time,
// and the terminal goes to sleep all the same. At most 220 s of child processes, during which the
// caller holds the power lock.
[[nodiscard]] std::string ApplyPower(const Config& config, const PowerPolicy& policy);

// Removes all that ApplyPower put in place. Silent; what is missing already is passed over. At most
// 140 s of child processes, during which the caller holds the power lock.
void RemovePower(const Config& config);

// Suspends until `wakeAt` (Unix time in seconds, below 1 for none) and returns when the terminal is
// awake again, up to 24 h later. Without a clock that can wake it, or when rtcwake fails, which is
// logged, the terminal is suspended with no time to wake. False when it could not be suspended.
[[nodiscard]] bool SuspendUntil(long wakeAt);

// Asks logind to restart the terminal, and systemctl when logind does not answer. True when one of
// them accepted; logs logind's refusal. At most 40 s.
[[nodiscard]] bool Reboot();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_POWER_LINUX_H_
