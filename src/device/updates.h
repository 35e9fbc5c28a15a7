// OS updates: the one run that may be under way, who asked for it, and what is known since.
//
// `os.updates` and `os.install` start runs for the person at the terminal, on a thread of its own,
// the settings worker; the updates loop makes its runs on its own thread. Whoever takes the ticket
// has the package manager, and everybody else shows or waits. What `os.updates` shows
// (UpdatesStatus and the progress) lives in memory and is empty after a start; the report for the
// portal is device/updates_report.h. A run lasts up to hours, and connections never wait for it.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_H_

#include <string>

#include "core/locks.h"
#include "device/os_update.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// `os.updates`: starts a check when the request's `check` is true and no run is under way. Answers
// the status document, or `invalid` when `check` is neither absent, null nor a bool. Logs that a
// check was started.
[[nodiscard]] std::string HandleOsUpdates(const Json& request)
    EXCLUDES(updatesMutex, settingsWorkerLock, stateLock, signallingLock);

// `os.install`: starts an install. Answers the status document, or `busy` while a run is under way.
// Logs that an install was started. It never restarts the terminal: the person is told through
// `restartRequired`.
[[nodiscard]] std::string HandleOsInstall()
    EXCLUDES(updatesMutex, settingsWorkerLock, stateLock, signallingLock);

// Starts a run on the settings worker and returns at once. False when a run is under way. When the
// system has no thread for it, that is logged, the ticket is given back, and the result is false
// too. Waits for the worker before, which is past its last step.
[[nodiscard]] bool StartWuRun(bool install)
    EXCLUDES(updatesMutex, settingsWorkerLock, stateLock, signallingLock);

// The status document, the success reply of both commands. All its members belong to one moment.
[[nodiscard]] std::string OsUpdatesStatus() EXCLUDES(updatesMutex, stateLock, signallingLock);

// Takes the ticket of the one run; false when it is taken. Whoever took it gives it back.
[[nodiscard]] bool TryBeginUpdates();
void EndUpdates();

// Runs the package manager on the calling thread, which holds the ticket, and shows the result in
// the status. Logs the beginning and the end. A failed run leaves what is known from the run before
// in the status. No lock is held meanwhile.
[[nodiscard]] WuRun RunUpdates(bool install) EXCLUDES(updatesMutex, stateLock, signallingLock);

// Gives the package manager's own schedule back, when it is ours, and logs that. Called by the
// updates loop and by removal.
void GiveBackUpdatesSchedule() EXCLUDES(stateLock, signallingLock);

// Finds out at start whether a restart is owed: by the last report, or else by the system's own
// marker. On the main thread, before any other exists. Silent.
void RecoverRestartRequired() EXCLUDES(updatesMutex, stateLock, signallingLock);

// Waits for the settings worker, however long its run takes. Called by the main thread at the stop.
void JoinSettingsWorker() EXCLUDES(settingsWorkerLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_H_
