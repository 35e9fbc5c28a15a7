// The NTP servers that the system's clients name in their own files.
//
// For NtpServer (device/time_linux.cc), which reads the files of chrony and of systemd-timesyncd
// and hands their text here. The files are root's own and of any size; the time is linear in it.
// Nothing here touches the system, logs, or needs a lock; any thread.

#ifndef TARNVALE_KIOSKD_DEVICE_NTP_CONFIG_H_
#define TARNVALE_KIOSKD_DEVICE_NTP_CONFIG_H_

#include <string>
#include <string_view>
#include <vector>

namespace Tarnvale::KioskService {

// Whether this may be the name or IPv4 address of a server: 1 to 253 letters, digits, "-" and ".",
// the first neither "-" nor ".".
//
//   "ntp-1.example"   yes
//   "-v"              no, a tool would take it for an option
//   "fe80::1"         no
[[nodiscard]] bool ValidNtpHost(std::string_view name);

// The valid hosts of chrony's "pool" and "server" lines, in their order. What stands behind the
// host is ignored.
//
//   " server 10.0.0.1 iburst"   10.0.0.1
//   "pool -x\npool b.example"   b.example
//   "#server a.example"         none
[[nodiscard]] std::vector<std::string> ChronyHosts(std::string_view text);

// The valid hosts of timesyncd's "NTP=" lines, in their order and under any heading.
//
//   "[Time]\nNTP=a.example b.example"   a.example, b.example
//   "NTP = a.example"                   none
//   "FallbackNTP=a.example"             none
[[nodiscard]] std::vector<std::string> TimesyncdHosts(std::string_view text);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_NTP_CONFIG_H_
