#include "device/power.h"

#include "control/reply.h"
#include "core/log.h"
#include "core/service.h"
#include "core/state.h"
#include "device/policy_fields.h"
#include "device/power_policy_json.h"
#include "json/object.h"
#include "portal/identity.h"

namespace Tarnvale::KioskService {
namespace {

std::string PowerDocument() {
  PowerPolicy portals;  // the default values when the portal has sent none
  const bool hasPortals = LoadPowerPolicy(StateKey::kPowerPolicy, portals);
  PowerPolicy local;
  const bool hasLocal = LoadPowerPolicy(StateKey::kPowerLocal, local);
  const std::string source = hasPortals ? StateGetString(StateKey::kPowerSource) : std::string();

  Json document = Json::Object();
  document.Set("ok", true);
  document.Set("policy", PowerPolicyToJson(portals));
  document.Set("source", source.empty() ? "default" : source);
  document.Set("local", hasLocal ? PowerPolicyToJson(local) : Json());
  document.Set("effective", PowerPolicyToJson(hasLocal ? local : portals));
  document.Set("error", TextOrNull(StateGetString(StateKey::kPowerError)));
  return document.Dump();
}

bool IsNullOrBool(const Json& member) {
  return member.IsNull() || member.IsBool();
}

// There is nothing but the local policy to set, so a request may say so and may not deny it.
bool IsNullOrTrue(const Json& member) {
  return member.IsNull() || (member.IsBool() && member.boolean);
}

void DropLocalOverride() EXCLUDES(powerLock) {
  const MutexLock lock(powerLock);
  if (!StateUpdateString(StateKey::kPowerLocal, "")) return;
  Log("<6>power: the local override is cleared; following the portal\n");
}

bool ReadMinutes(const Json& request, PowerPolicy& policy) {
  return ReadWholeNumber(request.Get("screenOffMinutes"), 0, kMaxIdleMinutes,
                         policy.screenOffMinutes) &&
         ReadWholeNumber(request.Get("sleepMinutes"), 0, kMaxIdleMinutes, policy.sleepMinutes);
}

// Reads what the request brings over `policy`. Logs why it is refused.
bool ReadOverride(const Json& request, PowerPolicy& policy) {
  if (!ReadMinutes(request, policy)) {
    Log("<4>power.set refused: minutes must be whole numbers from 0 to %d\n", kMaxIdleMinutes);
    return false;
  }
  const Json& schedule = request.Get("schedule");
  if (!schedule.IsNull() && !ReadSchedule(schedule, policy.schedule)) {
    Log("<4>power.set refused: invalid schedule\n");
    return false;
  }
  return true;
}

void StoreAndApply(const PowerPolicy& policy) EXCLUDES(powerLock) {
  const std::string text = PowerPolicyToJson(policy).Dump();
  // Across the child processes, so that the system ends up with the policy that was stored last.
  const MutexLock lock(powerLock);
  if (StateUpdateString(StateKey::kPowerLocal, text)) {
    Log("<6>power: local override %s\n", text.c_str());
  }
  ApplyPowerPolicy(policy);
}

}  // namespace

bool LoadPowerPolicyInForce(PowerPolicy& policy) {
  return LoadPowerPolicy(StateKey::kPowerLocal, policy) ||
         LoadPowerPolicy(StateKey::kPowerPolicy, policy);
}

void ApplyPowerPolicy(const PowerPolicy& policy) {
  const std::string error = Platform().applyPower(policy);
  if (StateUpdateString(StateKey::kPowerError, error) && !error.empty()) {
    Log("<4>power: %s\n", error.c_str());
  }
}

void ReapplyPower() {
  // Loaded under the lock: a policy that was read before it could be an outdated one by now.
  const MutexLock lock(powerLock);
  PowerPolicy policy;
  if (LoadPowerPolicyInForce(policy)) ApplyPowerPolicy(policy);
}

std::string HandlePowerGet() {
  return PowerDocument();
}

std::string HandlePowerSet(const Json& request) {
  if (CurrentDeviceToken().empty()) return ReplyError("not_enrolled");
  const Json& useOrganisation = request.Get("useOrganisation");
  if (!IsNullOrBool(useOrganisation)) return ReplyError("invalid");
  if (useOrganisation.AsBool(false)) {
    DropLocalOverride();
    ReapplyPower();
    return PowerDocument();
  }
  if (!IsNullOrTrue(request.Get("local"))) return ReplyError("invalid");

  PowerPolicy policy;
  (void)LoadPowerPolicyInForce(policy);  // without one the override starts from the defaults
  if (!ReadOverride(request, policy)) return ReplyError("invalid");
  StoreAndApply(policy);
  return PowerDocument();
}

}  // namespace Tarnvale::KioskService
