// `power.set`.

#include "device/power_test.h"
#include "support/save_counter.h"

namespace Tarnvale::KioskService {
namespace {

using Lines = std::vector<std::string>;

class PowerSet : public PowerTest {
 protected:
  // The request is refused with `invalid`, this is logged, and nothing else has come of it.
  void ExpectRefused(const std::string& request, const std::string& logged) {
    const std::string before = StateFile().Dump();
    log.Clear();
    applied.clear();

    EXPECT_EQ(Set(request), kInvalidReply) << request;

    EXPECT_EQ(log.Text(), logged) << request;
    EXPECT_EQ(applied, Lines()) << request;
    EXPECT_EQ(StateFile().Dump(), before) << request;
  }
};

constexpr char kMinutesLine[] =
    "<4>power.set refused: minutes must be whole numbers from 0 to 240\n";
constexpr char kScheduleLine[] = "<4>power.set refused: invalid schedule\n";
constexpr char kClearedLine[] = "<6>power: the local override is cleared; following the portal\n";

TEST_F(PowerSet, MakesALocalOverrideAndAnswersThePowerDocument) {
  PortalPolicyIs(PolicyText(5, 30));
  StateSetString(StateKey::kPowerSource, "tenant");

  const std::string reply = Set(R"({"local":true,"screenOffMinutes":10,"sleepMinutes":20,)"
                                R"("schedule":)" +
                                std::string(kWeekendSchedule) + "}");

  const std::string text = PolicyText(10, 20, kWeekendSchedule);
  EXPECT_EQ(reply, R"({"ok":true,"policy":)" + PolicyText(5, 30) +
                       R"(,"source":"tenant","local":)" + text + R"(,"effective":)" + text +
                       R"(,"error":null})");
  EXPECT_EQ(StateFile().Get("PowerLocal").AsString(""), text);
  EXPECT_EQ(applied, Lines{text});
  EXPECT_EQ(log.Text(), "<6>power: local override " + text + "\n");
}

TEST_F(PowerSet, StoresBeforeItApplies) {
  std::string storedInFile;
  ops.applyPower = [&](const PowerPolicy&) {
    storedInFile = StateFile().Get("PowerLocal").AsString("");
    EXPECT_EQ(log.Lines().size(), 1U);
    return std::string();
  };

  (void)Set(R"({"screenOffMinutes":10,"sleepMinutes":20})");

  EXPECT_EQ(storedInFile, PolicyText(10, 20));
}

TEST_F(PowerSet, StoresTheCanonicalTextAndNotTheRequest) {
  (void)Set(R"({"cmd":"power.set","unlockToken":"secret","sleepMinutes":2e1,)"
            R"("schedule":{"days":[6,0],"wakeAt":"08:15","more":1,"sleepAt":"23:30",)"
            R"("enabled":true},"screenOffMinutes":10.0})");

  EXPECT_EQ(StateGetString(StateKey::kPowerLocal), PolicyText(10, 20, kWeekendSchedule));
  EXPECT_EQ(log.Text().find("secret"), std::string::npos);
}

TEST_F(PowerSet, AppliesTheSameOverrideAgainWithoutALineOrADiskWrite) {
  (void)Set(R"({"screenOffMinutes":10,"sleepMinutes":20})");
  log.Clear();
  SaveCounter saves(config.stateDir, "state.json");

  (void)Set(R"({"screenOffMinutes":10,"sleepMinutes":20})");

  EXPECT_EQ(applied.size(), 2U);
  EXPECT_EQ(saves.Count(), 0);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PowerSet, ReportsAnErrorOfApplyingInsideAGoodReply) {
  ApplyingGives("wake_unavailable");

  const std::string reply = Set(R"({"screenOffMinutes":10,"sleepMinutes":20})");

  EXPECT_TRUE(reply.starts_with(R"({"ok":true,)")) << reply;
  EXPECT_TRUE(reply.ends_with(R"("error":"wake_unavailable"})")) << reply;
  EXPECT_EQ(log.Lines().at(1), "<4>power: wake_unavailable");
}

TEST_F(PowerSet, AcceptsTheMinutesAtTheirLimits) {
  for (const std::string minutes : {"0", "240", "240.0", "0e5"}) {
    const std::string reply =
        Set(R"({"screenOffMinutes":)" + minutes + R"(,"sleepMinutes":)" + minutes + "}");
    EXPECT_TRUE(reply.starts_with(R"({"ok":true,)")) << minutes << reply;
  }
}

TEST_F(PowerSet, RefusesMinutesThatAreMissingOrNoWholeNumbersInTheirLimits) {
  for (const std::string bad : {"-1", "241", "0.5", "239.5", "240.001", "1e300", "-1e300", "1e999",
                                "null", "true", "\"15\"", "\"\"", "[]", "[15]", "{}"}) {
    ExpectRefused(R"({"screenOffMinutes":)" + bad + R"(,"sleepMinutes":0})", kMinutesLine);
    ExpectRefused(R"({"screenOffMinutes":15,"sleepMinutes":)" + bad + "}", kMinutesLine);
  }
  ExpectRefused(R"({"sleepMinutes":0})", kMinutesLine);
  ExpectRefused(R"({"screenOffMinutes":15})", kMinutesLine);
  ExpectRefused("{}", kMinutesLine);
}

TEST_F(PowerSet, TakesAbsentNullAndTrueForLocal) {
  for (const char* const member : {"", R"("local":null,)", R"("local":true,)"}) {
    const std::string reply =
        Set(std::string("{") + member + R"("screenOffMinutes":15,"sleepMinutes":0})");
    EXPECT_TRUE(reply.starts_with(R"({"ok":true,)")) << member << reply;
  }
}

TEST_F(PowerSet, RefusesEveryOtherLocalSilently) {
  for (const std::string bad : {"false", "0", "1", "\"true\"", "\"\"", "[]", "{}"})
    ExpectRefused(R"({"local":)" + bad + R"(,"screenOffMinutes":15,"sleepMinutes":0})", "");
}

TEST_F(PowerSet, LooksAtLocalBeforeTheMinutesAndAtThemBeforeTheSchedule) {
  ExpectRefused(R"({"local":false,"screenOffMinutes":241,"schedule":1})", "");
  ExpectRefused(R"({"screenOffMinutes":241,"sleepMinutes":0,"schedule":1})", kMinutesLine);
}

TEST_F(PowerSet, RefusesAScheduleThatIsNotValid) {
  const std::string rows[] = {
      "true",
      "1",
      R"("off")",
      "[]",
      "{}",
      R"({"enabled":1,"sleepAt":"22:00","wakeAt":"07:00","days":[1]})",
      R"({"enabled":true,"sleepAt":"22:00","wakeAt":"22:00","days":[1]})",
      R"({"enabled":true,"sleepAt":"24:00","wakeAt":"07:00","days":[1]})",
      R"({"enabled":true,"sleepAt":"22:00","wakeAt":"7:00","days":[1]})",
      R"({"enabled":true,"sleepAt":"22:00","wakeAt":"07:00","days":[]})",
      R"({"enabled":true,"sleepAt":"22:00","wakeAt":"07:00","days":[7]})",
      R"({"enabled":true,"sleepAt":"22:00","wakeAt":"07:00","days":[1,1]})",
      R"({"enabled":true,"sleepAt":"22:00","wakeAt":"07:00"})",
      R"({"enabled":true,"sleepAt":"22:00","days":[1]})",
      R"({"enabled":true,"wakeAt":"07:00","days":[1]})",
      R"({"sleepAt":"22:00","wakeAt":"07:00","days":[1]})",
  };
  for (const std::string& row : rows) {
    ExpectRefused(R"({"screenOffMinutes":15,"sleepMinutes":0,"schedule":)" + row + "}",
                  kScheduleLine);
  }
}

TEST_F(PowerSet, KeepsTheScheduleOfThePortalsPolicyInsideTheOverride) {
  PortalPolicyIs(PolicyText(5, 30, kWeekendSchedule));
  (void)Set(R"({"screenOffMinutes":10,"sleepMinutes":20})");
  PortalPolicyIs(PolicyText(5, 30));

  EXPECT_EQ(Document().Get("effective").Dump(), PolicyText(10, 20, kWeekendSchedule));
}

TEST_F(PowerSet, KeepsTheScheduleOfTheOverrideThatItReplaces) {
  PortalPolicyIs(PolicyText(5, 30));
  LocalPolicyIs(PolicyText(1, 2, kWeekendSchedule));

  (void)Set(R"({"screenOffMinutes":10,"sleepMinutes":20,"schedule":null})");

  EXPECT_EQ(applied, Lines{PolicyText(10, 20, kWeekendSchedule)});
}

TEST_F(PowerSet, TakesTheDefaultScheduleWhereNoPolicyCounts) {
  LocalPolicyIs("garbage");

  (void)Set(R"({"screenOffMinutes":10,"sleepMinutes":20})");

  EXPECT_EQ(applied, Lines{PolicyText(10, 20)});
}

TEST_F(PowerSet, IsRefusedOnATerminalThatIsNotEnrolled) {
  StateClear(StateKey::kDeviceToken);
  const char* const notEnrolled = R"({"ok":false,"error":"not_enrolled"})";

  EXPECT_EQ(Set(R"({"screenOffMinutes":10,"sleepMinutes":20})"), notEnrolled);
  EXPECT_EQ(Set(R"({"useOrganisation":true})"), notEnrolled);
  EXPECT_EQ(Set(R"({"useOrganisation":7})"), notEnrolled);
  EXPECT_EQ(applied, Lines());
  EXPECT_EQ(StateGetString(StateKey::kPowerLocal), "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PowerSet, FollowsThePortalAgainWithUseOrganisation) {
  PortalPolicyIs(PolicyText(5, 30));
  LocalPolicyIs(PolicyText(10, 20));

  const std::string reply = Set(R"({"useOrganisation":true})");

  EXPECT_EQ(reply, HandlePowerGet());
  EXPECT_EQ(Document().Get("local").Dump(), "null");
  EXPECT_TRUE(StateFile().Get("PowerLocal").IsNull());
  EXPECT_EQ(applied, Lines{PolicyText(5, 30)});
  EXPECT_EQ(log.Text(), kClearedLine);
}

TEST_F(PowerSet, DropsTheOverrideBeforeItAppliesThePortalsPolicy) {
  PortalPolicyIs(PolicyText(5, 30));
  LocalPolicyIs(PolicyText(10, 20));
  bool wasDropped = false;
  ops.applyPower = [&](const PowerPolicy&) {
    wasDropped = StateFile().Get("PowerLocal").IsNull() && log.Text() == kClearedLine;
    return std::string();
  };

  (void)Set(R"({"useOrganisation":true})");

  EXPECT_TRUE(wasDropped);
}

TEST_F(PowerSet, ReappliesThePortalsPolicyWithNoOverrideToDrop) {
  PortalPolicyIs(PolicyText(5, 30));

  (void)Set(R"({"useOrganisation":true})");

  EXPECT_EQ(applied, Lines{PolicyText(5, 30)});
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PowerSet, DropsAnOverrideThatCannotBeRead) {
  LocalPolicyIs("garbage");

  (void)Set(R"({"useOrganisation":true})");

  EXPECT_EQ(StateGetString(StateKey::kPowerLocal), "");
  EXPECT_EQ(applied, Lines());
  EXPECT_EQ(log.Text(), kClearedLine);
}

TEST_F(PowerSet, LeavesTheSystemAsItIsWhenNoPolicyIsLeft) {
  LocalPolicyIs(PolicyText(10, 20));

  const std::string reply = Set(R"({"useOrganisation":true})");

  EXPECT_TRUE(reply.starts_with(R"({"ok":true,)")) << reply;
  EXPECT_EQ(applied, Lines());
}

TEST_F(PowerSet, LooksAtNothingElseBesideUseOrganisation) {
  PortalPolicyIs(PolicyText(5, 30));
  LocalPolicyIs(PolicyText(10, 20));

  const std::string reply = Set(R"({"useOrganisation":true,"local":false,"screenOffMinutes":"bad",)"
                                R"("sleepMinutes":241,"schedule":[]})");

  EXPECT_EQ(reply, HandlePowerGet());
  EXPECT_EQ(log.Text(), kClearedLine);
}

TEST_F(PowerSet, GoesOnAsUsualWithUseOrganisationFalseOrNull) {
  for (const std::string value : {"false", "null"}) {
    applied.clear();
    (void)Set(R"({"useOrganisation":)" + value + R"(,"screenOffMinutes":10,"sleepMinutes":20})");
    EXPECT_EQ(applied, Lines{PolicyText(10, 20)}) << value;
  }
}

TEST_F(PowerSet, RefusesAUseOrganisationOfAnotherKindSilently) {
  LocalPolicyIs(PolicyText(10, 20));
  for (const std::string bad : {"0", "1", "\"true\"", "\"\"", "[]", "{}"}) {
    ExpectRefused(R"({"useOrganisation":)" + bad + R"(,"screenOffMinutes":1,"sleepMinutes":2})",
                  "");
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService
