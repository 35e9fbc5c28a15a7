// The gate in front of the commands that read or change how the terminal is set up.

#ifndef TARNVALE_KIOSKD_CONTROL_SETTINGS_GATE_H_
#define TARNVALE_KIOSKD_CONTROL_SETTINGS_GATE_H_

#include <string>

#include "control/caller.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// Whether the name is one of SettingsCommands.
[[nodiscard]] bool IsSettingsCommand(const std::string& name);

// The unlock test, and then the command. The caller's class has been tested before.
[[nodiscard]] std::string HandleSettings(const std::string& name, const Json& request,
                                         const Caller& caller);

// Routes a command that has passed the gate.
[[nodiscard]] std::string DispatchSettings(const std::string& name, const Json& request);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_SETTINGS_GATE_H_
