// The command line of the service, which is all the configuration that there is.
//
// For main, and for the simulator, which hands on what is no option of its own. Arguments are
// compared as whole strings: there is no `--option=value`, no abbreviation, no `--help` and no
// `--version`. The options that take a value are those of the members of Config (core/config.h)
// that can be set from outside; the one flag is `--sleep-now`, which the unit of the sleep timer
// passes. Nothing is checked but the names: what a value means shows where it is used. Main thread,
// before any other exists.

#ifndef TARNVALE_KIOSKD_CORE_COMMAND_LINE_H_
#define TARNVALE_KIOSKD_CORE_COMMAND_LINE_H_

#include <span>
#include <string>

#include "core/config.h"

namespace Tarnvale::KioskService {

// Applies the arguments, without the program's name, to `config`; `sleepNow` tells whether
// `--sleep-now`, which has no value, was among them. An option given twice keeps the
// last value; a value is taken whatever it looks like. On the first argument that is not known, or
// a value option with nothing behind it, answers false with that argument in `unknown`; logs
// nothing.
//
//   --socket --run-dir      the socket path is the text "--run-dir"
//   --state-dir             false: unknown "--state-dir"
//   --state-dir=/x          false: unknown "--state-dir=/x"
[[nodiscard]] bool ParseCommandLine(std::span<const char* const> arguments, Config& config,
                                    bool& sleepNow, std::string& unknown);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_COMMAND_LINE_H_
