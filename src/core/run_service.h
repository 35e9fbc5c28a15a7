// The life of the service process, once its command line is parsed: signals, start, service, stop.
//
// Called once by main, on the main thread. SIGTERM and SIGINT are handled without SA_RESTART, so
// that they end the accept loop's poll; SIGPIPE is ignored, because a peer may be gone before its
// reply. The signal handling is in place before anything else is made. How long a stop takes is
// told in docs/architecture.md: an exchange with the portal under way takes up to 15 s, connections
// 30 s, a run of the package manager as long as it needs. The simulator lives the same life on a
// platform of its own.

#ifndef TARNVALE_KIOSKD_CORE_RUN_SERVICE_H_
#define TARNVALE_KIOSKD_CORE_RUN_SERVICE_H_

#include "core/config.h"
#include "core/ops.h"

namespace Tarnvale::KioskService {

// Installs the signal handling, starts, serves until SIGTERM or SIGINT, and stops. Returns the exit
// status: 0 after a stop, 1 when the service could not start. `makeOps` gives the platform that the
// service runs on; it is called after the signals are in place.
[[nodiscard]] int RunService(const Config& config, Ops (*makeOps)(const Config& config));

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_RUN_SERVICE_H_
