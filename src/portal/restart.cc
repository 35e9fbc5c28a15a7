#include "portal/restart.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "core/clock.h"
#include "core/log.h"
#include "core/service.h"
#include "core/stop.h"

namespace Tarnvale::KioskService {
namespace {

// How soon the thread sees that the restart was taken by somebody else or forgotten.
constexpr std::int64_t kLongestPauseMs = 250;

std::int64_t restartDeadlineMs GUARDED_BY(restartLock) = 0;  // Steady clock; 0 for none.
bool restartThreadRunning GUARDED_BY(restartLock) = false;
// Never destroyed: a connection that was abandoned at the stop may still start it.
std::thread& restartThread GUARDED_BY(restartLock) = *new std::thread;

std::int64_t PendingDeadlineMs() EXCLUDES(restartLock) {
  const MutexLock lock(restartLock);
  return restartDeadlineMs;
}

// False when the process is stopping.
bool RunUntilRestart() EXCLUDES(restartLock) {
  while (true) {
    const std::int64_t deadlineMs = PendingDeadlineMs();
    if (deadlineMs == 0) return true;
    const std::int64_t leftMs = deadlineMs - SteadyNowMs();
    if (leftMs < 1) {
      RestartIntoKiosk("enrolled");
      return true;
    }
    if (!SleepUnlessStopped(std::min(leftMs, kLongestPauseMs))) return false;
  }
}

// Leaves the thread marked as running when it has to go on: a restart that was scheduled since it
// looked last relies on it.
bool MayEnd(bool stopping) EXCLUDES(restartLock) {
  const MutexLock lock(restartLock);
  restartThreadRunning = !stopping && restartDeadlineMs != 0;
  return !restartThreadRunning;
}

void RestartThread() EXCLUDES(restartLock) {
  bool stopping = false;
  do {
    stopping = !RunUntilRestart();
  } while (!MayEnd(stopping));
}

void JoinIfJoinable(std::thread& thread) {
  if (thread.joinable()) thread.join();
}

// Takes the deadline, so that no one else can. False when none is pending.
bool TakeDeadline() EXCLUDES(restartLock) {
  const MutexLock lock(restartLock);
  return std::exchange(restartDeadlineMs, 0) != 0;
}

}  // namespace

void ScheduleRestart() {
  MutexLock lock(restartLock);
  restartDeadlineMs = SteadyNowMs() + kRestartDelayMs;
  Log("<6>enrolled: restarting into kiosk mode in %lld s\n",
      static_cast<long long>(kRestartDelayMs / kSecondMs));
  if (restartThreadRunning) return;  // it picks the new deadline up by itself
  restartThreadRunning = true;
  std::thread finished = std::exchange(restartThread, std::thread());
  lock.Unlock();  // the thread that is joined may still need the lock to end
  JoinIfJoinable(finished);
  lock.Lock();
  restartThread = std::thread(RestartThread);
}

void RestartIntoKiosk(const char* reason) {
  if (!TakeDeadline()) return;
  Log("<6>restarting into kiosk mode (%s)\n", reason);
  if (!Platform().reboot()) Log("<3>the restart into kiosk mode could not be started\n");
}

bool IsRestartPending() {
  return PendingDeadlineMs() != 0;
}

void ClearRestart() {
  const MutexLock lock(restartLock);
  restartDeadlineMs = 0;
}

void StopScheduledRestart() {
  MutexLock lock(restartLock);
  restartDeadlineMs = 0;
  std::thread finished = std::exchange(restartThread, std::thread());
  lock.Unlock();  // the thread needs the lock to end
  JoinIfJoinable(finished);
}

}  // namespace Tarnvale::KioskService
