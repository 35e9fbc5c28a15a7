// OS updates through apt: the slots runUpdates, rebootRequired, scheduleUpdateRestart,
// takeUpdatesSchedule and restoreUpdatesSchedule.
//
// RunApt is called by the settings worker or by the automatic updates, never by a connection; who
// calls sees to it that one run is under way at a time. Runs apt-get, apt-cache (100 packages each
// time) and shutdown; looks for /run/reboot-required; writes
// /etc/apt/apt.conf.d/52tarnvale-kiosk-updates. Takes no lock.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_LINUX_H_

#include <atomic>
#include <vector>

#include "device/os_update.h"
#include "device/updates_policy.h"

namespace Tarnvale::KioskService {

// Refreshes the package lists and works out what an upgrade would do; with `install`, does it.
// `updates` receives what is pending at the end, and is left alone when that is not known.
// `progress` runs from 0 to 100 during the upgrade and back between its two halves; any thread may
// read it. The upgrade is not undone or repaired when it fails: the next run starts from the top.
//
// Up to 15 min of refresh, 2 h of upgrade, 2 min for each of two simulations and 1 min for the
// sizes of every hundred packages. The error of the result is "apt_missing", "search_failed" (lists
// or simulation), or "install_failed " with the exit status; what apt said to a failed refresh or
// upgrade is logged.
[[nodiscard]] WuRun RunApt(bool install, std::vector<OsUpdate>* updates,
                           std::atomic<int>* progress);

// Whether the system's marker file asks for a restart. It says nothing of which package did.
[[nodiscard]] bool RebootRequired();

// Has the system restarted a minute from now; asks for at most 20 s. True when it was accepted.
[[nodiscard]] bool ScheduleUpdateRestart();

// Keeps the distribution's own unattended upgrades away from the terminal while the service does
// them. Called every minute: a file that is right is not touched. Logs a failure.
void TakeUpdatesSchedule(const UpdatesPolicy& policy);

// Gives them back. Silent.
void RestoreUpdatesSchedule();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_LINUX_H_
