// Ending the idle watchers (swayidle) of the kiosk session, so that what keeps them running there
// starts them anew with the values of the environment file that has just changed.

#ifndef TARNVALE_KIOSKD_DEVICE_IDLE_WATCHER_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_IDLE_WATCHER_LINUX_H_

#include <string>

namespace Tarnvale::KioskService {

// Sends SIGTERM to each process of `user` that is named "swayidle", and waits for none. Does
// nothing when there is no such account; silent, but that the lookup logs a database that fails.
// Any thread; one pass over /proc.
void StopIdleWatchers(const std::string& user);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_IDLE_WATCHER_LINUX_H_
