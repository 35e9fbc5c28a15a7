// The session watcher: a thread that looks at logind's sessions every two seconds.
//
// It sees which sessions are new and which are gone. A report about the person at the terminal goes
// with the session that made it, and a session that begins during maintenance is an
// administrator's. An empty list means that no sessions exist, also when logind did not answer. A
// look costs one D-Bus call, and one more for each session; a logind that hangs delays the next
// look and nothing else.

#ifndef TARNVALE_KIOSKD_KIOSK_SESSION_WATCHER_H_
#define TARNVALE_KIOSKD_KIOSK_SESSION_WATCHER_H_

namespace Tarnvale::KioskService {

// Takes the sessions that exist now for known. Called by Run, before the watcher's thread exists:
// what is known has no lock, because that thread alone touches it from then on.
void TakeSessionBaseline();

// One look at the sessions.
void SessionWatcherTick();

// The thread's body; returns on a stop.
void SessionWatcher();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_KIOSK_SESSION_WATCHER_H_
