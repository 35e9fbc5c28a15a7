// The clock of a Linux system: the slots ntpServer, sntpOffset and resyncClock.
//
// Called on connection threads, several at once; no state, no lock. Reads the files of chrony
// (/etc/chrony/chrony.conf, /etc/chrony.conf, /etc/chrony/sources.d/*.sources) and of timesyncd
// (/etc/systemd/timesyncd.conf, /etc/systemd/timesyncd.conf.d/*.conf), speaks SNTP over UDP port
// 123, calls org.freedesktop.timedate1, and runs chronyc and systemctl. The service itself never
// sets the clock: the installed NTP client does.

#ifndef TARNVALE_KIOSKD_DEVICE_TIME_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_TIME_LINUX_H_

#include <string>

namespace Tarnvale::KioskService {

// The first host in the clients' files that resolves, chrony's first, whichever client is running;
// the distribution's stock host when none does. Never empty. Waits for the resolver. Silent.
[[nodiscard]] std::string NtpServer();

// One SNTP exchange: `offsetMs` receives how many milliseconds the clock is behind the server,
// negative when it is ahead. The server's addresses are tried in turn with one packet each, and
// have 5 s each to answer. False, with `offsetMs` untouched, when none gave an answer that counts.
// Silent.
[[nodiscard]] bool SntpOffset(const std::string& server, long* offsetMs);

// Turns NTP on, makes chrony (when it runs) or timesyncd correct the clock, and waits for at most
// 50 s until that client says that it is right. False when it does not, or when there is no client.
// Logs what failed, except that timesyncd took too long.
[[nodiscard]] bool ResyncClock();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_TIME_LINUX_H_
