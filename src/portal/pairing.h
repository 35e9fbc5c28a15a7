// Pairing: how an unenrolled terminal gets its identity.
//
// Somebody signs in locally, `pair.begin` asks the portal for a short code, the client shows it,
// and an administrator claims it at the portal. The client keeps sending `pair.check`; each asks
// the portal once, and the one that brings the device token stores it, checks in, provisions the
// kiosk account and arms the restart. No thread of the service polls by itself. The dispatcher has
// already made sure that the caller may pair.

#ifndef TARNVALE_KIOSKD_PORTAL_PAIRING_H_
#define TARNVALE_KIOSKD_PORTAL_PAIRING_H_

#include <string>

#include "core/locks.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// `pair.begin`. The reply: ok, code, expiresInSeconds; or already_enrolled, unreachable,
// server_error. A code replaces any earlier one. Waits behind a `pair.check` that is under way.
[[nodiscard]] std::string PairBegin() EXCLUDES(pairingLock);

// `pair.check` with the request's member `code`. The reply: ok with paired false (and the error
// unreachable when the portal is); unknown_code, expired, claimed, server_error; or, once the token
// is held, revoked, ok with paired true and what came after it, or the code of a failed
// provisioning. A token that was stored stays stored whatever fails later. Two checks never run
// together: the pairing lock is held across the exchanges, up to 30 s, and given up before a
// removal or a provisioning, which may take minutes.
[[nodiscard]] std::string PairCheck(const Json& request)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, stateLock, signallingLock);

// Forgets the code: what a removal took down is not paired by a code of before. Waits behind a
// `pair.check` that is under way.
void ClearPendingCode() EXCLUDES(pairingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_PAIRING_H_
