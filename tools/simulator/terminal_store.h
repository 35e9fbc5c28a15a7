// The one simulated terminal of this process, and its file, terminal.json. Any thread.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_STORE_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_STORE_H_

#include <functional>
#include <string>

#include "simulator/terminal.h"

namespace Tarnvale::KioskService::Simulator {

// Reads the file; without one, or with one that is not readable, the terminal is new and a person
// has just signed in. It boots first when a restart was under way or `boot` asks for one. Called
// once, before any other thread exists. False when the file cannot be written; the writer logs it.
[[nodiscard]] bool OpenTerminal(const std::string& path, bool boot);

[[nodiscard]] Terminal GetTerminal();

// Changes the terminal and saves it. A failed save is told in the log; what is in memory holds.
void ChangeTerminal(const std::function<void(Terminal& terminal)>& change);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_STORE_H_
