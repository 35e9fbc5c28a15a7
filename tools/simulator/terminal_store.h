// The one simulated terminal of this process, and its file, terminal.json. Any thread.
//
// The file is the terminal: it is read anew for each look and each change, so that other processes
// may act on a terminal that is on: the person at its console (console.h), the job of its sleep
// timer, an editor. Changes are made one after another, under a lock on the file beside it,
// terminal.lock; an editor does not ask for that. A file that is not readable at that moment counts
// as it was read last. It has at most 1 MiB.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_STORE_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_STORE_H_

#include <functional>
#include <string>

#include "simulator/terminal.h"

namespace Tarnvale::KioskService::Simulator {

// Opens the terminal of a directory; without a file, or with one that is not readable, it is new
// and a person has just signed in. Called once, before any other thread exists. False when the file
// cannot be written; the writer logs it.
[[nodiscard]] bool OpenTerminal(const std::string& dir);

// As above for one that is there already; silent. False when it is not.
[[nodiscard]] bool OpenExistingTerminal(const std::string& dir);

// Starts the terminal up when a restart of it was under way or `asked` for. True when it did. Logs
// which of the two it was.
bool BootWhenDue(bool asked);

[[nodiscard]] Terminal GetTerminal();

// Changes the terminal and saves it, unless nothing came of it. A failed save is told in the log,
// and the file then goes on as it was.
void ChangeTerminal(const std::function<void(Terminal& terminal)>& change);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_STORE_H_
