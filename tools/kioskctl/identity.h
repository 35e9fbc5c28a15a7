// Becoming another user, for root who tries what the service grants to others only.

#ifndef TARNVALE_KIOSKD_TOOLS_KIOSKCTL_IDENTITY_H_
#define TARNVALE_KIOSKD_TOOLS_KIOSKCTL_IDENTITY_H_

#include <cstdint>
#include <string>

namespace Tarnvale::KioskService::Kioskctl {

// Gives up all groups and becomes `uid`, with the group that the user database names for it or else
// the group of the same number, for good. True at once when the process is that user already.
// False when it could not, with a sentence in `problem`; the process must end then, since it may
// have gone half of the way.
[[nodiscard]] bool BecomeUser(std::uint32_t uid, std::string& problem);

}  // namespace Tarnvale::KioskService::Kioskctl

#endif  // TARNVALE_KIOSKD_TOOLS_KIOSKCTL_IDENTITY_H_
