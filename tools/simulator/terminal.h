// The simulated terminal: what a real one would have around the service.
//
// Plain data and the rules of how it changes; no file, no clock, no thread in here. The slots
// (slots.h) are views of it and changes to it, terminal_json.h is its text, terminal_store.h keeps
// it on disk. The rules of its network and of its package manager have headers of their own.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "device/power_policy.h"
#include "device/proxy_change.h"
#include "kiosk/session_info.h"
#include "simulator/terminal_network.h"
#include "simulator/terminal_updates.h"

namespace Tarnvale::KioskService::Simulator {

// Who has the console's session. With nobody there, it shows a login prompt.
enum class AtConsole { kPerson, kKiosk, kNobody };

// The account that the setup tool makes.
struct KioskAccount {
  std::string name = {};
  std::uint32_t uid = kUnknownUid;
  bool signsIn = true;  // At each startup, until the setup tool undoes that.
};

// The system's NTP client and the server that it follows.
struct NtpClient {
  std::string server = "ntp.example";
  std::int64_t offsetMs = 0;  // How far the terminal's clock is behind the server.
  bool answers = true;        // The server answers a question for the time.
  bool syncs = true;          // The client gets the clock right when it is asked to.
};

struct Terminal {
  std::int64_t bootedAtMs = 0;
  bool restarting = false;       // The next start of the process is a startup of the terminal.
  std::int64_t restartAtMs = 0;  // The restart that stands in the system's schedule; 0 for none.
  AtConsole atConsole = AtConsole::kPerson;
  int sessionNumber = 1;  // Of the console's session; counts on, so that no two share an id.
  std::optional<KioskAccount> account = {};
  std::vector<Adapter> adapters = FirstAdapters();
  NtpClient ntp = {};
  std::optional<PowerPolicy> power = {};  // What was applied last.
  bool hasWakeAlarm = true;               // The hardware can wake the terminal at a set time.
  std::optional<ProxyChange> proxy = {};
  PackageManager packages = {};
};

// A startup: the kiosk account signs in when it is to, the person otherwise. The time of the boot
// moves on even when the clock does not.
void Boot(Terminal& terminal, std::int64_t nowMs);

// Whether the terminal has to go down now: its restart began, or the scheduled one has come.
[[nodiscard]] bool IsRestartDue(const Terminal& terminal, std::int64_t nowMs);

// What the setup tool does. An account of this name that exists keeps its uid; one that does not
// sign in any more still exists.
void EnableKiosk(Terminal& terminal, const KioskAccount& account);
void DisableKiosk(Terminal& terminal);

// False, with the account as it was, while its session is at the console. Without an account there
// is nothing to do.
[[nodiscard]] bool DeleteKioskAccount(Terminal& terminal);

// The kiosk session at the console begins, whoever was there before, or gives way to the login
// prompt. Nothing happens when that is so already, nor without an account.
void StartKioskSession(Terminal& terminal);
void EndKioskSession(Terminal& terminal);

// A person at the console: signs in at the login prompt, signs out again. What was in the way,
// empty when nothing was.
[[nodiscard]] std::string SignIn(Terminal& terminal);
[[nodiscard]] std::string SignOut(Terminal& terminal);

// Who is at the console, in words: "a person is signed in at the console, session 3".
[[nodiscard]] std::string DescribeConsole(const Terminal& terminal);

// All sessions: the one at the console, or none.
[[nodiscard]] std::vector<SessionInfo> SessionsOf(const Terminal& terminal);

// The session that a process of this uid belongs to. In the kiosk session the kiosk account's
// processes are in it and nobody else is in any; in a person's session everybody is.
[[nodiscard]] std::optional<SessionInfo> SessionOfUid(const Terminal& terminal, std::uint32_t uid);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_H_
