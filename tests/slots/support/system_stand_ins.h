// Stand-ins for calls into the system whose failures no test can bring about otherwise.
//
// The test executables define these functions themselves, in front of the C library and GLib. Each
// does what the real one does until a test says otherwise, for the rest of its process.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_SYSTEM_STAND_INS_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_SYSTEM_STAND_INS_H_

#include <string>
#include <vector>

namespace Tarnvale::KioskService::StandIn {

// fork fails with EAGAIN.
void FailForks();

// setpgid succeeds and does nothing: what a parent sees of a child that has not come so far.
void LeaveProcessGroupsAlone();

// The next poll fails with this error.
void FailNextPoll(int error);
// The longest time-out given to poll so far.
[[nodiscard]] int LongestPollMs();

// From now on just the executables of this list exist for access, whatever the disk says.
void SetExecutables(const std::vector<std::string>& paths);
// The paths that were tried for execution since then.
[[nodiscard]] std::vector<std::string> TriedExecutables();

// From now on stat finds none of these paths, whatever the disk says. Links that lead elsewhere in
// the same place (/lib and /usr/lib, /var/run and /run) can be told apart so.
void HideFromStat(const std::vector<std::string>& paths);

// gethostname fails.
void FailHostName();
// gethostname fills the buffer with as much of this name as fits and does not terminate it then.
void SetHostName(const std::string& name);

// The time-outs of all D-Bus calls so far.
[[nodiscard]] std::vector<int> DbusTimeoutsMs();

// curl_easy_init gives no handle.
void FailCurlHandles();
// One option that was set on a handle. Only numbers have a value here.
struct CurlOption {
  int option = 0;
  long value = 0;

  bool operator==(const CurlOption&) const = default;
};
// All options that were set so far, in their order.
[[nodiscard]] std::vector<CurlOption> CurlOptions();

}  // namespace Tarnvale::KioskService::StandIn

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_SYSTEM_STAND_INS_H_
