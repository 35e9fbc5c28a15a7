// Requests to the portal by their path: where the portal is, and what an exchange may cost.
//
// For pairing, the check-in and the branding cache, on the service loop and on connections'
// threads. Each request looks the base URL up anew and makes one exchange of at most 15 s through
// the slot http. Takes the state lock for that look alone; of its callers only pairing holds a lock
// of its own across the exchange.

#ifndef TARNVALE_KIOSKD_PORTAL_REQUEST_H_
#define TARNVALE_KIOSKD_PORTAL_REQUEST_H_

#include <string>

#include "core/units.h"
#include "portal/http.h"

namespace Tarnvale::KioskService {

// What pairing and the check-in keep of an answer, and what they ask for.
inline constexpr unsigned long kMaxPortalReplyBytes = 64 * kKiB;
inline constexpr char kAcceptJson[] = "application/json";

// One exchange with the portal, through the http slot; blocks for up to 15 s. `path` begins with
// "/". The base URL is the one of the command line, else AuthBaseUrl of the state, else the build's
// default, without its trailing slashes. Nothing of the result is checked and nothing is logged.
[[nodiscard]] Http PortalRequest(const std::string& method, const std::string& path,
                                 const std::string& body, const std::string& token,
                                 unsigned long maxBytes, const std::string& accept);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_REQUEST_H_
