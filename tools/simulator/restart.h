// Starting the program anew in place of a terminal's restart, and not when somebody wants it to
// end.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_RESTART_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_RESTART_H_

namespace Tarnvale::KioskService::Simulator {

// Undoes what RestartProgram did to the signals. Called first of all.
void AllowStopSignals();

// Puts a handler in front of the service's own for SIGTERM and SIGINT, which remembers that one
// came: a restart that is under way must not outlive it. Called once the service's are in place.
void WatchStopSignals();

// Executes this program again with the same arguments, as a real startup begins the process anew:
// nothing in memory survives. Returns when that is not to be or cannot be, with the exit status: 0
// after a stop signal, 1 after a failure, which is logged. Called on the main thread.
[[nodiscard]] int RestartProgram(char** argv);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_RESTART_H_
