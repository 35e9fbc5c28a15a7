// The table of platform operations for a real Linux terminal.

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
