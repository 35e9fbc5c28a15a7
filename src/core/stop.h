// Stopping the process and waking the service loop: two flags, one condition variable, one byte.
//
// Every pause of every thread ends with the stop, because all of them wait here.

#ifndef TARNVALE_KIOSKD_CORE_STOP_H_
#define TARNVALE_KIOSKD_CORE_STOP_H_

#include <cstdint>

#include "core/locks.h"

namespace Tarnvale::KioskService {

// Sets the stop flag and wakes every waiting thread; with a wake pipe set, also ends the accept
// loop's poll. Called by the signal handler on whichever thread took the signal, and by the stop
// sequence. It locks in signal context: the lock is held for a few instructions only, and a signal
// on the thread that holds it at that very moment would hang that thread.
void RequestStop() EXCLUDES(signallingLock, stateLock);

// As RequestStop, without the byte: the accept loop, which calls this, polls no more.
void StopThreads() EXCLUDES(signallingLock, stateLock);

// Makes the service loop run a pass now, or again when one is running.
void WakeServiceLoop() EXCLUDES(signallingLock, stateLock);

// Sleeps. True when the full time passed, false as soon as a stop is requested, at once when it
// was.
[[nodiscard]] bool SleepUnlessStopped(std::int64_t milliseconds) EXCLUDES(signallingLock);

// The service loop's wait: for `delayMs`, or with no time limit when that is negative, until a
// wake-up or a stop. Takes the wake-up with it. False when the process is stopping.
[[nodiscard]] bool WaitForServicePass(std::int64_t delayMs) EXCLUDES(signallingLock);

// Forgets stop and wake-up. Called by Run, before any other thread starts.
void ClearStopAndWake() EXCLUDES(signallingLock);

// The descriptor that RequestStop writes its byte to; -1, as at the start, for none.
void SetStopDescriptor(int fd);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_STOP_H_
