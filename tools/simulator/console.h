// A person at the console of a simulated terminal: `--console ACTION`, a process of its own beside
// the simulator, or without one.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_CONSOLE_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_CONSOLE_H_

#include <string>

#include "simulator/options.h"

namespace Tarnvale::KioskService::Simulator {

// Does what the person does and tells it on standard output; a sentence on standard error when that
// is not possible. The exit status: 0 done, 1 not. The service sees a sign-in or sign-out at its
// next look at the sessions, which is also when a restart begins, two seconds later at most.
[[nodiscard]] int RunConsole(const std::string& dir, ConsoleAction action);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_CONSOLE_H_
