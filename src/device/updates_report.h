// The report of OS updates for the portal: how the last run went and what it left to do.
//
// Kept in the state as the text of one object (lastRunAt, lastResult, error, pending,
// restartRequired) and sent with each check-in. Written by the settings worker and the updates
// loop after each run, and by the loop when a run has to wait. At most 500 pending packages and 80
// bytes of error are told. Silent.

#ifndef TARNVALE_KIOSKD_DEVICE_UPDATES_REPORT_H_
#define TARNVALE_KIOSKD_DEVICE_UPDATES_REPORT_H_

#include <optional>
#include <string>

#include "core/locks.h"
#include "device/os_update.h"

namespace Tarnvale::KioskService {

// The report's word for the result of an install: "ok", "nothing" or "failed".
[[nodiscard]] std::string UpdatesVerdict(const WuRun& run);

// Brings the report up to date: a result with its time and the run's error, a run with what it left
// to do. Members of which nothing is known yet are added with 0, false or null, all others stay as
// they are; a text in the state that is no object is replaced. An unchanged report costs no write.
void WriteUpdatesReport(const std::optional<std::string>& result, const std::optional<WuRun>& run)
    EXCLUDES(stateLock, signallingLock);

// Whether the report says that the system wants a restart.
[[nodiscard]] bool ReportsRestartRequired() EXCLUDES(stateLock, signallingLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_UPDATES_REPORT_H_
