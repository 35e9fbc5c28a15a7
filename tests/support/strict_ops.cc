#include "support/strict_ops.h"

#include <gtest/gtest.h>

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
             const std::function<Result(Arguments...)>& target) {
  slot = [&target](Arguments... arguments) -> Result {
    return target(std::forward<Arguments>(arguments)...);
  };
}

}  // namespace

Ops StrictOps() {
  Ops ops;
  Refuse(ops.http, "http");
  Refuse(ops.lookupKioskAccount, "lookupKioskAccount");
  Refuse(ops.runSetupTool, "runSetupTool");
  Refuse(ops.listSessions, "listSessions");
  Refuse(ops.sessionOfPid, "sessionOfPid");
  Refuse(ops.dropAdminGroups, "dropAdminGroups");
  Refuse(ops.reboot, "reboot");
  Refuse(ops.hostName, "hostName");
  Refuse(ops.osVersion, "osVersion");
  Refuse(ops.screenCount, "screenCount");
  Refuse(ops.exePathOfPid, "exePathOfPid");
  Refuse(ops.bootTime, "bootTime");
  return ops;
}

Ops ForwardingOps(const Ops& target) {
  Ops ops;
  Forward(ops.http, target.http);
  Forward(ops.lookupKioskAccount, target.lookupKioskAccount);
  Forward(ops.runSetupTool, target.runSetupTool);
  Forward(ops.listSessions, target.listSessions);
  Forward(ops.sessionOfPid, target.sessionOfPid);
  Forward(ops.dropAdminGroups, target.dropAdminGroups);
  Forward(ops.reboot, target.reboot);
  Forward(ops.hostName, target.hostName);
  Forward(ops.osVersion, target.osVersion);
  Forward(ops.screenCount, target.screenCount);
  Forward(ops.exePathOfPid, target.exePathOfPid);
  Forward(ops.bootTime, target.bootTime);
  return ops;
}

}  // namespace Tarnvale::KioskService
