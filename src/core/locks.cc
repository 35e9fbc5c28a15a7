#include "core/locks.h"

namespace Tarnvale::KioskService {

Mutex lifecycleLock;
Mutex adminSessionsLock;
Mutex powerLock;
Mutex networkLock;
Mutex updatesMutex;
Mutex settingsWorkerLock;
Mutex unlockLock;
Mutex passwordLock;
Mutex pairingLock;
Mutex restartLock;
Mutex presenceLock;
Mutex stateLock;
Mutex signallingLock;

}  // namespace Tarnvale::KioskService
