// One logind session as the service sees it.

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
