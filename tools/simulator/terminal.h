// The simulated terminal: what a real one would have around the service.
//
// Plain data and the rules of how it changes; no file, no clock, no thread in here. The slots
// (slots.h) are views of it and changes to it, terminal_store.h keeps it for the process and on
// disk.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kiosk/session_info.h"

namespace Tarnvale::KioskService::Simulator {

// Who has the console's session.
enum class AtConsole { kPerson, kKiosk };

// The account that the setup tool makes. It signs in at each startup.
struct KioskAccount {
  std::string name;
  std::uint32_t uid = kUnknownUid;
};

struct Terminal {
  std::int64_t bootedAtMs = 0;
  bool restarting = false;  // A restart was asked for; the next start of the process is that boot.
  AtConsole atConsole = AtConsole::kPerson;
  int sessionNumber = 1;  // Of the console's session; counts on, so that no two share an id.
  std::optional<KioskAccount> account;
};

// A startup: the kiosk account signs in when there is one, the person otherwise. The time of the
// boot moves on even when the clock does not.
void Boot(Terminal& terminal, std::int64_t nowMs);

// What the setup tool does. An account of this name that exists keeps its uid.
void EnableKiosk(Terminal& terminal, const KioskAccount& account);
void DisableKiosk(Terminal& terminal);

// All sessions: the one at the console.
[[nodiscard]] std::vector<SessionInfo> SessionsOf(const Terminal& terminal);

// The session that a process of this uid belongs to. In kiosk mode the kiosk account's processes
// are in its session and nobody else is in any; before that everybody is in the person's.
[[nodiscard]] std::optional<SessionInfo> SessionOfUid(const Terminal& terminal, std::uint32_t uid);

// The text of the terminal's file, and back. Empty for a text that is not such a file's.
[[nodiscard]] std::string DumpTerminal(const Terminal& terminal);
[[nodiscard]] std::optional<Terminal> ParseTerminal(std::string_view text);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_H_
