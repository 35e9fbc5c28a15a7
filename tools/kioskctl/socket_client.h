// One exchange over the control socket: a request line out, a reply line back.

#ifndef TARNVALE_KIOSKD_TOOLS_KIOSKCTL_SOCKET_CLIENT_H_
#define TARNVALE_KIOSKD_TOOLS_KIOSKCTL_SOCKET_CLIENT_H_

#include <string>

namespace Tarnvale::KioskService::Kioskctl {

// Sends the request with a line feed and reads the reply up to its own, which is left out of
// `reply`; at most 1 MiB. Blocks for as long as the service takes. False with a sentence in
// `problem` when there is no service to connect to, or no whole reply.
[[nodiscard]] bool Exchange(const std::string& socketPath, const std::string& request,
                            std::string& reply, std::string& problem);

// Ends the process with `exitStatus` and a line on standard error once the time is up.
void EndProcessAfter(unsigned int seconds, int exitStatus);

}  // namespace Tarnvale::KioskService::Kioskctl

#endif  // TARNVALE_KIOSKD_TOOLS_KIOSKCTL_SOCKET_CLIENT_H_
