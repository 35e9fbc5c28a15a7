#include "device/updates.h"

#include <atomic>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "control/reply.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "core/utc_time.h"
#include "device/updates_policy_json.h"
#include "device/updates_report.h"
#include "json/object.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kProgressDone = 100;

struct UpdatesStatus {
  bool checking = false;          // A run is under way.
  bool installing = false;        // An install was asked for, and its run has not begun.
  bool restartRequired = false;   // The last good run, or the start, found that one is wanted.
  std::string error;              // Of the last failed run; empty from the start of the next.
  std::string lastChecked;        // UTC, of the last run that did not fail; empty before it.
  std::vector<OsUpdate> updates;  // What that run found pending.
};

UpdatesStatus status GUARDED_BY(updatesMutex);

// Atomic: counted by the package manager's run, read by whoever asks.
std::atomic<int> updatesProgress{0};

// Atomic: the ticket of the one run, true while somebody has it.
std::atomic<bool> wuBusy{false};

// Never destroyed: a connection that was abandoned at the stop may still start it.
std::thread& settingsWorker GUARDED_BY(settingsWorkerLock) = *new std::thread;

Json UpdateToJson(const OsUpdate& update) {
  Json object = Json::Object();
  object.Set("id", update.id);
  object.Set("title", update.title);
  object.Set("sizeBytes", static_cast<double>(update.sizeBytes));
  object.Set("restartRequired", update.restartRequired);
  return object;
}

Json UpdatesToJson(const std::vector<OsUpdate>& updates) {
  Json array = Json::Array();
  for (const OsUpdate& update : updates)
    array.Append(UpdateToJson(update));
  return array;
}

void ShowRequestedRun(bool install) EXCLUDES(updatesMutex) {
  const MutexLock lock(updatesMutex);
  status.checking = true;
  status.installing = install;
}

// Takes `installing` back, for an install too: during the package manager's work a client sees a
// check without progress, and must not depend on more.
void ShowRun() EXCLUDES(updatesMutex) {
  const MutexLock lock(updatesMutex);
  status.error.clear();
  status.checking = true;
  status.installing = false;
}

void ShowNoRunLocked() REQUIRES(updatesMutex) {
  status.checking = false;
  status.installing = false;
}

void ShowNoRun() EXCLUDES(updatesMutex) {
  const MutexLock lock(updatesMutex);
  ShowNoRunLocked();
}

void ShowFailure(const WuRun& run) EXCLUDES(updatesMutex) {
  const MutexLock lock(updatesMutex);
  ShowNoRunLocked();
  status.error = run.error;
}

void ShowResult(const WuRun& run, std::vector<OsUpdate> updates) EXCLUDES(updatesMutex) {
  const MutexLock lock(updatesMutex);
  ShowNoRunLocked();
  status.updates = std::move(updates);
  status.lastChecked = UtcNow();
  status.restartRequired = run.restartRequired;
}

// The settings worker's body. The ticket goes back last, when the report is written, so that
// whoever takes it next finds a thread that has nothing left to do.
void RunForTheTerminal(bool install) {
  const WuRun run = RunUpdates(install);
  WriteUpdatesReport(install ? std::optional(UpdatesVerdict(run)) : std::nullopt, run);
  EndUpdates();
}

void JoinSettingsWorkerLocked() REQUIRES(settingsWorkerLock) {
  if (settingsWorker.joinable()) settingsWorker.join();
}

void StartSettingsWorker(bool install) EXCLUDES(settingsWorkerLock) {
  const MutexLock lock(settingsWorkerLock);
  JoinSettingsWorkerLocked();
  settingsWorker = std::thread(RunForTheTerminal, install);
}

}  // namespace

std::string HandleOsUpdates(const Json& request) {
  const Json& check = request.Get("check");
  if (!check.IsBool() && !check.IsNull()) return ReplyError("invalid");
  if (check.boolean && StartWuRun(false)) {
    Log("<6>os updates: check requested at the terminal\n");
  }
  return OsUpdatesStatus();
}

std::string HandleOsInstall() {
  if (!StartWuRun(true)) return ReplyError("busy");
  Log("<6>os updates: install requested at the terminal\n");
  return OsUpdatesStatus();
}

bool StartWuRun(bool install) {
  if (!TryBeginUpdates()) return false;
  ShowRequestedRun(install);
  try {
    StartSettingsWorker(install);
    return true;
  } catch (const std::system_error& error) {
    // No thread left. The ticket must not be lost with it, or no run would ever start again.
    Log("<3>os updates: no thread for the run (%s)\n", error.what());
    ShowNoRun();
    EndUpdates();
    return false;
  }
}

std::string OsUpdatesStatus() {
  const MutexLock lock(updatesMutex);
  Json reply = Json::Object();
  reply.Set("ok", true);
  reply.Set("checking", status.checking);
  reply.Set("installing", status.installing);
  reply.Set("progress", status.installing ? updatesProgress.load() : 0);
  reply.Set("restartRequired", status.restartRequired);
  reply.Set("lastChecked", TextOrNull(status.lastChecked));
  reply.Set("error", TextOrNull(status.error));
  reply.Set("updates", UpdatesToJson(status.updates));
  UpdatesPolicy policy;
  if (LoadUpdatesPolicy(policy)) reply.Set("policy", UpdatesPolicyToJson(policy));
  return reply.Dump();
}

bool TryBeginUpdates() {
  return !wuBusy.exchange(true);
}

void EndUpdates() {
  wuBusy.store(false);
}

WuRun RunUpdates(bool install) {
  ShowRun();
  updatesProgress.store(0);
  Log("<6>os updates: %s\n", install ? "searching, then installing" : "searching");
  std::vector<OsUpdate> updates;
  WuRun run = Platform().runUpdates(install, &updates, &updatesProgress);
  if (run.result == kWuFailed) {
    ShowFailure(run);
    Log("<3>os updates: %s\n", run.error.c_str());
    return run;
  }
  ShowResult(run, std::move(updates));
  if (install) updatesProgress.store(kProgressDone);
  Log("<6>os updates: %d pending%s\n", run.pending,
      run.restartRequired ? ", restart required" : "");
  return run;
}

void GiveBackUpdatesSchedule() {
  if (StateGetInt(StateKey::kOwnsWuPolicy) != 1) return;
  Platform().restoreUpdatesSchedule();
  StateClear(StateKey::kOwnsWuPolicy);
  Log("<6>os updates: the package manager's own schedule is back as it was\n");
}

void RecoverRestartRequired() {
  const bool required = ReportsRestartRequired() || Platform().rebootRequired();
  const MutexLock lock(updatesMutex);
  status.restartRequired = required;
}

void JoinSettingsWorker() {
  // Across the whole of a run: nobody else needs this lock until the run has ended.
  const MutexLock lock(settingsWorkerLock);
  JoinSettingsWorkerLocked();
}

}  // namespace Tarnvale::KioskService
