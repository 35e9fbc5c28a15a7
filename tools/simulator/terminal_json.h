// The text of the simulated terminal's file, and back.
//
// The file is also for people, who may change it with an editor: whatever is missing, or of a kind
// that does not fit, is as on a new terminal. Pure; silent.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_JSON_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_JSON_H_

#include <optional>
#include <string>
#include <string_view>

#include "simulator/terminal.h"

namespace Tarnvale::KioskService::Simulator {

[[nodiscard]] std::string DumpTerminal(const Terminal& terminal);

// Empty for a text that is not such a file's.
//
//   {"bootedAtMs":1000}     a new terminal that was started then
//   {"bootedAtMs":"1000"}   none: the time of the boot is a number in each such file
//   garbage                 none
[[nodiscard]] std::optional<Terminal> ParseTerminal(std::string_view text);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_JSON_H_
