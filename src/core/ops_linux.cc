#include "core/ops_linux.h"

#include "control/caller_linux.h"
#include "device/facts_linux.h"
#include "device/network_linux.h"
#include "device/power_linux.h"
#include "device/proxy_linux.h"
#include "device/time_linux.h"
#include "device/updates_linux.h"
#include "kiosk/account_linux.h"
#include "kiosk/maintenance_linux.h"
#include "kiosk/removal_linux.h"
#include "kiosk/sessions_linux.h"
#include "portal/http_linux.h"

namespace Tarnvale::KioskService {

Ops LinuxOps(const Config& config) {
  PrepareHttp();
  Ops ops;
  ops.http = HttpExchange;
  ops.lookupKioskAccount = [config](unsigned int* uid, std::string* comment) {
    return LookupAccount(config.kioskUser, uid, comment);
  };
  ops.runSetupTool = [config](bool enable, std::string* detail) {
    return RunSetupTool(config.setupTool, enable, detail);
  };
  ops.deleteKioskAccount = [config] { return DeleteKioskAccount(config.kioskUser); };
  ops.listSessions = ListSessions;
  ops.sessionOfPid = SessionOfPid;
  ops.endKioskSessions = [config](bool wait) { EndKioskSessions(config.kioskUser, wait); };
  ops.setMaintenanceMarker = [config](bool allowKiosk, bool startKiosk) {
    SetMaintenanceMarker(config.runDir, allowKiosk, startKiosk);
  };
  ops.dropAdminGroups = [config] { DropAdminGroups(config.kioskUser); };
  ops.suspendUntil = SuspendUntil;
  ops.reboot = Reboot;
  ops.applyNetwork = ApplyNetwork;
  ops.ntpServer = NtpServer;
  ops.sntpOffset = SntpOffset;
  ops.resyncClock = ResyncClock;
  ops.applyPower = [config](const PowerPolicy& policy) { return ApplyPower(config, policy); };
  ops.removePower = [config] { RemovePower(config); };
  ops.applyProxy = [config](const ProxyChange& change) {
    return ApplyProxy(change, config.etcDir);
  };
  ops.runUpdates = RunApt;
  ops.rebootRequired = RebootRequired;
  ops.scheduleUpdateRestart = ScheduleUpdateRestart;
  ops.takeUpdatesSchedule = TakeUpdatesSchedule;
  ops.restoreUpdatesSchedule = RestoreUpdatesSchedule;
  ops.hostName = HostName;
  ops.osVersion = OsVersion;
  ops.screenCount = ScreenCount;
  ops.exePathOfPid = ExePathOfPid;
  ops.bootTime = BootTime;
  return ops;
}

}  // namespace Tarnvale::KioskService
