// The Linux slot exePathOfPid.

#ifndef TARNVALE_KIOSKD_CONTROL_CALLER_LINUX_H_
#define TARNVALE_KIOSKD_CONTROL_CALLER_LINUX_H_

#include <string>

namespace Tarnvale::KioskService {

// The path of a process's executable, at most 4095 bytes; empty on any failure. An executable that
// was deleted or replaced carries the kernel's suffix for that, so it matches no path. Any thread;
// silent.
[[nodiscard]] std::string ExePathOfPid(int pid);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CONTROL_CALLER_LINUX_H_
