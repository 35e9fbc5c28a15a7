// The life of the service process, once its command line is parsed.

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
