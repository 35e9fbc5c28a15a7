// `time.sync`: a correction of the clock by the system's own NTP client, with the error measured
// before.
//
// Called by the settings gate on the connection's thread, which it holds for as long as its slots
// take: 20 s to turn NTP on, 5 s for each silent address of the server, and 40 to 50 s for the
// client. Slots ntpServer, sntpOffset and resyncClock, in this order. No state and no lock: two
// commands at once both run.

#ifndef TARNVALE_KIOSKD_DEVICE_TIME_SYNC_H_
#define TARNVALE_KIOSKD_DEVICE_TIME_SYNC_H_

#include <string>

namespace Tarnvale::KioskService {

// The reply of `time.sync`: `server`, `offsetMs` and `at` when the client says that the clock is
// right, where `offsetMs` is null when the server did not answer the measurement. Otherwise the
// error "sync_failed", or "unreachable" when there was no measurement either, with `server`. Logs
// the missing measurement and the success.
[[nodiscard]] std::string HandleTimeSync();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_TIME_SYNC_H_
