// Reading the texts in which the running system tells about itself. No file is touched here: the
// slots that read /proc, /sys and /etc are in facts_linux.h. Each parser takes any bytes, in linear
// time.

#ifndef TARNVALE_KIOSKD_DEVICE_FACTS_H_
#define TARNVALE_KIOSKD_DEVICE_FACTS_H_

#include <string>
#include <string_view>

namespace Tarnvale::KioskService {

// The boot time of a /proc/stat text, in milliseconds since the epoch; 0 without a "btime" line.
//
//   "cpu 1 2\nbtime 1700000000\n"   1700000000000
//   "btime \n"                      0
//   ""                              0
[[nodiscard]] long ParseBootTimeMs(std::string_view procStat);

// The display name of an /etc/os-release text; "Linux" when it has none. One pair of quotes around
// the value goes, nothing else is unquoted.
//
//   PRETTY_NAME="Debian GNU/Linux 12 (bookworm)"   Debian GNU/Linux 12 (bookworm)
//   PRETTY_NAME=                                   the empty text
//   NAME=Debian                                    Linux
[[nodiscard]] std::string ParseDisplayName(std::string_view osRelease);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_FACTS_H_
