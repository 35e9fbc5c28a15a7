// The two plain replies of the control protocol.
//
// For every handler of a command, and for whoever refuses a request before one is reached. A reply
// is a JSON object with the member `ok`; a refusal has a code for programs in `error`, and never a
// sentence, which would be one that the log alone should hold. Handlers return their reply as text
// without the final line feed, which the connection adds. Pure functions on any thread.

#ifndef TARNVALE_KIOSKD_CONTROL_REPLY_H_
#define TARNVALE_KIOSKD_CONTROL_REPLY_H_

#include <string>

namespace Tarnvale::KioskService {

// {"ok":true}
[[nodiscard]] std::string ReplyOk();

// {"ok":false,"error":"<code>"}: a short lower-case code for programs. Sentences go to the log.
[[nodiscard]] std::string ReplyError(const std::string& code);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_REPLY_H_
