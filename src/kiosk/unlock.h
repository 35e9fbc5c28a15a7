// The settings unlock: ten minutes in which one session may change the terminal's settings.
//
// One record in memory for the whole process, never written anywhere. It begins with `unlock`, and
// ends by its time, with its session, with `maintenance`, with a newer unlock or with the process.
// Its token, 32 lower-case hexadecimal characters made of 16 bytes of /dev/urandom, is a secret: it
// is handed to the peer once, compared without stopping early, never logged, and wiped. Connection
// threads unlock and test; the session watcher forgets. The unlock lock is held for the record
// alone.

#ifndef TARNVALE_KIOSKD_KIOSK_UNLOCK_H_
#define TARNVALE_KIOSKD_KIOSK_UNLOCK_H_

#include <string>

#include "core/locks.h"

namespace Tarnvale::KioskService {

// The `unlock` command: tests the password and hands out a token bound to `session`, which replaces
// any earlier one, also of another session. Answers the reply text: `unlockToken` and
// `expiresInSeconds`, or an error, that of CheckExitPassword or `failed` when there is no
// randomness; nothing is unlocked then. Logs a refused password and the unlock. Waits as long as
// CheckExitPassword does.
[[nodiscard]] std::string HandleUnlock(const std::string& password, const std::string& session)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, passwordLock, unlockLock, stateLock,
             signallingLock);

// Whether this token opens the settings for this session now. An unlock of this session and length
// that has expired is ended and logged here, whatever the token's bytes; any other mismatch leaves
// the unlock in force.
[[nodiscard]] bool UnlockValid(const std::string& token, const std::string& session)
    EXCLUDES(unlockLock);

// Forgets the unlock, silently; it need not be in force.
void WipeUnlock() REQUIRES(unlockLock);

// Forgets the unlock when it was issued to this session, and logs that. Called by the session
// watcher when a session has ended.
void ForgetUnlockOf(const std::string& session) EXCLUDES(unlockLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_UNLOCK_H_
