// A terminal in a sandbox to which power policies are applied: its tools only record, so that
// nothing reaches the machine of the test.

#ifndef TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_POWER_TERMINAL_H_
#define TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_POWER_TERMINAL_H_

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "core/config.h"
#include "device/power_linux.h"
#include "slots/support/recorder.h"

namespace Tarnvale::KioskService {

inline constexpr char kEnvPath[] = "/etc/tarnvale-kiosk/power.env";
inline constexpr char kDropInPath[] = "/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf";
inline constexpr char kServicePath[] = "/etc/systemd/system/tarnvale-kiosk-sleep.service";
inline constexpr char kTimerPath[] = "/etc/systemd/system/tarnvale-kiosk-sleep.timer";
inline constexpr unsigned kWatchedUid = 1501;

inline constexpr char kReloadCall[] = "systemctl [reload] [systemd-logind.service]\n";
inline constexpr char kKillCall[] = "systemctl [kill] [-s] [HUP] [systemd-logind.service]\n";
inline constexpr char kTimerCalls[] =
    "systemctl [daemon-reload]\n"
    "systemctl [enable] [--now] [tarnvale-kiosk-sleep.timer]\n"
    "systemctl [restart] [tarnvale-kiosk-sleep.timer]\n";
inline constexpr char kRemovalCalls[] =
    "systemctl [disable] [--now] [tarnvale-kiosk-sleep.timer]\n"
    "systemctl [daemon-reload]\n";
inline constexpr char kNoAlarmLine[] = "<4>power: this device has no RTC wake alarm\n";

class PowerTerminalTest : public RecordedToolTest {
 protected:
  PowerTerminalTest() {
    Replace("systemctl");
    Replace("rtcwake");
    WriteText("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
    WriteText("/etc/passwd",
              "root:x:0:0:root:/root:/bin/sh\n"
              "tarnvale-kiosk:x:1501:1501:Tarnvale kiosk:/home/kiosk:/bin/sh\n");
    for (const char* const path : {"/etc/tarnvale-kiosk", "/etc/systemd/logind.conf.d"})
      std::filesystem::remove_all(path);
    std::filesystem::create_directories("/etc/systemd/system");
    HasWakeAlarm();
  }

  static void HasWakeAlarm() {
    std::filesystem::create_directories("/sys/class/rtc/rtc0");
    WriteText("/sys/class/rtc/rtc0/wakealarm", "");
  }
  static void HasNoWakeAlarm() {
    std::filesystem::remove("/sys/class/rtc/rtc0/wakealarm");
  }

  // Idle times without a schedule, and a schedule beside the default idle times.
  [[nodiscard]] static PowerPolicy Idle(int screenOffMinutes, int sleepMinutes) {
    return {.screenOffMinutes = screenOffMinutes, .sleepMinutes = sleepMinutes, .schedule = {}};
  }
  [[nodiscard]] static PowerPolicy Nightly(int sleepAt = 1320) {
    return {.screenOffMinutes = 15,
            .sleepMinutes = 0,
            .schedule = {.enabled = true, .sleepAt = sleepAt, .wakeAt = 425, .days = 0x3E}};
  }

  std::string Apply(const PowerPolicy& policy) {
    return ApplyPower(config, policy);
  }

  // Forgets what was logged and called.
  void StartAfresh() {
    log.Clear();
    std::filesystem::remove(directory.At("calls"));
  }

  // What tells whether a file was written, replaced or only looked at.
  [[nodiscard]] static std::string Version(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) return "missing";
    return std::to_string(status.st_ino) + " " + std::to_string(status.st_ctim.tv_sec) + "." +
           std::to_string(status.st_ctim.tv_nsec);
  }

  // A systemctl that hangs on this command and fails for none.
  void SystemctlHangsOn(const std::string& command) {
    Replace("systemctl", "[ \"$1\" = " + command + " ] || exit 0\n" + kHang);
  }

  Config config;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_SLOTS_SUPPORT_POWER_TERMINAL_H_
