#include "device/updates_loop.h"

#include <optional>

#include "core/clock.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "core/stop.h"
#include "core/units.h"
#include "device/policy_fields.h"
#include "device/updates.h"
#include "device/updates_policy_json.h"
#include "device/updates_report.h"
#include "device/updates_window.h"
#include "kiosk/presence.h"
#include "portal/identity.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kLookIntervalMs = kMinuteMs;
constexpr std::int64_t kRetryIntervalMs = 15 * kMinuteMs;

bool TakesPart(UpdatesPolicy& policy) {
  return !CurrentDeviceToken().empty() && LoadUpdatesPolicy(policy) && policy.automatic;
}

// The platform is told at each pass, so that a schedule that somebody brought back goes again.
void TakeSchedule(const UpdatesPolicy& policy) {
  if (StateGetInt(StateKey::kOwnsWuPolicy) != 1) {
    StateSetInt(StateKey::kOwnsWuPolicy, 1);
    Log("<6>os updates: automatic updates wait for the %s-%s window\n",
        FormatClock(policy.windowStart).c_str(), FormatClock(policy.windowEnd).c_str());
  }
  Platform().takeUpdatesSchedule(policy);
}

std::string OpenWindow(const UpdatesPolicy& policy) {
  return WindowKey(policy, WallNowMs() / kSecondMs);
}

bool RestartForUpdates() {
  const bool scheduled = Platform().scheduleUpdateRestart();
  if (scheduled) {
    Log("<6>os updates: restarting in 60 s to finish installing\n");
  } else {
    Log("<3>os updates: cannot restart\n");
  }
  return scheduled;
}

void TryAgainLater(UpdatesLoopMemory& memory) {
  memory.nextTryMs = SteadyNowMs() + kRetryIntervalMs;
}

// Says once for each window what is in the way.
void LogWaiting(UpdatesLoopMemory& memory, const std::string& key, const std::string& reason) {
  if (memory.waitKey == key) return;
  Log("<6>os updates: waiting, %s; trying again every 15 min in this window\n", reason.c_str());
  memory.waitKey = key;
}

void FinishOwedRestart(UpdatesLoopMemory& memory, const std::string& key) {
  const std::string blocker = RestartBlocker();
  if (!blocker.empty()) {
    LogWaiting(memory, key, blocker);
  } else if (RestartForUpdates()) {
    memory.restartKey.clear();
    return;
  }
  TryAgainLater(memory);
}

WuRun RunInWindow(const std::string& key) {
  Log("<6>os updates: the %s window is open\n", key.c_str());
  const WuRun run = RunUpdates(true);
  EndUpdates();
  WriteUpdatesReport(UpdatesVerdict(run), run);
  // Also after a failure: the next window brings the next attempt.
  StateSetString(StateKey::kOsUpdatesWindowDone, key);
  return run;
}

// The run may have taken hours, so the window and the person at the terminal are asked about anew.
bool RestartWithinWindow(const UpdatesPolicy& policy, const std::string& key) {
  return OpenWindow(policy) == key && RestartBlocker().empty() && RestartForUpdates();
}

void ServeWindow(UpdatesLoopMemory& memory, const UpdatesPolicy& policy, const std::string& key) {
  const std::string blocker = RestartBlocker();
  if (!blocker.empty()) {
    LogWaiting(memory, key, blocker);
    WriteUpdatesReport("deferred", std::nullopt);
    return TryAgainLater(memory);
  }
  if (!TryBeginUpdates()) return TryAgainLater(memory);  // a run for the person at the terminal
  if (!RunInWindow(key).restartRequired) return;
  memory.restartKey = key;
  if (!RestartWithinWindow(policy, key)) return TryAgainLater(memory);
  memory.restartKey.clear();
}

}  // namespace

void AutomaticUpdatesPass(UpdatesLoopMemory& memory) {
  UpdatesPolicy policy;
  if (!TakesPart(policy)) return GiveBackUpdatesSchedule();
  TakeSchedule(policy);
  const std::string key = OpenWindow(policy);
  if (key.empty() || memory.nextTryMs > SteadyNowMs()) return;
  if (StateGetString(StateKey::kOsUpdatesWindowDone) != key) {
    ServeWindow(memory, policy, key);
  } else if (memory.restartKey == key) {
    FinishOwedRestart(memory, key);
  }
}

void AutomaticUpdatesLoop() {
  UpdatesLoopMemory memory;
  while (SleepUnlessStopped(kLookIntervalMs))
    AutomaticUpdatesPass(memory);
}

}  // namespace Tarnvale::KioskService
