// One logind session as the service sees it. Data and nothing else.
//
// Filled by the slots listSessions and sessionOfPid (kiosk/sessions_linux.h) from the properties of
// logind's session object, and read by the rules that ask who is at the terminal. A property that
// logind did not tell keeps the value here, and those values are the cautious ones: nobody's uid,
// no class, not at this machine. So a session of which nothing is known gets no right.

#ifndef TARNVALE_KIOSKD_KIOSK_SESSION_INFO_H_
#define TARNVALE_KIOSKD_KIOSK_SESSION_INFO_H_

#include <cstdint>
#include <string>

namespace Tarnvale::KioskService {

// No account has this uid; it stands for "not known".
inline constexpr std::uint32_t kUnknownUid = 4294967295;

struct SessionInfo {
  std::string id;                   // logind's session id.
  std::uint32_t uid = kUnknownUid;  // Until it is read.
  std::string name;                 // The user name.
  bool remote = true;               // A session of which nothing is known counts as remote.
  bool active = false;              // Read, and looked at by no rule.
  std::string sessionClass;         // logind's class, for example "user".
  std::string tty;                  // Read, and looked at by no rule.
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_SESSION_INFO_H_
