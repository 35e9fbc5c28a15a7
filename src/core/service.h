// What the whole process shares from its start on: the configuration, the table of platform
// operations, and whether this executable is the installed one.
//
// All three are fixed by Run before any other thread exists, and are read without a lock
// afterwards.

#ifndef TARNVALE_KIOSKD_CORE_SERVICE_H_
#define TARNVALE_KIOSKD_CORE_SERVICE_H_

#include "core/config.h"
#include "core/ops.h"

namespace Tarnvale::KioskService {

[[nodiscard]] const Config& ServiceConfig();

// The slots are called through this: Platform().reboot().
[[nodiscard]] const Ops& Platform();

// False for a development build, which admits non-root callers only with a word in the state file.
[[nodiscard]] bool ServiceInstalled();

// Copies both. Called by Run and ScheduledSleep, on the main thread, before any other thread
// starts.
void SetService(const Config& config, const Ops& ops);
void SetServiceInstalled(bool installed);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_SERVICE_H_
