// All locks of the service, in the order in which they may be taken. Each has one job; what it
// protects carries its name in a GUARDED_BY where it is declared. All are plain, non-recursive, and
// live as long as the process.
//
// clang checks the order within each function, and through EXCLUDES and REQUIRES what a function
// takes or needs where it is called. Where two are held together the outer one comes first: the
// lifecycle lock before all others of this page; then the rest, none of them inside another;
// innermost the state lock, inside which nothing is taken. The signalling lock is a leaf beside it:
// it is held for a few instructions only, by the signal handler too, and is taken under the pairing
// lock alone.

#ifndef TARNVALE_KIOSKD_CORE_LOCKS_H_
#define TARNVALE_KIOSKD_CORE_LOCKS_H_

#include "core/mutex.h"

namespace Tarnvale::KioskService {

// Provisioning and whatever else makes or unmakes the kiosk account: no two at once. Held across
// the setup tool, up to 15 minutes.
extern Mutex lifecycleLock;

// The sessions whose end ends maintenance.
extern Mutex adminSessionsLock ACQUIRED_AFTER(lifecycleLock);

// The pending pairing code. `pair.check` holds it across its exchanges with the portal, so that two
// checks never run together, and gives it up before provisioning.
extern Mutex pairingLock ACQUIRED_AFTER(lifecycleLock);

// The deadline of the scheduled restart and its thread.
extern Mutex restartLock ACQUIRED_AFTER(lifecycleLock);

// The presence report; held across the writing of its file, so that file and memory agree.
extern Mutex presenceLock ACQUIRED_AFTER(lifecycleLock);

// The state document and its file. Innermost; held across a save with its fsync.
extern Mutex stateLock ACQUIRED_AFTER(lifecycleLock, adminSessionsLock, pairingLock, restartLock,
                                      presenceLock);

// The stop and wake flags, with the service condition variable. A leaf.
extern Mutex signallingLock ACQUIRED_AFTER(pairingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_LOCKS_H_
