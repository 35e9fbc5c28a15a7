#include "core/stop.h"

#include <unistd.h>

#include <atomic>

#include "core/clock.h"

namespace Tarnvale::KioskService {
namespace {

// Atomic: set by the main thread, read in signal context on any thread.
std::atomic<int> stopDescriptor{-1};

// Guarded by the signalling lock, and waited for on the service condition variable.
bool stopRequested GUARDED_BY(signallingLock) = false;
bool wakeRequested GUARDED_BY(signallingLock) = false;
ConditionVariable serviceCondition;

bool TakeWakeLocked() REQUIRES(signallingLock) {
  wakeRequested = false;
  return !stopRequested;
}

}  // namespace

void StopThreads() {
  {
    const MutexLock lock(signallingLock);
    stopRequested = true;
  }
  serviceCondition.NotifyAll();
}

void RequestStop() {
  StopThreads();
  const int fd = stopDescriptor.load();
  if (fd < 0) return;
  const char byte = 1;
  (void)!::write(fd, &byte,
                 1);  // a byte for each signal never fills a pipe, and nobody is left to tell
}

void WakeServiceLoop() {
  {
    const MutexLock lock(signallingLock);
    wakeRequested = true;
  }
  serviceCondition.NotifyAll();
}

bool SleepUnlessStopped(std::int64_t milliseconds) {
  const std::int64_t deadlineMs = SteadyNowMs() + milliseconds;
  const MutexLock lock(signallingLock);
  while (!stopRequested && SteadyNowMs() < deadlineMs) {
    WaitUntil(serviceCondition, signallingLock, deadlineMs);
  }
  return !stopRequested;
}

bool WaitForServicePass(std::int64_t delayMs) {
  const std::int64_t deadlineMs = SteadyNowMs() + delayMs;
  const MutexLock lock(signallingLock);
  while (!stopRequested && !wakeRequested) {
    if (delayMs < 0) {
      serviceCondition.Wait(signallingLock);
    } else if (SteadyNowMs() < deadlineMs) {
      WaitUntil(serviceCondition, signallingLock, deadlineMs);
    } else {
      break;
    }
  }
  return TakeWakeLocked();
}

void ClearStopAndWake() {
  const MutexLock lock(signallingLock);
  stopRequested = false;
  wakeRequested = false;
}

void SetStopDescriptor(int fd) {
  stopDescriptor.store(fd);
}

}  // namespace Tarnvale::KioskService
