// The marker file that holds the kiosk session off: the slot setMaintenanceMarker.
//
// Whatever starts the kiosk session, "tarnvale-kiosk.service", must not do so while
// "kiosk-maintenance" exists in the run directory. The file is empty: only its existence means
// anything. Any thread; callers see to it that maintenance and provisioning do not meet here. The
// start of the unit is given 60 s.

#ifndef TARNVALE_KIOSKD_KIOSK_MAINTENANCE_LINUX_H_
#define TARNVALE_KIOSKD_KIOSK_MAINTENANCE_LINUX_H_

#include <string>

namespace Tarnvale::KioskService {

// Without `allowKiosk` makes the marker in `runDir`, mode 0644, through no link; logs a failure,
// and does not look at `startKiosk`. With it removes the marker, if there is one, and with
// `startKiosk` asks systemd to start the kiosk unit as well; what fails there is not told, because
// the session may have been started already.
void SetMaintenanceMarker(const std::string& runDir, bool allowKiosk, bool startKiosk);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_MAINTENANCE_LINUX_H_
