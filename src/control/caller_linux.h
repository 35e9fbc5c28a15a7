// The Linux slot exePathOfPid: which program a peer of the control socket runs.
//
// The gate of the socket (CheckCallerImage in control/caller.h) calls it for a peer other than
// root, on the connection's thread, and compares the answer with the configured client; Run calls
// it once for the service's own process, to see whether it is the installed one. It reads one link,
// /proc/PID/exe, which the kernel shows to root for every process. The answer is as good as the
// moment: a process may have ended, its number may be another's, or it may have started another
// program since it connected. No wait, no lock; silent.

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
