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

// Provisioning, removal, a pending removal, changes to the branding directory and the entry into
// maintenance: no two at once. Held across the setup tool and the account's deletion, up to 1050 s.
extern Mutex lifecycleLock;

// The sessions whose end ends maintenance.
extern Mutex adminSessionsLock ACQUIRED_AFTER(lifecycleLock);

// Storing and applying power policy, across the child processes, so that what the system does is
// what the state says.
extern Mutex powerLock ACQUIRED_AFTER(lifecycleLock);

// One change of the network at a time, across its child processes, up to 190 s.
extern Mutex networkLock ACQUIRED_AFTER(lifecycleLock);

// What `os.updates` shows. Held while the state is read for that, never across the package manager.
extern Mutex updatesMutex ACQUIRED_AFTER(lifecycleLock);

// The handle of the thread that runs updates for the person at the terminal. Held across the join
// of the thread before, which is past its last step; at the stop across the run that is under way.
extern Mutex settingsWorkerLock ACQUIRED_AFTER(lifecycleLock);

// The settings unlock. Released before anything else is taken.
extern Mutex unlockLock ACQUIRED_AFTER(lifecycleLock);

// The ticket of the one password test that may run, and the count of attempts. Not held across the
// exchange with the portal.
extern Mutex passwordLock ACQUIRED_AFTER(lifecycleLock);

// The pending pairing code. `pair.check` holds it across its exchanges with the portal, so that two
// checks never run together, and gives it up before provisioning.
extern Mutex pairingLock ACQUIRED_AFTER(lifecycleLock);

// The deadline of the scheduled restart and its thread.
extern Mutex restartLock ACQUIRED_AFTER(lifecycleLock);

// The presence report; held across the writing of its file, so that file and memory agree.
extern Mutex presenceLock ACQUIRED_AFTER(lifecycleLock);

// The state document and its file. Innermost; held across a save with its fsync.
extern Mutex stateLock ACQUIRED_AFTER(lifecycleLock, adminSessionsLock, powerLock, networkLock,
                                      updatesMutex, settingsWorkerLock, unlockLock, passwordLock,
                                      pairingLock, restartLock, presenceLock);

// The stop and wake flags, with the service condition variable. A leaf.
extern Mutex signallingLock ACQUIRED_AFTER(pairingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_LOCKS_H_
