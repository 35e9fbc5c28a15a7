// The test of the exit password: the one proof of an administrator at the terminal.
//
// The portal holds the password; each test asks for it with a check-in of its own and forgets it
// with the answer. `unlock` and `maintenance` call this, on their connections' threads. One test
// runs at a time, and whoever comes meanwhile is sent away at once. Five attempts in a row without
// success buy 300 seconds in which every attempt is refused. The count and the end of the lock-out
// stand in the state, on the wall clock, so that neither a restart nor a removal ends them. The
// longest wait is the check-in's 15 s, and 1050 s more when its answer removes kiosk mode.

#ifndef TARNVALE_KIOSKD_KIOSK_EXIT_PASSWORD_H_
#define TARNVALE_KIOSKD_KIOSK_EXIT_PASSWORD_H_

#include <string>

#include "core/locks.h"

namespace Tarnvale::KioskService {

// Empty when the password is right, otherwise the code for the peer:
//
//   locked           a lock-out runs, or the attempts were used up; not counted as an attempt
//   busy             another test is running; not counted as an attempt
//   not_enrolled     there is no token, or the check-in ended the identity
//   not_provisioned  the kiosk account is not intact
//   unreachable      the portal gave no usable answer
//   wrong_password   it does not match; so it is when either password is empty
//
// The case of letters and white space at the ends deliberately do not count. The attempt is counted
// before anything is tested, so a test that never finishes stays counted; a match clears the count.
// No lock is held across the exchange. Logs a lock-out and nothing else; the password goes nowhere
// and is the caller's to wipe.
[[nodiscard]] std::string CheckExitPassword(const std::string& password)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, passwordLock, stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_EXIT_PASSWORD_H_
