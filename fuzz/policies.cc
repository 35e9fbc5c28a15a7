// The power policy and the OS updates policy, as the portal sends them. One value is read as
// either.

#include "device/power_policy_json.h"
#include "device/updates_policy_json.h"
#include "target.h"

namespace Tarnvale::KioskService {
namespace {

// What is kept in the state is the text that the record is written as.
Json Kept(const Json& value) {
  return Json::Parse(value.Dump()).value_or(Json());
}

void CheckPower(const Json& value) {
  PowerPolicy policy;
  if (!ReadPowerPolicy(value, policy)) {
    Expect(policy == PowerPolicy(), "a refusal leaves the policy alone");
    return;
  }
  PowerPolicy again;
  Expect(ReadPowerPolicy(Kept(PowerPolicyToJson(policy)), again), "a kept policy is valid");
  Expect(policy == again, "a kept policy is the one that came");
}

void CheckUpdates(const Json& value) {
  UpdatesPolicy policy;
  if (!UpdatesPolicyFromJson(value, policy)) {
    Expect(policy == UpdatesPolicy(), "a refusal leaves the policy alone");
    return;
  }
  UpdatesPolicy again;
  Expect(UpdatesPolicyFromJson(Kept(UpdatesPolicyToJson(policy)), again), "a kept policy is valid");
  Expect(policy == again, "a kept policy is the one that came");
}

}  // namespace
}  // namespace Tarnvale::KioskService

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  const Json value = ValueOf(data, size);
  CheckPower(value);
  CheckUpdates(value);
  return 0;
}
