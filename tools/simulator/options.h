// The simulator's command line: options of its own, and all of the service's.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_OPTIONS_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "core/config.h"

namespace Tarnvale::KioskService::Simulator {

// What a person does at the console of a terminal.
enum class ConsoleAction { kSignIn, kSignOut, kRestart };

struct Options {
  std::string dir;  // Absolute; everything that is written is below it, unless an option says else.
  int screens = 1;
  std::string hostName;                   // The name of `dir` unless given.
  std::optional<std::uint32_t> kioskUid;  // The uid that the kiosk account gets.
  bool boot = false;                      // Start as after a restart of the terminal.
  std::optional<ConsoleAction> console;   // Act on the terminal of `dir`, and nothing else.
  bool sleepNow = false;                  // Be the one-shot job behind the sleep timer.
  bool help = false;
  Config config;  // The service's, with its paths below `dir`.
};

// Reads the arguments, without the program's name, relative to `workingDir`. An option given twice
// keeps the last value. On failure answers false with a sentence in `problem`. Touches no file;
// silent.
//
//   --dir t1                     all paths below WORKINGDIR/t1, host name "t1"
//   --dir t1 --socket /tmp/s     the service's options as the service takes them
//   --dir t1 --console sign-in   no simulator: a person at that terminal
//   --dir t1 --screens 0         false: a terminal has at least one screen
//   --screens 2                  false: --dir is missing
[[nodiscard]] bool ParseOptions(std::span<const char* const> arguments,
                                const std::string& workingDir, Options& options,
                                std::string& problem);

// What --help prints.
extern const char kHelpText[];

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_OPTIONS_H_
