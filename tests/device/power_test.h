// The words of the power tests.

#ifndef TARNVALE_KIOSKD_TESTS_DEVICE_POWER_TEST_H_
#define TARNVALE_KIOSKD_TESTS_DEVICE_POWER_TEST_H_

#include <optional>
#include <string>
#include <vector>

#include "core/state.h"
#include "device/power.h"
#include "device/power_policy_json.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {

inline constexpr char kDefaultSchedule[] =
    R"({"enabled":false,"sleepAt":"22:00","wakeAt":"07:00","days":[1,2,3,4,5]})";
inline constexpr char kWeekendSchedule[] =
    R"({"enabled":true,"sleepAt":"23:30","wakeAt":"08:15","days":[0,6]})";
inline constexpr char kInvalidReply[] = R"({"ok":false,"error":"invalid"})";

// A policy as the state keeps it and the documents show it.
inline std::string PolicyText(int screenOffMinutes, int sleepMinutes,
                              const std::string& schedule = kDefaultSchedule) {
  return R"({"screenOffMinutes":)" + std::to_string(screenOffMinutes) + R"(,"sleepMinutes":)" +
         std::to_string(sleepMinutes) + R"(,"schedule":)" + schedule + "}";
}

inline std::string DefaultPolicyText() {
  return PolicyText(15, 0);
}

// An enrolled terminal on which every policy can be applied.
class PowerTest : public ServiceTest {
 protected:
  PowerTest() {
    Enrol();
    ApplyingGives("");
  }

  void ApplyingGives(const std::string& error) {
    ops.applyPower = [this, error](const PowerPolicy& policy) {
      applied.push_back(PowerPolicyToJson(policy).Dump());
      return error;
    };
  }

  static void PortalPolicyIs(const std::string& text) {
    StateSetString(StateKey::kPowerPolicy, text);
  }
  static void LocalPolicyIs(const std::string& text) {
    StateSetString(StateKey::kPowerLocal, text);
  }

  [[nodiscard]] static Json Document() {
    return Json::Parse(HandlePowerGet()).value_or(Json());
  }

  static std::string Set(const std::string& request) {
    const std::optional<Json> parsed = Json::Parse(request);
    EXPECT_TRUE(parsed.has_value()) << request;
    return HandlePowerSet(parsed.value_or(Json()));
  }

  std::vector<std::string> applied;
};

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_TESTS_DEVICE_POWER_TEST_H_
