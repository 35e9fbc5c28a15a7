// Ending the kiosk account's sessions and deleting the account on a Linux system: the slots
// endKioskSessions and deleteKioskAccount.
//
// With systemctl, loginctl and userdel, and logind over D-Bus. Called by removal, and by the way
// into maintenance. Any thread; removal holds the lifecycle lock. What the tools print is not
// looked at.

#ifndef TARNVALE_KIOSKD_KIOSK_REMOVAL_LINUX_H_
#define TARNVALE_KIOSKD_KIOSK_REMOVAL_LINUX_H_

#include <string>

namespace Tarnvale::KioskService {

// Puts a login prompt on the console and ends all sessions of `user`, at most 80 s. With `wait`
// stays up to 10 s more, and the time of one question to logind, until logind lists none of them.
// What fails on the way is not told: the deletion that may follow decides.
void EndKioskSessions(const std::string& user, bool wait);

// Deletes `user` with its home directory, at most 60 s. True when no such account is left, also
// when its home directory could not be removed. Silent.
[[nodiscard]] bool DeleteKioskAccount(const std::string& user);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_REMOVAL_LINUX_H_
