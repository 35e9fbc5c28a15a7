// The start of the service: from a parsed command line to the moment before the control socket
// opens.

#ifndef TARNVALE_KIOSKD_CORE_START_H_
#define TARNVALE_KIOSKD_CORE_START_H_

#include "core/config.h"
#include "core/ops.h"

namespace Tarnvale::KioskService {

// Makes true what must be true before the first request: configuration and platform known to all,
// directories with the right owner and mode, the state loaded, the sessions that exist taken for
// known. Starts no thread and touches no network. False only when a directory cannot be used; logs
// the cause. Called once per process, on the main thread, before any other thread exists.
[[nodiscard]] bool Run(const Config& config, const Ops& ops);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_START_H_
