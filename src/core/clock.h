// Time: the two clocks of the service and every way of waiting on them.
//
// Moments that must survive a restart are wall-clock milliseconds since the epoch; deadlines inside
// the process are steady-clock milliseconds and never leave it. All waiting of the logic goes
// through this header, which has a second implementation on a clock that tests set
// (tests/support/test_clock.cc), so no test waits for real time to pass.

#ifndef TARNVALE_KIOSKD_CORE_CLOCK_H_
#define TARNVALE_KIOSKD_CORE_CLOCK_H_

#include <poll.h>

#include <cstdint>

#include "core/mutex.h"

namespace Tarnvale::KioskService {

// Milliseconds on the steady clock; only differences mean anything.
[[nodiscard]] std::int64_t SteadyNowMs();

// Milliseconds since the Unix epoch.
[[nodiscard]] std::int64_t WallNowMs();

// Waits until notified or until the steady clock reaches the deadline, or for no reason at all: the
// caller tests its condition and the clock again.
void WaitUntil(ConditionVariable& condition, Mutex& mutex, std::int64_t deadlineMs) REQUIRES(mutex);

// poll() for at most `timeoutMs`; results and errno are those of poll.
[[nodiscard]] int PollFor(pollfd* entries, nfds_t count, std::int64_t timeoutMs);

// Sleeps for the whole time, signals or not. For short pauses that nothing needs to end early.
void PauseFor(std::int64_t milliseconds);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_CLOCK_H_
