// What the package tools print, as records.
//
// For RunApt (device/updates_linux.cc), which runs the tools in the C locale and hands over what
// they printed, at most 4 MiB each time. Any bytes may come; the time is linear in them. Nothing
// here logs; only AptProgressLine touches what other threads read, with one atomic write.

#ifndef TARNVALE_KIOSKD_DEVICE_APT_OUTPUT_H_
#define TARNVALE_KIOSKD_DEVICE_APT_OUTPUT_H_

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "device/os_update.h"

namespace Tarnvale::KioskService {

// The packages of a simulated upgrade, in the order of its "Inst " lines, with their sizes still
// unknown. The version is the first word behind the first "(". `specs` receives NAME=VERSION of
// those that have one. A package needs a restart when its name begins like a kernel, the C library,
// systemd, D-Bus or a board's firmware.
//
//   "Inst curl [7.88.1-1] (7.88.1-2 Debian:12 [amd64])"   curl, "curl 7.88.1-2"; curl=7.88.1-2
//   "Inst linux-image-amd64"                              that name alone, restart; no spec
//   "Conf curl (7.88.1-2 Debian:12 [amd64])"              none
[[nodiscard]] std::vector<OsUpdate> ParseSimulation(std::string_view output,
                                                    std::vector<std::string>& specs);

// Gives the packages of unknown size the one that `apt-cache show` told under exactly their name.
// The first size of a name stands; 0 and what is no 64-bit decimal number tell nothing.
//
//   "Package: curl\nSize: 315840\n"                 curl has 315840 bytes
//   "Package: curl:amd64\nSize: 315840\n"           curl stays unknown
//   "Package: curl\nSize: 1\nSize: 2\n"             curl has 1 byte
void ReadSizes(std::string_view output, std::vector<OsUpdate>& updates);

// Takes one line of apt's status pipe: the download is the first half of the progress, the work of
// the package manager the second, and each begins anew when apt's own percentage does. Any other
// line changes nothing. A percentage outside 0 to 100 counts as the nearer end, and what is no
// number as 0.
//
//   "dlstatus:1:50.0000:Retrieving file 1 of 2"   25
//   "pmstatus:curl:50.0000:Installing curl"       75
//   "pmerror:curl:50.0000:broken"                 as before
void AptProgressLine(const std::string& line, std::atomic<int>& progress);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_APT_OUTPUT_H_
