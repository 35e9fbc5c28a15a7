// The administrators' sessions: those that begin while maintenance is in force, whose end will end
// it.
//
// An administrator leaves the kiosk, signs in at the console, and maintenance lasts until that
// person signs out again. The session watcher (kiosk/session_watcher.cc) adds and takes out the ids
// as it sees sessions come and go, every 2 s; Run takes the sessions that exist for known when the
// service starts during maintenance; `maintenance` begins with none. The ids are kept in memory
// alone: after a restart of the terminal no session is left that could end it.

#ifndef TARNVALE_KIOSKD_KIOSK_ADMIN_SESSIONS_H_
#define TARNVALE_KIOSKD_KIOSK_ADMIN_SESSIONS_H_

#include <cstdint>
#include <optional>
#include <string>

#include "core/locks.h"
#include "kiosk/session_info.h"

namespace Tarnvale::KioskService {

// A local session of a named user that is not the kiosk account. Without a known kiosk account
// every such session counts.
[[nodiscard]] bool IsAdministratorSession(const SessionInfo& session,
                                          std::optional<std::uint32_t> kioskUid);

// Tracks every administrator's session that exists now. Called by Run when the service starts
// during maintenance, so that it goes on waiting for the person who is at the terminal.
void AdoptAdminSessions() EXCLUDES(adminSessionsLock);

void TrackAdminSession(const std::string& id) EXCLUDES(adminSessionsLock);

// Tracks none any more: maintenance begins anew.
void ForgetAllAdminSessions() EXCLUDES(adminSessionsLock);

// True when the session was tracked, which it is no longer.
bool ForgetAdminSession(const std::string& id) EXCLUDES(adminSessionsLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_ADMIN_SESSIONS_H_
