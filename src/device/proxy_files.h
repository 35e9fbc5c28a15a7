// The texts of the two files that carry the system proxy.
//
// Called by the slot applyProxy, on a connection's thread. Pure functions on a change that was
// validated: its values stand unquoted in the one file and between quotes in the other, and nothing
// here escapes anything. Limits: an address of 2048 bytes, a server of 300, 64 entries of 253 bytes
// that are written three times; so some 50 KiB, which a request line never holds.

#ifndef TARNVALE_KIOSKD_DEVICE_PROXY_FILES_H_
#define TARNVALE_KIOSKD_DEVICE_PROXY_FILES_H_

#include <string>

#include "device/proxy_change.h"

namespace Tarnvale::KioskService {

// proxy.env, in the form NAME=value, for the kiosk session: the common proxy variables, and our own
// for programs that want the setting as it was made. With an auto-configuration address only the
// lower-case variables are set, as "pac+" and the address. The variables that name what goes direct
// say it in addresses and names, since "<local>" means nothing to those who read them.
[[nodiscard]] std::string ProxyEnvText(const ProxyChange& change);

// The package manager's file; only for a manual proxy, since it knows nothing of
// auto-configuration. Both schemes go to the proxy over plain http.
[[nodiscard]] std::string AptProxyText(const ProxyChange& change);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_PROXY_FILES_H_
