// Provisioning: having the restricted account made that signs in by itself into the stream client.
//
// The service does not make the account. It runs the setup tool, checks what came of it, and
// records which uid is the account that it may manage from now on. Called by `pair.check` right
// after a pairing and by the service loop until it succeeds.

#ifndef TARNVALE_KIOSKD_KIOSK_PROVISIONING_H_
#define TARNVALE_KIOSKD_KIOSK_PROVISIONING_H_

#include <string>

#include "core/locks.h"

namespace Tarnvale::KioskService {

// Empty on success, otherwise a code for the peer, which stands in the state as LastError until
// provisioning succeeds:
//
//   no_client              the stream client is missing or not executable
//   account_lookup_failed  the password database failed
//   account_exists         an account that this terminal did not make holds the name; left alone
//   setup_failed           the setup tool is missing, timed out or failed
//   account_create_failed  the tool said yes, and the account is not there
//
// Logs each outcome; what the tool printed goes to the log alone. Takes the lifecycle lock and
// holds it across the setup tool's run, up to 15 minutes.
[[nodiscard]] std::string ProvisionKiosk()
    EXCLUDES(lifecycleLock, adminSessionsLock, pairingLock, restartLock, presenceLock, stateLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_PROVISIONING_H_
