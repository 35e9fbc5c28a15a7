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
  Forward(ops.listSessions, target.listSessions, "listSessions", calls);
  Forward(ops.sessionOfPid, target.sessionOfPid, "sessionOfPid", calls);
  Forward(ops.dropAdminGroups, target.dropAdminGroups, "dropAdminGroups", calls);
  Forward(ops.reboot, target.reboot, "reboot", calls);
  Forward(ops.hostName, target.hostName, "hostName", calls);
  Forward(ops.osVersion, target.osVersion, "osVersion", calls);
  Forward(ops.screenCount, target.screenCount, "screenCount", calls);
  Forward(ops.exePathOfPid, target.exePathOfPid, "exePathOfPid", calls);
  Forward(ops.bootTime, target.bootTime, "bootTime", calls);
  return ops;
}

}  // namespace Tarnvale::KioskService
