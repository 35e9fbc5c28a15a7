// The one way in which the service starts another program.
//
// A tool is found in four fixed directories, never through PATH; it gets an argument vector, never
// a shell line; null input, no descriptor but 0, 1, 2 and, for the one caller that asks, 3; the C
// locale; a deadline; and a process group of its own, so that a stopped tool takes its children
// with it. What it prints is kept up to 4 MiB. Every function here may run on any thread, several
// at once, and blocks the caller for the whole run. A failing tool is a value, never an exception;
// callers say what it means.

#ifndef TARNVALE_KIOSKD_DEVICE_PROCESS_LINUX_H_
#define TARNVALE_KIOSKD_DEVICE_PROCESS_LINUX_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Tarnvale::KioskService {

struct ProcResult {
  // The exit code of a child that exited by itself; 127 also when it could not be executed. -1 when
  // nothing could be started, when the child died on a signal, and when the deadline passed.
  std::int32_t status = -1;
  // Standard output and standard error, merged as they arrived. At most 4,095 bytes over 4 MiB;
  // what comes after that is read and dropped, so that the tool is never blocked.
  std::string output;
};

// No status pipe for RunProcess. Any other value gives the child one, always as its descriptor 3.
inline constexpr std::int32_t kNoStatusFd = -1;

// The first of /usr/sbin, /usr/bin, /sbin and /bin that holds an executable of this name, as a full
// path; empty when none does.
[[nodiscard]] std::string FindTool(const std::string& name);

// Runs `argv`, whose first entry is the full path, with `extraEnv` ("NAME=value") and "LC_ALL=C"
// behind the service's own environment. `onStatusLine`, when given, is called on this thread for
// each complete line of the status pipe, without its line feed.
//
// The deadline, counted from the fork, guards the reading: when it passes the process group gets
// SIGTERM and a line is logged. There is no SIGKILL and no limit on the wait that follows: a tool
// that ignores SIGTERM, or closes its output and runs on, holds the caller until it exits.
[[nodiscard]] ProcResult RunProcess(
    const std::vector<std::string>& argv, std::int32_t timeoutMs,
    const std::vector<std::string>& extraEnv = {}, std::int32_t statusFd = kNoStatusFd,
    const std::function<void(const std::string&)>& onStatusLine = {});

// Runs systemctl with these arguments. Status -1 and no output when it is not installed. Silent.
[[nodiscard]] ProcResult Systemctl(const std::vector<std::string>& args, std::int32_t timeoutMs);

// Whether systemd calls the unit active; asks for at most 10 s.
[[nodiscard]] bool UnitActive(const std::string& unit);

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_DEVICE_PROCESS_LINUX_H_
