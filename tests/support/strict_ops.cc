#include "support/strict_ops.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace Tarnvale::KioskService {
namespace {

template <typename Result, typename... Arguments>
void Refuse(std::function<Result(Arguments...)>& slot, const char* name) {
  slot = [name](Arguments...) -> Result {
    ADD_FAILURE() << "slot " << name << " was called";
    return Result();
  };
}

template <typename Result, typename... Arguments>
void Forward(std::function<Result(Arguments...)>& slot,
             const std::function<Result(Arguments...)>& target, const char* name,
             SlotCalls& calls) {
  slot = [&target, name, &calls](Arguments... arguments) -> Result {
    calls.Add(name);
    return target(std::forward<Arguments>(arguments)...);
  };
}

}  // namespace

Ops StrictOps() {
  Ops ops;
  Refuse(ops.http, "http");
  Refuse(ops.lookupKioskAccount, "lookupKioskAccount");
  Refuse(ops.runSetupTool, "runSetupTool");
  Refuse(ops.deleteKioskAccount, "deleteKioskAccount");
  Refuse(ops.listSessions, "listSessions");
  Refuse(ops.sessionOfPid, "sessionOfPid");
  Refuse(ops.endKioskSessions, "endKioskSessions");
  Refuse(ops.setMaintenanceMarker, "setMaintenanceMarker");
  Refuse(ops.dropAdminGroups, "dropAdminGroups");
  Refuse(ops.suspendUntil, "suspendUntil");
  Refuse(ops.reboot, "reboot");
  Refuse(ops.applyNetwork, "applyNetwork");
  Refuse(ops.ntpServer, "ntpServer");
  Refuse(ops.sntpOffset, "sntpOffset");
  Refuse(ops.resyncClock, "resyncClock");
  Refuse(ops.applyPower, "applyPower");
  Refuse(ops.removePower, "removePower");
  Refuse(ops.applyProxy, "applyProxy");
  Refuse(ops.runUpdates, "runUpdates");
  Refuse(ops.rebootRequired, "rebootRequired");
  Refuse(ops.scheduleUpdateRestart, "scheduleUpdateRestart");
  Refuse(ops.takeUpdatesSchedule, "takeUpdatesSchedule");
  Refuse(ops.restoreUpdatesSchedule, "restoreUpdatesSchedule");
  Refuse(ops.hostName, "hostName");
  Refuse(ops.osVersion, "osVersion");
  Refuse(ops.screenCount, "screenCount");
  Refuse(ops.exePathOfPid, "exePathOfPid");
  Refuse(ops.bootTime, "bootTime");
  return ops;
}

void SlotCalls::Add(const char* slot) {
  const std::lock_guard lock(mutex_);
  names_.emplace_back(slot);
}

std::vector<std::string> SlotCalls::Names() const {
  const std::lock_guard lock(mutex_);
  return names_;
}

int SlotCalls::Count(const std::string& slot) const {
  const std::lock_guard lock(mutex_);
  return static_cast<int>(std::count(names_.begin(), names_.end(), slot));
}

void SlotCalls::Clear() {
  const std::lock_guard lock(mutex_);
  names_.clear();
}

Ops ForwardingOps(const Ops& target, SlotCalls& calls) {
  Ops ops;
  Forward(ops.http, target.http, "http", calls);
  Forward(ops.lookupKioskAccount, target.lookupKioskAccount, "lookupKioskAccount", calls);
  Forward(ops.runSetupTool, target.runSetupTool, "runSetupTool", calls);
  Forward(ops.deleteKioskAccount, target.deleteKioskAccount, "deleteKioskAccount", calls);
  Forward(ops.listSessions, target.listSessions, "listSessions", calls);
  Forward(ops.sessionOfPid, target.sessionOfPid, "sessionOfPid", calls);
  Forward(ops.endKioskSessions, target.endKioskSessions, "endKioskSessions", calls);
  Forward(ops.setMaintenanceMarker, target.setMaintenanceMarker, "setMaintenanceMarker", calls);
  Forward(ops.dropAdminGroups, target.dropAdminGroups, "dropAdminGroups", calls);
  Forward(ops.suspendUntil, target.suspendUntil, "suspendUntil", calls);
  Forward(ops.reboot, target.reboot, "reboot", calls);
  Forward(ops.applyNetwork, target.applyNetwork, "applyNetwork", calls);
  Forward(ops.ntpServer, target.ntpServer, "ntpServer", calls);
  Forward(ops.sntpOffset, target.sntpOffset, "sntpOffset", calls);
  Forward(ops.resyncClock, target.resyncClock, "resyncClock", calls);
  Forward(ops.applyPower, target.applyPower, "applyPower", calls);
  Forward(ops.removePower, target.removePower, "removePower", calls);
  Forward(ops.applyProxy, target.applyProxy, "applyProxy", calls);
  Forward(ops.runUpdates, target.runUpdates, "runUpdates", calls);
  Forward(ops.rebootRequired, target.rebootRequired, "rebootRequired", calls);
  Forward(ops.scheduleUpdateRestart, target.scheduleUpdateRestart, "scheduleUpdateRestart", calls);
  Forward(ops.takeUpdatesSchedule, target.takeUpdatesSchedule, "takeUpdatesSchedule", calls);
  Forward(ops.restoreUpdatesSchedule, target.restoreUpdatesSchedule, "restoreUpdatesSchedule",
          calls);
  Forward(ops.hostName, target.hostName, "hostName", calls);
  Forward(ops.osVersion, target.osVersion, "osVersion", calls);
  Forward(ops.screenCount, target.screenCount, "screenCount", calls);
  Forward(ops.exePathOfPid, target.exePathOfPid, "exePathOfPid", calls);
  Forward(ops.bootTime, target.bootTime, "bootTime", calls);
  return ops;
}

}  // namespace Tarnvale::KioskService
