#include "core/ops_linux.h"

#include "control/caller_linux.h"
#include "device/facts_linux.h"
#include "device/power_linux.h"
#include "kiosk/account_linux.h"
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
  ops.listSessions = ListSessions;
  ops.sessionOfPid = SessionOfPid;
  ops.dropAdminGroups = [config] { DropAdminGroups(config.kioskUser); };
  ops.reboot = Reboot;
  ops.hostName = HostName;
  ops.osVersion = OsVersion;
  ops.screenCount = ScreenCount;
  ops.exePathOfPid = ExePathOfPid;
  ops.bootTime = BootTime;
  return ops;
}

}  // namespace Tarnvale::KioskService
