#include "core/locks.h"

namespace Tarnvale::KioskService {

Mutex lifecycleLock;
Mutex adminSessionsLock;
Mutex pairingLock;
Mutex restartLock;
Mutex presenceLock;
Mutex stateLock;
Mutex signallingLock;

}  // namespace Tarnvale::KioskService
