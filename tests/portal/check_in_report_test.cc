// What a check-in tells the portal.

#include <string>

#include "core/build_stamp.h"
#include "core/state.h"
#include "portal/check_in_test.h"

namespace Tarnvale::KioskService {
namespace {

class CheckInReportTest : public CheckInTest {
 protected:
  // The body of a check-in that is made now.
  std::string Report() {
    (void)Enrolled();
    return portal.Calls().back().body;
  }

  static std::string Expected(const std::string& membersBehindTheBuild) {
    return std::string(R"({"appVersion":")") + kBuildStamp + "\"," + membersBehindTheBuild + "}";
  }
};

TEST_F(CheckInReportTest, IsPostedWithTheTokenThatItIsGiven) {
  Enrol();
  portal.Answers(kCheckInPath, 200);

  (void)CheckIn("the caller's copy");

  const PortalCall call = portal.Calls().at(0);
  EXPECT_EQ(call.method, "POST");
  EXPECT_EQ(call.url, "https://portal.test/api/kiosk/check-in");
  EXPECT_EQ(call.token, "the caller's copy");
  EXPECT_EQ(call.maxBytes, 65'536U);
  EXPECT_EQ(call.accept, "application/json");
  EXPECT_EQ(portal.Calls().size(), 1U);
}

TEST_F(CheckInReportTest, HoldsTheBuildAndTwoNullsOnAFreshTerminal) {
  EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null)"));
}

TEST_F(CheckInReportTest, HoldsEverythingInItsOrder) {
  StateSetString(StateKey::kOsUpdatesReport, R"({"state":"idle"})");
  StateSetString(StateKey::kPowerError, "the \"timer\" failed");
  StateSetString(StateKey::kPowerLocal, kPowerText);

  EXPECT_EQ(Report(),
            Expected(std::string(R"("powerLocal":)") + kPowerText +
                     R"(,"powerError":"the \"timer\" failed","osUpdates":{"state":"idle"})"));
}

TEST_F(CheckInReportTest, WritesTheLocalPowerPolicyOutAnew) {
  StateSetString(StateKey::kPowerLocal,
                 R"( {"x":1, "schedule":{"days":[5,1],"wakeAt":"06:30","sleepAt":"21:00",)"
                 R"("enabled":true}, "sleepMinutes":60.0, "screenOffMinutes":20} )");

  EXPECT_EQ(Report(),
            Expected(std::string(R"("powerLocal":)") + kPowerText + R"(,"powerError":null)"));
}

TEST_F(CheckInReportTest, HoldsNullForALocalPowerPolicyThatIsNone) {
  for (const char* const text : {"", "garbage", "[]", "{}", R"({"screenOffMinutes":15})"}) {
    StateSetString(StateKey::kPowerLocal, text);

    EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null)")) << text;
  }
}

TEST_F(CheckInReportTest, DoesNotReportThePortalsOwnPolicy) {
  StateSetString(StateKey::kPowerPolicy, kPowerText);

  EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null)"));
}

TEST_F(CheckInReportTest, HoldsNullForAPowerErrorThatIsNoText) {
  StateSetString(StateKey::kPowerError, "");
  EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null)"));

  StateSetInt(StateKey::kPowerError, 5);
  EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null)"));
}

TEST_F(CheckInReportTest, PassesTheUpdatesReportOnAsItStands) {
  StateSetString(StateKey::kOsUpdatesReport, R"( {"b":1, "a":[true,null,{}],"c":"x"} tail)");

  EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null,)"
                               R"("osUpdates":{"b":1,"a":[true,null,{}],"c":"x"})"));
}

TEST_F(CheckInReportTest, HasAnEmptyUpdatesReportWhenThatIsWhatStands) {
  StateSetString(StateKey::kOsUpdatesReport, "{}");

  EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null,"osUpdates":{})"));
}

TEST_F(CheckInReportTest, LeavesAnUpdatesReportOutThatIsNoObject) {
  for (const char* const text : {"", "garbage", "null", "true", "5", "\"text\"", "[{}]", "{"}) {
    StateSetString(StateKey::kOsUpdatesReport, text);

    EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null)")) << text;
  }
  StateSet(StateKey::kOsUpdatesReport, Json::Object());
  EXPECT_EQ(Report(), Expected(R"("powerLocal":null,"powerError":null)"));
}

}  // namespace
}  // namespace Tarnvale::KioskService
