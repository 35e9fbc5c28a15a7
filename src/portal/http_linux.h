// The HTTP client: the slot http, made with libcurl, the one library that talks to the network.
//
// Called through PortalRequest (portal/request.h) on the service loop and on connections' threads,
// several at once. Each exchange has a handle and a connection of its own, kept by nobody, and
// lasts at most 15 s; there is no pool, no cookie and no retry, because the callers ask rarely and
// have a schedule for failures. No redirect is followed, because a token goes with the request. The
// URL must be http or https; certificates are verified as libcurl does by default. Silent: who
// asked logs what an answer means.

#ifndef TARNVALE_KIOSKD_PORTAL_HTTP_LINUX_H_
#define TARNVALE_KIOSKD_PORTAL_HTTP_LINUX_H_

#include <string>

#include "portal/http.h"

namespace Tarnvale::KioskService {

// Makes libcurl ready, once per process. Called before any other thread may make an exchange.
void PrepareHttp();

// One exchange, of at most 15 s (a resolver that hangs can add its own time-outs), on a connection
// of its own: http or https, no redirect followed, certificates verified. `body` is sent with POST
// and PUT only; an empty `token` sends no Authorization. At most `maxBytes` and one byte of the
// answer are kept, so that a caller can tell one that is too long; a chunk that crosses the limit
// ends the transfer. Retries nothing and logs nothing. Any thread.
[[nodiscard]] Http HttpExchange(const std::string& method, const std::string& url,
                                const std::string& body, const std::string& token,
                                unsigned long maxBytes, const std::string& accept);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_HTTP_LINUX_H_
