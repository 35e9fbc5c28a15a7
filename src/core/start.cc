#include "core/start.h"

#include <unistd.h>

#include <string>

#include "control/caller.h"
#include "core/directories.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "core/stop.h"
#include "kiosk/account.h"
#include "kiosk/session_watcher.h"
#include "portal/identity.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

constexpr mode_t kStateDirMode = 0700;
constexpr mode_t kRunDirMode = 0755;

void MakeStateDirParents(const std::string& stateDir) {
  const std::size_t slash = stateDir.rfind('/');
  if (slash != std::string::npos && slash > 0) MakeParentDirectories(stateDir.substr(0, slash));
}

// What the state directory holds is secret, so an existing one is secured again at each start. An
// existing run directory keeps its owner and mode, which are the system's business.
bool PrepareDirectories() {
  const Config& config = ServiceConfig();
  MakeStateDirParents(config.stateDir);
  return PrepareDirectory(config.stateDir, kStateDirMode, true) &&
         PrepareDirectory(config.runDir, kRunDirMode, false);
}

void FindOutIfInstalled() {
  SetServiceInstalled(IsInstalledPath(Platform().exePathOfPid(::getpid())));
  if (ServiceInstalled()) return;
  Log("<4>this service is not installed (a dev build): "
      "it admits non-root callers only while DevAllowAnyCaller=1\n");
}

void LogSummary() {
  const int enrolled = CurrentDeviceToken().empty() ? 0 : 1;
  const int provisioned = IsProvisioned() ? 1 : 0;
  const int maintenance = StateGetInt(StateKey::kMaintenance) == 1 ? 1 : 0;
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
  TakeSessionBaseline();
  DropKioskAdminGroups();
  LogSummary();
  return true;
}

}  // namespace Tarnvale::KioskService
