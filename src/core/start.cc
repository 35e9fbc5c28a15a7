#include "core/start.h"

#include <unistd.h>

#include <string>

#include "control/caller.h"
#include "core/directories.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "core/stop.h"
#include "device/updates.h"
#include "kiosk/account.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/maintenance.h"
#include "kiosk/removal.h"
#include "kiosk/session_watcher.h"
#include "portal/branding_cache.h"
#include "portal/identity.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

constexpr mode_t kStateDirMode = 0700;
constexpr mode_t kRunDirMode = 0755;

// What the state directory holds is secret, so an existing one is secured again at each start. An
// existing run directory keeps its owner and mode, which are the system's business.
bool PrepareDirectories() {
  const Config& config = ServiceConfig();
  MakeParentDirectories(ParentOf(config.stateDir));
  return PrepareDirectory(config.stateDir, kStateDirMode, true) &&
         PrepareDirectory(config.runDir, kRunDirMode, false);
}

void FindOutIfInstalled() {
  SetServiceInstalled(IsInstalledPath(Platform().exePathOfPid(::getpid())));
  if (ServiceInstalled()) return;
  Log("<4>this service is not installed (a dev build): "
      "it admits non-root callers only while DevAllowAnyCaller=1\n");
}

// A disk image that was copied onto another machine brings that machine's token, account and
// policies along. It comes up as a plain unenrolled terminal.
void TakeCopiedImageDown() {
  if (StateGetString(StateKey::kDeviceToken).empty() || !CurrentDeviceToken().empty()) return;
  RemoveKioskMode("the state belongs to another machine-id (a copied image)");
}

// An unenrolled terminal never shows a tenant's branding from an earlier life.
void ForgetBrandingOfEarlierLife() {
  if (!CurrentDeviceToken().empty()) return;
  const MutexLock lock(lifecycleLock);
  RemoveBranding(true);
}

// Maintenance outlives a restart of this service, not one of the terminal.
void EndMaintenanceOfEarlierBoot() {
  if (!InMaintenance()) return;
  if (StateGetInt(StateKey::kMaintenanceAt) >= Platform().bootTime()) return;
  EndMaintenance("the device restarted");
}

void LogSummary() {
  const int enrolled = CurrentDeviceToken().empty() ? 0 : 1;
  const int provisioned = IsProvisioned() ? 1 : 0;
  const int maintenance = InMaintenance() ? 1 : 0;
  Log("<6>enrolled=%d provisioned=%d maintenance=%d\n", enrolled, provisioned, maintenance);
}

}  // namespace

bool Run(const Config& config, const Ops& ops) {
  SetService(config, ops);
  ClearRestart();
  ClearStopAndWake();
  if (!PrepareDirectories()) return false;
  StateLoad();
  FindOutIfInstalled();
  FinishPendingRemoval();
  TakeCopiedImageDown();
  ForgetBrandingOfEarlierLife();
  EndMaintenanceOfEarlierBoot();
  TakeSessionBaseline();
  if (InMaintenance()) AdoptAdminSessions();
  DropKioskAdminGroups();
  RecoverRestartRequired();
  LogSummary();
  return true;
}

}  // namespace Tarnvale::KioskService
