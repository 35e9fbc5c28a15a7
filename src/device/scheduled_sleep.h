// `--sleep-now`: the one-shot job behind the sleep timer.
//
// A process of its own beside the running service, which it does not touch: it reads the presence
// file (at most 4,096 bytes) and the state file, both of which the service writes atomically, takes
// no lock of the service's and writes nothing. It lasts as long as the terminal sleeps.

#ifndef TARNVALE_KIOSKD_DEVICE_SCHEDULED_SLEEP_H_
#define TARNVALE_KIOSKD_DEVICE_SCHEDULED_SLEEP_H_

#include <cstdint>

#include "core/config.h"
#include "core/ops.h"
#include "device/power_policy.h"

namespace Tarnvale::KioskService {

// Puts the terminal to sleep until the schedule wakes it, unless a stream session is live or no
// schedule is in force; the log tells which. Returns the exit status of the process: 1 when the
// terminal could not be suspended, otherwise 0. `makeOps` gives the platform. Called by main alone.
[[nodiscard]] int ScheduledSleep(const Config& config, Ops (*makeOps)(const Config& config));

// The next time at which the schedule wakes a terminal that goes to sleep at `now`: on one of its
// days, today included, and more than a minute ahead, so that no sleep is over as it begins. Both
// are Unix times in seconds; 0 when the schedule has no day. The days and `wakeAt` are local, so
// the change to summer time or back moves the result with the clock on the wall.
//
//   Friday 22:00, Monday to Friday at 07:00      Monday 07:00
//   Tuesday 06:58:59, the same                   Tuesday 07:00
//   Tuesday 06:59, the same                      Wednesday 07:00
[[nodiscard]] std::int64_t FindWakeTime(const PowerSchedule& schedule, std::int64_t now);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_SCHEDULED_SLEEP_H_
