// Automatic OS updates: one run in each maintenance window, never while somebody uses the terminal,
// with a restart afterwards when the system wants one and nobody is in the way.
//
// While the terminal takes part, the package manager's own schedule is off. A window is served once
// its run has ended, however that went, and stays so across restarts of the service (state key
// OsUpdatesWindowDone); a restart that is owed is forgotten with the window or with the process.
// What is in the way is asked again every 15 minutes while the window lasts. The thread that
// AcceptLoop starts runs AutomaticUpdatesLoop; a run is made on this thread and lasts up to hours.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_LOOP_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_LOOP_H_

#include <cstdint>
#include <string>

#include "core/locks.h"

namespace Tarnvale::KioskService {

// What the loop remembers from pass to pass.
struct UpdatesLoopMemory {
  std::string restartKey;      // The window whose restart is still owed; empty for none.
  std::string waitKey;         // The window for which the waiting line was logged last.
  std::int64_t nextTryMs = 0;  // Steady clock; nothing is tried before it.
};

// One look: takes the schedule or gives it back, and does what the open window asks for. Logs all
// that it does.
void AutomaticUpdatesPass(UpdatesLoopMemory& memory)
    EXCLUDES(updatesMutex, presenceLock, stateLock, signallingLock);

// The thread's body: a pass once a minute, the first after a minute. Returns on a stop, which waits
// for a run that is under way.
void AutomaticUpdatesLoop() EXCLUDES(updatesMutex, presenceLock, stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_LOOP_H_
