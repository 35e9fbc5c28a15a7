#include "simulator/terminal.h"

#include <algorithm>

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kPersonName[] = "person";
// What logind says of everybody who signs in at the console, the kiosk account included.
constexpr char kUserClass[] = "user";
constexpr std::uint32_t kFirstPersonUid = 1000;

// A uid that is not the kiosk account's, also when that has the first ordinary user's.
std::uint32_t PersonUid(const Terminal& terminal) {
  const bool taken = terminal.account && terminal.account->uid == kFirstPersonUid;
  return taken ? kFirstPersonUid + 1 : kFirstPersonUid;
}

bool IsKioskAtConsole(const Terminal& terminal) {
  return terminal.atConsole == AtConsole::kKiosk && terminal.account;
}

void BeginSession(Terminal& terminal, AtConsole who) {
  terminal.atConsole = who;
  ++terminal.sessionNumber;
}

SessionInfo ConsoleSession(const Terminal& terminal) {
  SessionInfo session;
  session.id = std::to_string(terminal.sessionNumber);
  session.remote = false;
  session.active = true;
  session.sessionClass = kUserClass;
  session.tty = "tty1";
  const bool kiosk = IsKioskAtConsole(terminal);
  session.uid = kiosk ? terminal.account->uid : PersonUid(terminal);
  session.name = kiosk ? terminal.account->name : kPersonName;
  return session;
}

}  // namespace

void Boot(Terminal& terminal, std::int64_t nowMs) {
  terminal.bootedAtMs = std::max(nowMs, terminal.bootedAtMs + 1);
  terminal.restarting = false;
  terminal.restartAtMs = 0;
  terminal.packages.restartRequired = false;
  const bool kiosk = terminal.account && terminal.account->signsIn;
  BeginSession(terminal, kiosk ? AtConsole::kKiosk : AtConsole::kPerson);
}

bool IsRestartDue(const Terminal& terminal, std::int64_t nowMs) {
  return terminal.restarting || (terminal.restartAtMs != 0 && terminal.restartAtMs <= nowMs);
}

void EnableKiosk(Terminal& terminal, const KioskAccount& account) {
  const bool exists = terminal.account && terminal.account->name == account.name;
  if (!exists) terminal.account = account;
  terminal.account->signsIn = true;
}

void DisableKiosk(Terminal& terminal) {
  if (terminal.account) terminal.account->signsIn = false;
}

bool DeleteKioskAccount(Terminal& terminal) {
  if (IsKioskAtConsole(terminal)) return false;
  terminal.account.reset();
  return true;
}

void StartKioskSession(Terminal& terminal) {
  if (!terminal.account || IsKioskAtConsole(terminal)) return;
  BeginSession(terminal, AtConsole::kKiosk);
}

void EndKioskSession(Terminal& terminal) {
  if (IsKioskAtConsole(terminal)) terminal.atConsole = AtConsole::kNobody;
}

std::string SignIn(Terminal& terminal) {
  if (terminal.atConsole == AtConsole::kKiosk) return "the kiosk session is at the console";
  if (terminal.atConsole == AtConsole::kPerson) return "a person is signed in already";
  BeginSession(terminal, AtConsole::kPerson);
  return {};
}

std::string SignOut(Terminal& terminal) {
  if (terminal.atConsole == AtConsole::kKiosk) return "the kiosk session is at the console";
  if (terminal.atConsole == AtConsole::kNobody) return "nobody is signed in";
  terminal.atConsole = AtConsole::kNobody;
  return {};
}

std::string DescribeConsole(const Terminal& terminal) {
  if (terminal.atConsole == AtConsole::kNobody) return "nobody is signed in at the console";
  const std::string who = IsKioskAtConsole(terminal) ? "the kiosk account" : "a person";
  return who + " is signed in at the console, session " + std::to_string(terminal.sessionNumber);
}

std::vector<SessionInfo> SessionsOf(const Terminal& terminal) {
  if (terminal.atConsole == AtConsole::kNobody) return {};
  return {ConsoleSession(terminal)};
}

std::optional<SessionInfo> SessionOfUid(const Terminal& terminal, std::uint32_t uid) {
  if (terminal.atConsole == AtConsole::kNobody) return std::nullopt;
  if (IsKioskAtConsole(terminal) && uid != terminal.account->uid) return std::nullopt;
  return ConsoleSession(terminal);
}

}  // namespace Tarnvale::KioskService::Simulator
