// The network adapters of the simulated terminal, as its network manager sees them.
//
// Plain data and rules, like terminal.h; silent.

#ifndef TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_NETWORK_H_
#define TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_NETWORK_H_

#include <string>
#include <vector>

#include "device/net_change.h"

namespace Tarnvale::KioskService::Simulator {

// The settings are the profile's and read as nmcli takes them.
struct Adapter {
  std::string name = {};
  std::string type = "ethernet";  // Or "wifi"; any other kind cannot be changed.
  bool managed = true;            // By the network manager.
  bool connects = true;           // The cable is in, or the network is in reach.
  std::string profile = {};       // Name of the connection profile; empty for none.
  std::string method = "auto";    // Or "manual".
  std::string address = {};       // "192.0.2.5/24"; empty with "auto".
  std::string gateway = {};       // Empty for none.
  std::string dns = {};           // Servers with a blank between each two; empty for automatic.

  bool operator==(const Adapter&) const = default;
};

// What a new terminal has: eth0, in use, and wlan0, on which no profile is.
[[nodiscard]] std::vector<Adapter> FirstAdapters();

// Changes one adapter. Empty on success, otherwise the code that the peer gets: `unknown_adapter`
// for one that is not there, not managed or of another kind; `failed` for a wireless one without a
// profile, which changes nothing, and for one that does not connect, which keeps the new settings.
// An ethernet adapter without a profile gets one.
[[nodiscard]] std::string ChangeAdapter(std::vector<Adapter>& adapters, const NetChange& change);

// The adapter of this name; null when there is none.
[[nodiscard]] const Adapter* FindAdapter(const std::vector<Adapter>& adapters,
                                         const std::string& name);

// The settings in words: "manual, 192.0.2.5/24, gateway 192.0.2.1, DNS automatic".
[[nodiscard]] std::string DescribeSettings(const Adapter& adapter);

}  // namespace Tarnvale::KioskService::Simulator

#endif  // TARNVALE_KIOSKD_TOOLS_SIMULATOR_TERMINAL_NETWORK_H_
