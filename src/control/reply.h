// The two plain replies of the control protocol. Handlers return their reply as JSON text without
// the final line feed.

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
