#include "simulator/terminal_json.h"

#include <algorithm>
#include <limits>

#include "device/power_policy_json.h"
#include "json/json.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kPersonWord[] = "person";
constexpr char kKioskWord[] = "kiosk";
constexpr char kNobodyWord[] = "nobody";

// Members that do not fit leave the field as it is, so that its default stands.
void ReadText(const Json& object, const char* key, std::string& text) {
  const Json& value = object.Get(key);
  if (value.IsString()) text = value.text;
}

void ReadFlag(const Json& object, const char* key, bool& flag) {
  const Json& value = object.Get(key);
  if (value.IsBool()) flag = value.boolean;
}

template <typename Number>
void ReadNumber(const Json& object, const char* key, Number& number) {
  const Json& value = object.Get(key);
  if (!value.IsNumber()) return;
  constexpr auto kLargest = static_cast<std::int64_t>(
      std::min<std::uint64_t>(std::numeric_limits<Number>::max(), INT64_MAX));
  constexpr std::int64_t kLowest = std::numeric_limits<Number>::min();
  const std::int64_t read = value.AsInt(0);
  if (read >= kLowest && read <= kLargest) number = static_cast<Number>(read);
}

// The elements that are objects, each made by `parse`; without an array the list stays as it is.
template <typename Record>
void ReadList(const Json& object, const char* key, Record (*parse)(const Json& value),
              std::vector<Record>& list) {
  const Json& array = object.Get(key);
  if (!array.IsArray()) return;
  list.clear();
  for (const Json& item : array.items)
    if (item.IsObject()) list.push_back(parse(item));
}

template <typename Record>
Json DumpList(const std::vector<Record>& list, Json (*dump)(const Record& record)) {
  Json array = Json::Array();
  for (const Record& record : list)
    array.Append(dump(record));
  return array;
}

const char* WordOf(AtConsole atConsole) {
  if (atConsole == AtConsole::kKiosk) return kKioskWord;
  return atConsole == AtConsole::kPerson ? kPersonWord : kNobodyWord;
}

// The kiosk session takes a kiosk account.
AtConsole ParseAtConsole(const Json& value, bool hasAccount) {
  const std::string word = value.AsString("");
  if (word == kKioskWord && hasAccount) return AtConsole::kKiosk;
  return word == kNobodyWord ? AtConsole::kNobody : AtConsole::kPerson;
}

Json DumpAccount(const std::optional<KioskAccount>& account) {
  if (!account) return {};
  Json value = Json::Object();
  value.Set("name", account->name);
  value.Set("uid", std::int64_t{account->uid});
  value.Set("signsIn", account->signsIn);
  return value;
}

std::optional<KioskAccount> ParseAccount(const Json& value) {
  if (!value.IsObject()) return std::nullopt;
  KioskAccount account;
  ReadText(value, "name", account.name);
  ReadNumber(value, "uid", account.uid);
  ReadFlag(value, "signsIn", account.signsIn);
  return account;
}

Json DumpAdapter(const Adapter& adapter) {
  Json value = Json::Object();
  value.Set("name", adapter.name);
  value.Set("type", adapter.type);
  value.Set("managed", adapter.managed);
  value.Set("connects", adapter.connects);
  value.Set("profile", adapter.profile);
  value.Set("method", adapter.method);
  value.Set("address", adapter.address);
  value.Set("gateway", adapter.gateway);
  value.Set("dns", adapter.dns);
  return value;
}

Adapter ParseAdapter(const Json& value) {
  Adapter adapter;
  ReadText(value, "name", adapter.name);
  ReadText(value, "type", adapter.type);
  ReadFlag(value, "managed", adapter.managed);
  ReadFlag(value, "connects", adapter.connects);
  ReadText(value, "profile", adapter.profile);
  ReadText(value, "method", adapter.method);
  ReadText(value, "address", adapter.address);
  ReadText(value, "gateway", adapter.gateway);
  ReadText(value, "dns", adapter.dns);
  return adapter;
}

Json DumpNtp(const NtpClient& ntp) {
  Json value = Json::Object();
  value.Set("server", ntp.server);
  value.Set("offsetMs", ntp.offsetMs);
  value.Set("answers", ntp.answers);
  value.Set("syncs", ntp.syncs);
  return value;
}

void ParseNtp(const Json& value, NtpClient& ntp) {
  ReadText(value, "server", ntp.server);
  ReadNumber(value, "offsetMs", ntp.offsetMs);
  ReadFlag(value, "answers", ntp.answers);
  ReadFlag(value, "syncs", ntp.syncs);
}

std::optional<PowerPolicy> ParsePower(const Json& value) {
  PowerPolicy policy;
  if (!ReadPowerPolicy(value, policy)) return std::nullopt;
  return policy;
}

Json DumpProxy(const std::optional<ProxyChange>& proxy) {
  if (!proxy) return {};
  Json bypass = Json::Array();
  for (const std::string& host : proxy->bypass)
    bypass.Append(host);
  Json value = Json::Object();
  value.Set("mode", proxy->mode);
  value.Set("pacUrl", proxy->pacUrl);
  value.Set("server", proxy->server);
  value.Set("bypass", bypass);
  return value;
}

std::optional<ProxyChange> ParseProxy(const Json& value) {
  if (!value.IsObject()) return std::nullopt;
  ProxyChange proxy;
  ReadText(value, "mode", proxy.mode);
  ReadText(value, "pacUrl", proxy.pacUrl);
  ReadText(value, "server", proxy.server);
  for (const Json& host : value.Get("bypass").items)
    if (host.IsString()) proxy.bypass.push_back(host.text);
  return proxy;
}

Json DumpUpdate(const OsUpdate& update) {
  Json value = Json::Object();
  value.Set("id", update.id);
  value.Set("title", update.title);
  value.Set("sizeBytes", static_cast<std::int64_t>(update.sizeBytes));
  value.Set("restartRequired", update.restartRequired);
  return value;
}

// A package that a person wrote down by its name alone is a whole one.
OsUpdate ParseUpdate(const Json& value) {
  OsUpdate update;
  ReadText(value, "id", update.id);
  update.title = update.id;
  ReadText(value, "title", update.title);
  ReadNumber(value, "sizeBytes", update.sizeBytes);
  ReadFlag(value, "restartRequired", update.restartRequired);
  return update;
}

Json DumpPackages(const PackageManager& packages) {
  Json value = Json::Object();
  value.Set("pending", DumpList(packages.pending, DumpUpdate));
  value.Set("restartRequired", packages.restartRequired);
  value.Set("scheduleTaken", packages.scheduleTaken);
  value.Set("failure", packages.failure);
  value.Set("checkSeconds", packages.checkSeconds);
  value.Set("installSeconds", packages.installSeconds);
  value.Set("restartSeconds", packages.restartSeconds);
  return value;
}

void ParsePackages(const Json& value, PackageManager& packages) {
  ReadList(value, "pending", ParseUpdate, packages.pending);
  ReadFlag(value, "restartRequired", packages.restartRequired);
  ReadFlag(value, "scheduleTaken", packages.scheduleTaken);
  ReadText(value, "failure", packages.failure);
  ReadNumber(value, "checkSeconds", packages.checkSeconds);
  ReadNumber(value, "installSeconds", packages.installSeconds);
  ReadNumber(value, "restartSeconds", packages.restartSeconds);
}

}  // namespace

std::string DumpTerminal(const Terminal& terminal) {
  Json value = Json::Object();
  value.Set("bootedAtMs", terminal.bootedAtMs);
  value.Set("restarting", terminal.restarting);
  value.Set("restartAtMs", terminal.restartAtMs);
  value.Set("atConsole", WordOf(terminal.atConsole));
  value.Set("sessionNumber", terminal.sessionNumber);
  value.Set("account", DumpAccount(terminal.account));
  value.Set("adapters", DumpList(terminal.adapters, DumpAdapter));
  value.Set("ntp", DumpNtp(terminal.ntp));
  value.Set("power", terminal.power ? PowerPolicyToJson(*terminal.power) : Json());
  value.Set("hasWakeAlarm", terminal.hasWakeAlarm);
  value.Set("proxy", DumpProxy(terminal.proxy));
  value.Set("packages", DumpPackages(terminal.packages));
  return value.Dump() + "\n";
}

std::optional<Terminal> ParseTerminal(std::string_view text) {
  const std::optional<Json> value = Json::Parse(text);
  if (!value || !value->Get("bootedAtMs").IsNumber()) return std::nullopt;
  Terminal terminal;
  ReadNumber(*value, "bootedAtMs", terminal.bootedAtMs);
  ReadFlag(*value, "restarting", terminal.restarting);
  ReadNumber(*value, "restartAtMs", terminal.restartAtMs);
  ReadNumber(*value, "sessionNumber", terminal.sessionNumber);
  terminal.account = ParseAccount(value->Get("account"));
  terminal.atConsole = ParseAtConsole(value->Get("atConsole"), terminal.account.has_value());
  ReadList(*value, "adapters", ParseAdapter, terminal.adapters);
  ParseNtp(value->Get("ntp"), terminal.ntp);
  terminal.power = ParsePower(value->Get("power"));
  ReadFlag(*value, "hasWakeAlarm", terminal.hasWakeAlarm);
  terminal.proxy = ParseProxy(value->Get("proxy"));
  ParsePackages(value->Get("packages"), terminal.packages);
  return terminal;
}

}  // namespace Tarnvale::KioskService::Simulator
