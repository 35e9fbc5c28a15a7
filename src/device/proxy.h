// `proxy.set`: how the terminal reaches the outside, directly, through a proxy server, or through
// an auto-configuration address.
//
// The service does not use the setting itself. It reads the request with great care, because other
// programs read the values unquoted from the two files of device/proxy_files.h: the validation is
// what keeps those files well-formed. Nothing is kept in the state document, and nothing reads the
// files back. Called on the thread of the request's connection. Limits: an address of 2048 bytes, a
// server of 300, and 64 hosts that go direct, of 253 bytes each.

#ifndef TARNVALE_KIOSKD_DEVICE_PROXY_H_
#define TARNVALE_KIOSKD_DEVICE_PROXY_H_

#include <string>

#include "device/proxy_change.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// Reads the members that the mode needs; the others are not looked at. False on the first that is
// not right: `field` is then its name, and `change` is untouched. Silent; no lock.
//
//   {"mode":"manual","server":"Proxy.example:3128"}   the server proxy.example:3128
//   {"mode":"manual","server":"proxy.example"}        refused: server (no port)
//   {"mode":"auto","pacUrl":"http://u@host/"}         refused: pacUrl (credentials)
//
// A `pacUrl` that is the word http or https alone, in any case of its letters and with space around
// it or not, raises std::out_of_range. Nothing in the service catches it: it ends there, and is
// started anew. No other input does so.
[[nodiscard]] bool ParseProxyChange(const Json& request, ProxyChange& change, std::string& field);

// Carries the request out and answers with its reply: the settings as they were understood, or
// `invalid` or `failed`. Logs the outcome. No lock: of two at once the last writer stands. Raises
// what ParseProxyChange raises.
[[nodiscard]] std::string HandleProxySet(const Json& request);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_PROXY_H_
