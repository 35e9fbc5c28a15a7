// `net.set`: one wired or wireless adapter between automatic and fixed addressing.
//
// The service keeps no network settings of its own, neither in the state document nor in a file:
// the connection profile of the system's network manager is the only record of a change, and what
// is done to it stands in device/network_linux.h. Here a request is read, strictly, and the change
// is told to the log. Called on the thread of the request's connection. Limits: an adapter name of
// 15 bytes, four name servers, and up to 190 s for one change (180 s of nmcli, and 10 s of asking
// whether its service runs); later changes wait for it, also those of other adapters.

#ifndef TARNVALE_KIOSKD_DEVICE_NETWORK_H_
#define TARNVALE_KIOSKD_DEVICE_NETWORK_H_

#include <string>

#include "core/locks.h"
#include "device/net_change.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// Reads the members of a request in the order adapter, mode, dns, ip, prefix, gateway; those that
// only fixed addressing needs are not looked at otherwise. False on the first that is not right:
// `field` is then its name, and `change` is untouched. Silent; no lock.
//
//   {"adapter":"eth0","mode":"dhcp"}                                       automatic
//   {"adapter":"eth0","mode":"static","ip":"10.0.0.255","prefix":24}       refused: ip
//   {"adapter":"eth0","mode":"static","ip":"10.0.0.7","prefix":"24"}       refused: prefix
[[nodiscard]] bool ParseNetChange(const Json& request, NetChange& change, std::string& field);

// Carries the request out and answers with its reply: ok, or `invalid`, `unknown_adapter` or
// `failed`. Logs a refusal, and the beginning and the end of a change. Holds the network lock from
// the one to the other.
[[nodiscard]] std::string HandleNetSet(const Json& request) EXCLUDES(networkLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_NETWORK_H_
