// The table of platform operations for a real Linux terminal.
//
// For main alone, which hands LinuxOps to RunService (core/run_service.h) or, with --sleep-now, to
// ScheduledSleep. This is the one file that knows all *_linux headers, and so the list of what the
// service does to its machine: HTTP, the account database, logind and timedated over D-Bus, child
// processes, /proc, /sys and files below /etc. Each slot's limits stand in core/ops.h, its work in
// the header that its implementation names.

#ifndef TARNVALE_KIOSKD_CORE_OPS_LINUX_H_
#define TARNVALE_KIOSKD_CORE_OPS_LINUX_H_

#include "core/config.h"
#include "core/ops.h"

namespace Tarnvale::KioskService {

// Fills every slot. Slots that need the configuration hold a copy of their own, so the table works
// without the rest of the service. Called before any other thread exists: makes libcurl ready.
[[nodiscard]] Ops LinuxOps(const Config& config);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_OPS_LINUX_H_
