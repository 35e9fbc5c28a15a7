#include "simulator/terminal_network.h"

#include <algorithm>

#include "core/text.h"
#include "device/ipv4.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr char kUnknownAdapter[] = "unknown_adapter";
constexpr char kFailed[] = "failed";

template <typename Adapters>
auto FindIn(Adapters& adapters, const std::string& name) {
  return std::find_if(adapters.begin(), adapters.end(),
                      [&](const Adapter& adapter) { return adapter.name == name; });
}

bool IsChangeable(const Adapter& adapter) {
  return adapter.managed && (adapter.type == "ethernet" || adapter.type == "wifi");
}

void SetAddress(Adapter& adapter, const NetChange& change) {
  adapter.method = change.dhcp ? "auto" : "manual";
  adapter.address.clear();
  adapter.gateway.clear();
  if (change.dhcp) return;
  adapter.address = FormatIpv4(change.ip) + "/" + std::to_string(change.prefix);
  if (change.hasGateway) adapter.gateway = FormatIpv4(change.gateway);
}

void SetServers(Adapter& adapter, const NetChange& change) {
  std::vector<std::string> servers;
  for (const std::uint32_t server : change.dns)
    servers.push_back(FormatIpv4(server));
  adapter.dns = Join(servers, " ");
}

}  // namespace

std::vector<Adapter> FirstAdapters() {
  return {{.name = "eth0", .profile = "Wired connection 1"}, {.name = "wlan0", .type = "wifi"}};
}

std::string ChangeAdapter(std::vector<Adapter>& adapters, const NetChange& change) {
  const auto found = FindIn(adapters, change.adapter);
  if (found == adapters.end() || !IsChangeable(*found)) return kUnknownAdapter;
  if (found->profile.empty() && found->type == "wifi") return kFailed;
  if (found->profile.empty()) found->profile = "Tarnvale " + found->name;
  SetAddress(*found, change);
  SetServers(*found, change);
  return found->connects ? "" : kFailed;
}

const Adapter* FindAdapter(const std::vector<Adapter>& adapters, const std::string& name) {
  const auto found = FindIn(adapters, name);
  return found == adapters.end() ? nullptr : &*found;
}

std::string DescribeSettings(const Adapter& adapter) {
  std::string text = adapter.method;
  if (!adapter.address.empty()) text += ", " + adapter.address;
  if (!adapter.gateway.empty()) text += ", gateway " + adapter.gateway;
  return text + ", DNS " + (adapter.dns.empty() ? "automatic" : adapter.dns);
}

}  // namespace Tarnvale::KioskService::Simulator
