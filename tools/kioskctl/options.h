// The command line of tarnvale-kioskctl.

#ifndef TARNVALE_KIOSKD_TOOLS_KIOSKCTL_OPTIONS_H_
#define TARNVALE_KIOSKD_TOOLS_KIOSKCTL_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/config.h"

namespace Tarnvale::KioskService::Kioskctl {

enum class Action { kHelp, kVersion, kStatus, kSend };

struct Options {
  Action action = Action::kHelp;
  std::string socket = Config().socket;
  std::optional<std::uint32_t> uid;  // Whom to become before connecting; nobody else when empty.
  unsigned int timeoutSeconds = 0;   // For connecting and the whole answer; 0 waits for ever.
  bool json = false;                 // Of `status`: the reply as it came.
  std::string command;               // Of `send`.
  std::vector<std::string> members;  // Of `send`, as typed.
};

// Reads the arguments, without the program's name. Options stand before the command of `send`; what
// comes after it are members. On failure answers false with a sentence in `problem`, which names
// no value that was typed: it may be a password. Silent.
//
//   status --json              the status as JSON
//   --uid 65534 send status    the command status, with no members, as that uid
//   --uid root status          false: a uid is a number
[[nodiscard]] bool ParseOptions(std::span<const char* const> arguments, Options& options,
                                std::string& problem);

// What --help prints.
extern const char kHelpText[];

}  // namespace Tarnvale::KioskService::Kioskctl

#endif  // TARNVALE_KIOSKD_TOOLS_KIOSKCTL_OPTIONS_H_
