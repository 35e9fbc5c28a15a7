#include "device/power_linux.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core/files.h"
#include "core/log.h"
#include "core/text.h"
#include "core/units.h"
#include "device/dbus_linux.h"
#include "device/idle_watcher_linux.h"
#include "device/policy_fields.h"
#include "device/power_files.h"
#include "device/process_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kIdleDropInDirectory[] = "/etc/systemd/logind.conf.d";
constexpr char kIdleDropIn[] = "/etc/systemd/logind.conf.d/60-tarnvale-kiosk.conf";
constexpr char kSleepServicePath[] = "/etc/systemd/system/tarnvale-kiosk-sleep.service";
constexpr char kSleepTimerPath[] = "/etc/systemd/system/tarnvale-kiosk-sleep.timer";
constexpr char kSleepTimer[] = "tarnvale-kiosk-sleep.timer";
constexpr char kLogindUnit[] = "systemd-logind.service";
constexpr char kWakeAlarm[] = "/sys/class/rtc/rtc0/wakealarm";
constexpr mode_t kDirectoryMode = 0755;

constexpr std::int32_t kLogindTimeoutMs = 20 * kSecondMs;
constexpr std::int32_t kTimerTimeoutMs = 60 * kSecondMs;
constexpr std::int32_t kSuspendTimeoutMs = 60 * kSecondMs;
constexpr std::int32_t kRtcwakeTimeoutMs = 24 * kHourMs;  // it waits until the terminal is awake
constexpr std::int32_t kRebootTimeoutMs = 20 * kSecondMs;

std::string PowerEnvPath(const Config& config) {
  return config.etcDir + "/power.env";
}

void MakeDirectory(const char* path) {
  (void)::mkdir(path, kDirectoryMode);  // it exists as a rule; the writer reports a missing one
}

void ApplyIdleTimes(const Config& config, const PowerPolicy& policy) {
  MakeDirectory(config.etcDir.c_str());
  if (!WriteIfChanged(PowerEnvPath(config), PowerEnvText(policy))) return;
  Log("<6>power: screen off %d min, sleep %d min (0 = never)\n", policy.screenOffMinutes,
      policy.sleepMinutes);
  StopIdleWatchers(config.kioskUser);
}

// True when the drop-in was written anew or was really removed.
bool UpdateIdleDropIn(const PowerPolicy& policy) {
  if (policy.sleepMinutes <= 0) return ::unlink(kIdleDropIn) == 0;
  MakeDirectory(kIdleDropInDirectory);
  return WriteIfChanged(kIdleDropIn, IdleDropInText(policy));
}

bool ReloadLogind() {
  return Systemctl({"reload", kLogindUnit}, kLogindTimeoutMs).status == 0;
}

void ApplyIdleSuspend(const PowerPolicy& policy) {
  if (!UpdateIdleDropIn(policy) || ReloadLogind()) return;
  // A logind whose unit knows no reload still reads its files again when it is told directly. The
  // files agree from now on, so there is no later occasion to try again.
  (void)Systemctl({"kill", "-s", "HUP", kLogindUnit}, kLogindTimeoutMs);
}

bool WriteSleepUnits(const PowerSchedule& schedule) {
  const bool serviceChanged = WriteIfChanged(kSleepServicePath, SleepServiceText());
  const bool timerChanged = WriteIfChanged(kSleepTimerPath, SleepTimerText(schedule));
  return serviceChanged || timerChanged;
}

void StartSleepTimer() {
  // What systemd makes of the units is its journal's to tell. A timer that runs already takes its
  // new time from the restart.
  (void)Systemctl({"daemon-reload"}, kTimerTimeoutMs);
  (void)Systemctl({"enable", "--now", kSleepTimer}, kTimerTimeoutMs);
  (void)Systemctl({"restart", kSleepTimer}, kTimerTimeoutMs);
}

std::string ApplySleepSchedule(const PowerSchedule& schedule) {
  if (WriteSleepUnits(schedule)) {
    StartSleepTimer();
    Log("<6>power: sleep at %s, wake at %s\n", CalendarText(schedule).c_str(),
        FormatClock(schedule.wakeAt).c_str());
  }
  if (PathExists(kWakeAlarm)) return {};
  Log("<4>power: this device has no RTC wake alarm\n");
  return "wake_unavailable";
}

// True when there was a schedule to remove.
bool RemoveSleepSchedule() {
  if (!PathExists(kSleepTimerPath)) return false;
  // The units go whatever systemd says to it.
  (void)Systemctl({"disable", "--now", kSleepTimer}, kTimerTimeoutMs);
  (void)::unlink(kSleepTimerPath);
  (void)::unlink(kSleepServicePath);
  (void)Systemctl({"daemon-reload"}, kTimerTimeoutMs);
  return true;
}

// Nothing when this terminal has no means of waking by itself.
std::string FindRtcwake() {
  return PathExists(kWakeAlarm) ? FindTool("rtcwake") : std::string();
}

bool SuspendWithAlarm(const std::string& rtcwake, long wakeAt) {
  const ProcResult run =
      RunProcess({rtcwake, "-m", "mem", "-t", std::to_string(wakeAt)}, kRtcwakeTimeoutMs);
  if (run.status == 0) return true;
  Log("<3>power: rtcwake failed: %s\n", Trim(run.output).c_str());
  return false;
}

}  // namespace

std::string ApplyPower(const Config& config, const PowerPolicy& policy) {
  ApplyIdleTimes(config, policy);
  ApplyIdleSuspend(policy);
  if (policy.schedule.enabled) return ApplySleepSchedule(policy.schedule);
  if (RemoveSleepSchedule()) Log("<6>power: removed the sleep schedule\n");
  return {};
}

void RemovePower(const Config& config) {
  (void)RemoveSleepSchedule();  // nobody is told of it on this path
  // A terminal that stops being a kiosk does not signal logind by force for it: the next start of
  // logind does as well.
  if (::unlink(kIdleDropIn) == 0) (void)ReloadLogind();
  (void)::unlink(PowerEnvPath(config).c_str());  // gone is gone
  StopIdleWatchers(config.kioskUser);
}

bool SuspendUntil(long wakeAt) {
  const std::string rtcwake = FindRtcwake();
  if (wakeAt > 0 && !rtcwake.empty() && SuspendWithAlarm(rtcwake, wakeAt)) return true;
  return Systemctl({"suspend"}, kSuspendTimeoutMs).status == 0;
}

bool Reboot() {
  std::string error;
  const Variant reply =
      DbusCall(kLogindName, kLogindPath, kLogindManager, "Reboot", g_variant_new("(b)", FALSE),
               nullptr, kDbusActionTimeoutMs, &error);
  if (reply != nullptr) return true;
  Log("<4>logind Reboot failed (%s); using systemctl\n", error.c_str());
  return Systemctl({"reboot"}, kRebootTimeoutMs).status == 0;
}

}  // namespace Tarnvale::KioskService
