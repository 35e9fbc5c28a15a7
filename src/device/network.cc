#include "device/network.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

#include "control/reply.h"
#include "core/log.h"
#include "core/service.h"
#include "device/ipv4.h"
#include "device/policy_fields.h"

namespace Tarnvale::KioskService {
namespace {

// The kernel's own limit, its terminating NUL left out.
constexpr std::size_t kMaxAdapterBytes = 15;
constexpr std::string_view kAdapterBytes =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-.@_";
constexpr std::size_t kMaxNameServers = 4;
constexpr int kAddressBits = 32;
// In longer prefixes every address is a host's.
constexpr int kLongestPrefixWithBroadcast = 30;
constexpr std::uint32_t kLoopbackNetwork = 127;
constexpr std::uint32_t kFirstMulticastNetwork = 224;

bool ReadAdapter(const Json& value, std::string& adapter) {
  if (!value.IsString()) return false;
  const std::string& name = value.text;
  if (name.empty() || name.size() > kMaxAdapterBytes) return false;
  if (name.find_first_not_of(kAdapterBytes) != std::string::npos) return false;
  if (name == "." || name == "..") return false;
  adapter = name;
  return true;
}

bool ReadMode(const Json& value, bool& dhcp) {
  if (!value.IsString()) return false;
  if (value.text != "dhcp" && value.text != "static") return false;
  dhcp = value.text == "dhcp";
  return true;
}

// An address that a single host may have: none of this network, of the loopback, of multicast or
// of what lies above.
bool ReadPlainAddress(const Json& value, std::uint32_t& address) {
  std::uint32_t read = 0;
  if (!ParseIpv4(value, read)) return false;
  const std::uint32_t network = read >> 24;
  if (network == 0 || network == kLoopbackNetwork || network >= kFirstMulticastNetwork) {
    return false;
  }
  address = read;
  return true;
}

bool ReadNameServers(const Json& value, std::vector<std::uint32_t>& servers) {
  if (value.IsNull()) return true;
  if (!value.IsArray() || value.Size() > kMaxNameServers) return false;
  for (const Json& item : value.items) {
    std::uint32_t server = 0;
    if (!ReadPlainAddress(item, server)) return false;
    if (std::find(servers.begin(), servers.end(), server) != servers.end()) return false;
    servers.push_back(server);
  }
  return true;
}

std::uint32_t NetmaskOf(std::int32_t prefix) {
  return ~std::uint32_t{0} << (kAddressBits - prefix);
}

// Neither the address of the subnet itself nor its broadcast address.
bool IsHostOfSubnet(std::uint32_t address, const NetChange& change) {
  if (change.prefix > kLongestPrefixWithBroadcast) return true;
  const std::uint32_t host = address & ~change.netmask;
  return host != 0 && host != ~change.netmask;
}

bool MeansNoGateway(const Json& value) {
  return value.IsNull() || (value.IsString() && value.text.empty());
}

bool ReadGateway(const Json& value, NetChange& change) {
  if (MeansNoGateway(value)) return true;
  if (!ReadPlainAddress(value, change.gateway)) return false;
  if (change.gateway == change.ip) return false;
  if (((change.gateway ^ change.ip) & change.netmask) != 0) return false;
  if (!IsHostOfSubnet(change.gateway, change)) return false;
  change.hasGateway = true;
  return true;
}

// The name of the first member that is not right; empty when all are.
std::string ReadMembers(const Json& request, NetChange& change) {
  if (!ReadAdapter(request.Get("adapter"), change.adapter)) return "adapter";
  if (!ReadMode(request.Get("mode"), change.dhcp)) return "mode";
  if (!ReadNameServers(request.Get("dns"), change.dns)) return "dns";
  if (change.dhcp) return {};
  if (!ReadPlainAddress(request.Get("ip"), change.ip)) return "ip";
  if (!ReadWholeNumber(request.Get("prefix"), 1, kAddressBits, change.prefix)) return "prefix";
  change.netmask = NetmaskOf(change.prefix);
  if (!IsHostOfSubnet(change.ip, change)) return "ip";
  if (!ReadGateway(request.Get("gateway"), change)) return "gateway";
  return {};
}

std::string DescribeAddress(const NetChange& change) {
  if (change.dhcp) return "automatic (DHCP)";
  const std::string address =
      "fixed " + FormatIpv4(change.ip) + "/" + std::to_string(change.prefix);
  if (!change.hasGateway) return address + " no gateway";
  return address + " gateway " + FormatIpv4(change.gateway);
}

// What the log says of a change.
std::string Describe(const NetChange& change) {
  const std::string servers = change.dns.empty() ? "automatic" : JoinIpv4(change.dns, ",");
  return DescribeAddress(change) + ", DNS " + servers;
}

// The error code, empty on success. Under the lock until the last line is logged, because two
// changes whose child processes and lines mix would leave nobody able to tell what holds.
std::string ApplyAlone(const NetChange& change) EXCLUDES(networkLock) {
  const MutexLock lock(networkLock);
  const std::string description = Describe(change);
  Log("<6>net: %s: setting %s\n", change.adapter.c_str(), description.c_str());
  const std::string error = Platform().applyNetwork(change);
  if (error.empty()) {
    Log("<6>net: %s is now %s\n", change.adapter.c_str(), description.c_str());
  } else {
    Log("<3>net: %s: the change to %s did not apply (%s)\n", change.adapter.c_str(),
        description.c_str(), error.c_str());
  }
  return error;
}

}  // namespace

bool ParseNetChange(const Json& request, NetChange& change, std::string& field) {
  NetChange read;
  const std::string invalid = ReadMembers(request, read);
  if (!invalid.empty()) {
    field = invalid;
    return false;
  }
  change = read;
  return true;
}

std::string HandleNetSet(const Json& request) {
  NetChange change;
  std::string field;
  if (!ParseNetChange(request, change, field)) {
    Log("<4>net.set refused: invalid %s\n", field.c_str());
    return ReplyError("invalid");
  }
  const std::string error = ApplyAlone(change);
  return error.empty() ? ReplyOk() : ReplyError(error);
}

}  // namespace Tarnvale::KioskService
