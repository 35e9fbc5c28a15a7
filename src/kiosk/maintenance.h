// Maintenance: kiosk mode suspended, so that an administrator can work at the machine.
//
// It begins with the exit password or a settings unlock, and ends when an administrator's session
// ends or the terminal restarts; a restart of this service alone does not end it. While it is in
// force a marker file holds the kiosk session off (the slot setMaintenanceMarker), and nothing else
// changes: check-ins and policies go on. The state tells that it is in force and since when.
// Connection threads begin it; start-up and the session watcher end it.

#ifndef TARNVALE_KIOSKD_KIOSK_MAINTENANCE_H_
#define TARNVALE_KIOSKD_KIOSK_MAINTENANCE_H_

#include <functional>
#include <string>

#include "core/locks.h"

namespace Tarnvale::KioskService {

// Whether maintenance is in force.
[[nodiscard]] bool InMaintenance();

// The `maintenance` command. A valid unlock is enough, and the portal is not asked then; without
// one the password decides. Answers the reply text: ok, or an error, that of CheckExitPassword or
// `not_unlocked` for an unlock that is not valid and no password. The state and the marker stand
// before the kiosk session is ended, which is left to `after`, because the peer is that session and
// must have its reply first. Ends the settings unlock. Logs what is accepted, not the refusals.
// Waits for whoever holds the lifecycle lock, up to 1050 s.
[[nodiscard]] std::string Maintenance(const std::string& unlockToken, const std::string& password,
                                      const std::string& session, std::function<void()>& after)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, passwordLock, unlockLock, adminSessionsLock,
             stateLock, signallingLock);

// Ends maintenance, if it is in force: forgets it and, on a provisioned terminal, removes the
// marker and starts the kiosk session again. `reason` is for the log, where the end is told in
// every case. Takes no lock but the state's, so that the watcher never waits for a setup tool.
void EndMaintenance(const char* reason) EXCLUDES(stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_MAINTENANCE_H_
