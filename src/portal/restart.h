// The restart into kiosk mode: scheduled when a terminal has been enrolled, ten seconds ahead so
// that the person in front of it sees what happens, or brought forward with `restart.now`.
//
// The pending deadline is the ticket: whoever sets it to 0 restarts, the other finds nothing to do.

#ifndef TARNVALE_KIOSKD_PORTAL_RESTART_H_
#define TARNVALE_KIOSKD_PORTAL_RESTART_H_

#include "core/locks.h"
#include "core/units.h"

namespace Tarnvale::KioskService {

inline constexpr std::int64_t kRestartDelayMs = 10 * kSecondMs;

// Arms the restart, or moves the deadline of the one that is armed. Starts the restart thread when
// none is running. Logs it.
void ScheduleRestart() EXCLUDES(restartLock, stateLock, signallingLock);

// Takes the pending deadline and restarts the terminal; does nothing when none is pending. Logs the
// reason, and a restart that could not be started.
void RestartIntoKiosk(const char* reason) EXCLUDES(restartLock);

[[nodiscard]] bool IsRestartPending() EXCLUDES(restartLock, stateLock, signallingLock);

// Forgets a pending restart. Called by Run, before any other thread starts.
void ClearRestart() EXCLUDES(restartLock, stateLock, signallingLock);

// Forgets a pending restart and waits for the restart thread to end. Called by the main thread when
// the process stops.
void StopScheduledRestart() EXCLUDES(restartLock, stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_RESTART_H_
