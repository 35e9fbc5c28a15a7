#include "simulator/terminal.h"

#include <algorithm>

#include "json/json.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kPersonName[] = "person";
constexpr char kKioskWord[] = "kiosk";
// What logind says of everybody who signs in at the console, the kiosk account included.
constexpr char kUserClass[] = "user";
constexpr std::uint32_t kFirstPersonUid = 1000;

// A uid that is not the kiosk account's, also when that has the first ordinary user's.
std::uint32_t PersonUid(const Terminal& terminal) {
  const bool taken = terminal.account && terminal.account->uid == kFirstPersonUid;
  return taken ? kFirstPersonUid + 1 : kFirstPersonUid;
}

SessionInfo ConsoleSession(const Terminal& terminal) {
  SessionInfo session;
  session.id = std::to_string(terminal.sessionNumber);
  session.remote = false;
  session.active = true;
  session.sessionClass = kUserClass;
  session.tty = "tty1";
  const bool kiosk = terminal.atConsole == AtConsole::kKiosk && terminal.account;
  session.uid = kiosk ? terminal.account->uid : PersonUid(terminal);
  session.name = kiosk ? terminal.account->name : kPersonName;
  return session;
}

std::optional<KioskAccount> ParseAccount(const Json& value) {
  if (!value.IsObject()) return std::nullopt;
  return KioskAccount{.name = value.Get("name").AsString(""),
                      .uid = static_cast<std::uint32_t>(value.Get("uid").AsInt(kUnknownUid))};
}

Json AccountToJson(const std::optional<KioskAccount>& account) {
  if (!account) return {};
  Json value = Json::Object();
  value.Set("name", account->name);
  value.Set("uid", std::int64_t{account->uid});
  return value;
}

}  // namespace

void Boot(Terminal& terminal, std::int64_t nowMs) {
  terminal.bootedAtMs = std::max(nowMs, terminal.bootedAtMs + 1);
  terminal.restarting = false;
  terminal.atConsole = terminal.account ? AtConsole::kKiosk : AtConsole::kPerson;
  ++terminal.sessionNumber;
}

void EnableKiosk(Terminal& terminal, const KioskAccount& account) {
  const bool exists = terminal.account && terminal.account->name == account.name;
  if (!exists) terminal.account = account;
}

void DisableKiosk(Terminal& terminal) {
  terminal.account.reset();
}

std::vector<SessionInfo> SessionsOf(const Terminal& terminal) {
  return {ConsoleSession(terminal)};
}

std::optional<SessionInfo> SessionOfUid(const Terminal& terminal, std::uint32_t uid) {
  const bool inKioskMode = terminal.atConsole == AtConsole::kKiosk && terminal.account;
  if (inKioskMode && uid != terminal.account->uid) return std::nullopt;
  return ConsoleSession(terminal);
}

std::string DumpTerminal(const Terminal& terminal) {
  Json value = Json::Object();
  value.Set("bootedAtMs", terminal.bootedAtMs);
  value.Set("restarting", terminal.restarting);
  value.Set("atConsole", terminal.atConsole == AtConsole::kKiosk ? kKioskWord : kPersonName);
  value.Set("sessionNumber", terminal.sessionNumber);
  value.Set("account", AccountToJson(terminal.account));
  return value.Dump() + "\n";
}

std::optional<Terminal> ParseTerminal(std::string_view text) {
  const std::optional<Json> value = Json::Parse(text);
  if (!value || !value->Get("bootedAtMs").IsNumber()) return std::nullopt;
  return Terminal{
      .bootedAtMs = value->Get("bootedAtMs").AsInt(0),
      .restarting = value->Get("restarting").AsBool(false),
      .atConsole = value->Get("atConsole").AsString("") == kKioskWord ? AtConsole::kKiosk
                                                                      : AtConsole::kPerson,
      .sessionNumber = static_cast<int>(value->Get("sessionNumber").AsInt(1)),
      .account = ParseAccount(value->Get("account")),
  };
}

}  // namespace Tarnvale::KioskService::Simulator
