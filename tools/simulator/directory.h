// The directory of a simulated terminal: what must stand in it before the service starts.
//
//   machine-id        random, made once; the device token is bound to it
//   client            stands for the stream client: provisioning wants an executable file there
//   terminal.json     the simulated terminal (terminal_store.h), and terminal.lock beside it
//   state/state.json  the service's own; the first one admits callers other than root
//   kiosk.sock, run/  the service's own

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_DIRECTORY_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_DIRECTORY_H_

#include "core/descriptor.h"
#include "simulator/options.h"

namespace Tarnvale::KioskService::Simulator {

// Makes whatever is missing and leaves alone what is there. The result holds the directory for this
// process, so that no second simulator uses it; it is not open on failure, which is logged.
[[nodiscard]] Descriptor PrepareDirectory(const Options& options);

// Removes what the service keeps in its run directory, which a startup of a real terminal begins
// without.
void EmptyRunDirectory(const Config& config);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_DIRECTORY_H_
