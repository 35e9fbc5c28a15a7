// Presence: what the kiosk user interface reports about the person at the terminal.
//
// The terminal must not sleep or restart under somebody who uses it. The client says over the
// control socket whether somebody is signed in to it and whether a stream is live, and says it
// again well within the 150 seconds that a report is good for. The report is kept in memory, and on
// disk as "kiosk-presence.json" in the run directory (mode 0600), for processes that have no memory
// of this one.

#ifndef TARNVALE_KIOSKD_KIOSK_PRESENCE_H_
#define TARNVALE_KIOSKD_KIOSK_PRESENCE_H_

#include <string>

#include "core/locks.h"
#include "json/json.h"

namespace Tarnvale::KioskService {

// `session.report`: `signedIn` must be a bool, `live` a bool, null or absent. Answers the reply
// text: ok, or `invalid` with nothing changed. Logs when `signedIn` changes.
[[nodiscard]] std::string HandleSessionReport(const Json& request, const std::string& session)
    EXCLUDES(presenceLock);

// Clears the report, in memory and on disk, when `session` is the one that made it. Called by the
// session watcher when a session has ended.
void ForgetPresenceOf(const std::string& session) EXCLUDES(presenceLock);

// Writes the presence file with the present wall-clock time. The writer logs a failure, and the
// report in memory holds all the same.
void WritePresence(bool signedIn, bool live) REQUIRES(presenceLock);

// What speaks against a restart now, in words for the log; empty when nothing does. A report older
// than 150 s, or of a session that is no longer the kiosk's own, counts as none. Asks logind,
// outside the lock.
[[nodiscard]] std::string RestartBlocker() EXCLUDES(presenceLock);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_PRESENCE_H_
