// From one request line to one reply: the list of commands, and the order of the tests before each.
//
// With caller.h this is the complete statement of who may do what over the control socket. Commands
// are matched byte for byte. Refusals leave no state behind; the log names the command and never a
// member of the request.

#ifndef TARNVALE_KIOSKD_CONTROL_DISPATCH_H_
#define TARNVALE_KIOSKD_CONTROL_DISPATCH_H_

#include <functional>
#include <string>

#include "control/caller.h"

namespace Tarnvale::KioskService {

// Answers the reply text, without a line feed, on the connection's thread. A handler that must do
// something disruptive once the peer has its answer puts it into `after`, which is empty on entry:
// the connection runs it after closing the socket.
[[nodiscard]] std::string Dispatch(const std::string& line, const Caller& caller,
                                   std::function<void()>& after);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_DISPATCH_H_
