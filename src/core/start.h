// The start of the service: from a parsed command line to the moment before the control socket
// opens.
//
// Called by RunService (core/run_service.cc) and by the tests. It prepares the directories, reads
// the state file and the machine-id, asks logind and the account database, and takes down what
// belongs to another machine or what a removal left, which may take up to 1050 s; it writes to the
// state what follows from all that. A portal that hangs costs nothing here: the network is the
// service loop's.

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
