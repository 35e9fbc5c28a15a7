// Taking kiosk mode down again: when the portal removed the terminal, when it has not known it for
// a day, and when the state is a copy from another machine.
//
// Everything is undone, and no step that fails keeps the next from its turn. The account may be in
// use at that moment; it then stands in the state as pending, and is tried again at each start and
// each pass of the service loop.

#ifndef TARNVALE_KIOSKD_KIOSK_REMOVAL_H_
#define TARNVALE_KIOSKD_KIOSK_REMOVAL_H_

#include "core/locks.h"

namespace Tarnvale::KioskService {

// Takes it all down; `reason` is for the log. The terminal is not enrolled afterwards, whether or
// not the account is gone. On the thread that got the verdict: start-up, the service loop or a
// connection. Takes the lifecycle lock, and holds it across the setup tool and the account's
// deletion, up to 1050 s; inside it the power lock; after it the pairing lock.
void RemoveKioskMode(const char* reason)
    EXCLUDES(lifecycleLock, powerLock, pairingLock, stateLock, signallingLock);

// Tries again to delete the account that a removal left. Takes no lock when nothing is pending.
// Called at start-up and at the head of every pass of the service loop.
void FinishPendingRemoval() EXCLUDES(lifecycleLock, powerLock, stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_REMOVAL_H_
