#include "device/network_linux.h"

#include <cstdint>
#include <vector>

#include "core/log.h"
#include "core/text.h"
#include "core/units.h"
#include "device/ipv4.h"
#include "device/nmcli_output.h"
#include "device/process_linux.h"

namespace Tarnvale::KioskService {
namespace {

using Arguments = std::vector<std::string>;

constexpr char kUnknownAdapter[] = "unknown_adapter";
constexpr char kFailed[] = "failed";

// Reading takes nmcli a moment; writing a profile may wait for a slow disk; an activation waits for
// the link and for the address.
constexpr std::int32_t kQueryTimeoutMs = 15 * kSecondMs;
constexpr std::int32_t kChangeTimeoutMs = 30 * kSecondMs;
constexpr std::int32_t kActivateTimeoutMs = 90 * kSecondMs;

// The full path of nmcli while it can do anything, otherwise empty.
std::string FindRunningNetworkManager() {
  const std::string nmcli = FindTool("nmcli");
  return !nmcli.empty() && UnitActive("NetworkManager.service") ? nmcli : std::string();
}

bool QueryDevice(const std::string& nmcli, const std::string& adapter, DeviceState& device) {
  const ProcResult run = RunProcess(
      {nmcli, "-t", "-f", "GENERAL.TYPE,GENERAL.STATE,GENERAL.CON-UUID", "device", "show", adapter},
      kQueryTimeoutMs);
  if (run.status != 0) return false;
  device = ParseDeviceState(run.output);
  return true;
}

bool IsChangeable(const DeviceState& device, const std::string& adapter) {
  if (device.type != "ethernet" && device.type != "wifi") return false;
  if (device.state.find("unmanaged") == std::string::npos) return true;
  Log("<4>net: %s is not managed by NetworkManager\n", adapter.c_str());
  return false;
}

// Gives a wired adapter a profile and tells its id; false when that cannot be told.
bool CreateProfile(const std::string& nmcli, const std::string& adapter, std::string& id) {
  const std::string name = "Tarnvale " + adapter;
  const ProcResult added = RunProcess({nmcli, "-t", "-g", "connection.uuid", "connection", "add",
                                       "type", "ethernet", "ifname", adapter, "con-name", name},
                                      kChangeTimeoutMs);
  if (added.status != 0) {
    Log("<3>net: cannot create a connection for %s: %s\n", adapter.c_str(),
        Trim(added.output).c_str());
    return false;
  }
  // The status says nothing that an id, or none, does not say.
  const ProcResult found = RunProcess(
      {nmcli, "-t", "-g", "connection.uuid", "connection", "show", name}, kQueryTimeoutMs);
  id = Trim(found.output);
  return !id.empty();
}

// The profile's id for a device that has none active. The service makes no wireless profile: it
// knows neither the network nor its password.
bool EnsureProfile(const std::string& nmcli, const std::string& adapter, DeviceState& device) {
  if (!device.connectionId.empty()) return true;
  if (device.type == "wifi") return false;
  return CreateProfile(nmcli, adapter, device.connectionId);
}

std::string ManualAddress(const NetChange& change) {
  return FormatIpv4(change.ip) + "/" + std::to_string(change.prefix);
}

// Empty values are arguments, too: they clear what an earlier fixed setting left.
Arguments SettingsOf(const NetChange& change) {
  const bool manual = !change.dhcp;
  return {"ipv4.method",
          manual ? "manual" : "auto",
          "ipv4.addresses",
          manual ? ManualAddress(change) : "",
          "ipv4.gateway",
          manual && change.hasGateway ? FormatIpv4(change.gateway) : "",
          "ipv4.dns",
          JoinIpv4(change.dns, " "),
          "ipv4.ignore-auto-dns",
          change.dns.empty() ? "no" : "yes"};
}

bool ModifyProfile(const std::string& nmcli, const std::string& id, const NetChange& change) {
  Arguments argv = {nmcli, "connection", "modify", id};
  const Arguments settings = SettingsOf(change);
  argv.insert(argv.end(), settings.begin(), settings.end());
  const ProcResult run = RunProcess(argv, kChangeTimeoutMs);
  if (run.status == 0) return true;
  Log("<3>net: nmcli modify failed: %s\n", Trim(run.output).c_str());
  return false;
}

bool ActivateProfile(const std::string& nmcli, const std::string& id, const std::string& adapter) {
  const ProcResult run =
      RunProcess({nmcli, "connection", "up", id, "ifname", adapter}, kActivateTimeoutMs);
  if (run.status == 0) return true;
  Log("<3>net: nmcli up failed: %s\n", Trim(run.output).c_str());
  return false;
}

}  // namespace

std::string ApplyNetwork(const NetChange& change) {
  const std::string& adapter = change.adapter;
  const std::string nmcli = FindRunningNetworkManager();
  if (nmcli.empty()) {
    Log("<4>net: NetworkManager is not running; %s cannot be changed from the terminal\n",
        adapter.c_str());
    return kUnknownAdapter;
  }
  DeviceState device;
  if (!QueryDevice(nmcli, adapter, device)) return kUnknownAdapter;
  if (!IsChangeable(device, adapter)) return kUnknownAdapter;
  if (!EnsureProfile(nmcli, adapter, device)) return kFailed;
  if (!ModifyProfile(nmcli, device.connectionId, change)) return kFailed;
  if (!ActivateProfile(nmcli, device.connectionId, adapter)) return kFailed;
  return {};
}

}  // namespace Tarnvale::KioskService
