// Sessions from logind over D-Bus: the slots listSessions and sessionOfPid.
//
// Called by the session watcher every 2 s, by IdentifyCaller for each connection, and by whoever
// asks who is at the terminal. Uses the manager and the session objects of org.freedesktop.login1,
// and reads all properties of a session in one call; what is of another type than logind documents
// is passed over. Each call waits at most 10 s, so a list of N sessions may take N + 1 times that.
// Any thread; silent, because a list that does not come reads as a terminal without sessions.

#ifndef TARNVALE_KIOSKD_KIOSK_SESSIONS_LINUX_H_
#define TARNVALE_KIOSKD_KIOSK_SESSIONS_LINUX_H_

#include <string>
#include <vector>

#include "kiosk/session_info.h"

namespace Tarnvale::KioskService {

// Reads the properties of one session object. False when logind does not answer or names no id.
[[nodiscard]] bool ReadSession(const std::string& objectPath, SessionInfo* info);

// All sessions in logind's order, without those that cannot be read. Empty when logind does not
// answer.
[[nodiscard]] std::vector<SessionInfo> ListSessions();

// The session of a process; false when it has none or logind does not answer.
[[nodiscard]] bool SessionOfPid(int pid, SessionInfo* info);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_SESSIONS_LINUX_H_
