// The terminal's display name, as the portal sends it.
//
// A person typed it into the portal; the kiosk user interface shows it. The check-in
// (portal/check_in.cc) cleans it before it is kept in the state, because from there it goes to the
// client and, on a change, to the log, where a line feed would begin a line of its own. Limits: 80
// characters, so at most 320 bytes; the portal's reply is bounded to 65,537 before. A pure
// function, linear in the text; any thread; silent.

#ifndef TARNVALE_KIOSKD_PORTAL_TERMINAL_NAME_H_
#define TARNVALE_KIOSKD_PORTAL_TERMINAL_NAME_H_

#include <string>
#include <string_view>

namespace Tarnvale::KioskService {

// At most 80 characters of the text, without control characters and without white space at the
// ends. A character is a byte below 128 or a UTF-8 sequence by its first byte; continuation bytes
// are kept as they are. A sequence that the text breaks off is dropped with all that follows.
//
//   " Hall\x07way \n"   "Hallway"
//   "Caf\xC3\xA9"       "Caf\xC3\xA9"
//   "\x01\x02"          ""
[[nodiscard]] std::string CleanTerminalName(std::string_view text);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_PORTAL_TERMINAL_NAME_H_
