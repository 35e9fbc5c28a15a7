// Which policy counts, what comes of applying it, and `power.get`.

#include "device/power_test.h"

#include "support/save_counter.h"

namespace Tarnvale::KioskService {
namespace {

using PowerGet = PowerTest;
using ReapplyPowerTest = PowerTest;
using ApplyPowerPolicyTest = PowerTest;

using Lines = std::vector<std::string>;

TEST_F(PowerGet, ShowsTheDefaultsOnATerminalThatNeverReceivedAPolicy) {
  EXPECT_EQ(HandlePowerGet(), R"({"ok":true,"policy":)" + DefaultPolicyText() +
                                  R"(,"source":"default","local":null,"effective":)" +
                                  DefaultPolicyText() + R"(,"error":null})");
}

TEST_F(PowerGet, ShowsThePortalsPolicyAndWhoMadeIt) {
  PortalPolicyIs(PolicyText(5, 30, kWeekendSchedule));
  StateSetString(StateKey::kPowerSource, "tenant");

  EXPECT_EQ(HandlePowerGet(), R"({"ok":true,"policy":)" + PolicyText(5, 30, kWeekendSchedule) +
                                  R"(,"source":"tenant","local":null,"effective":)" +
                                  PolicyText(5, 30, kWeekendSchedule) + R"(,"error":null})");
}

TEST_F(PowerGet, ShowsTheLocalOverrideAsTheOneThatCounts) {
  PortalPolicyIs(PolicyText(5, 30));
  StateSetString(StateKey::kPowerSource, "device");
  LocalPolicyIs(PolicyText(240, 0, kWeekendSchedule));
  StateSetString(StateKey::kPowerError, "wake_unavailable");

  EXPECT_EQ(HandlePowerGet(),
            R"({"ok":true,"policy":)" + PolicyText(5, 30) + R"(,"source":"device","local":)" +
                PolicyText(240, 0, kWeekendSchedule) + R"(,"effective":)" +
                PolicyText(240, 0, kWeekendSchedule) + R"(,"error":"wake_unavailable"})");
}

TEST_F(PowerGet, ShowsTheDefaultsBesideALocalOverrideAlone) {
  LocalPolicyIs(PolicyText(1, 2));

  const Json document = Document();

  EXPECT_EQ(document.Get("policy").Dump(), DefaultPolicyText());
  EXPECT_EQ(document.Get("source").Dump(), R"("default")");
  EXPECT_EQ(document.Get("local").Dump(), PolicyText(1, 2));
  EXPECT_EQ(document.Get("effective").Dump(), PolicyText(1, 2));
}

TEST_F(PowerGet, CallsThePolicyOfAnUnknownMakerTheDefault) {
  PortalPolicyIs(PolicyText(5, 30));

  EXPECT_EQ(Document().Get("source").Dump(), R"("default")");
}

TEST_F(PowerGet, NamesNoMakerOfAPolicyThatIsNotThere) {
  StateSetString(StateKey::kPowerSource, "tenant");

  EXPECT_EQ(Document().Get("source").Dump(), R"("default")");
}

TEST_F(PowerGet, TakesAPolicyThatCannotBeReadForNone) {
  for (const std::string& text : {std::string("garbage"), std::string("[]"), PolicyText(241, 0),
                                  std::string(R"({"screenOffMinutes":1,"sleepMinutes":2})")}) {
    PortalPolicyIs(text);
    LocalPolicyIs(text);
    StateSetString(StateKey::kPowerSource, "tenant");

    EXPECT_EQ(Document().Get("policy").Dump(), DefaultPolicyText()) << text;
    EXPECT_EQ(Document().Get("source").Dump(), R"("default")") << text;
    EXPECT_EQ(Document().Get("local").Dump(), "null") << text;
    EXPECT_EQ(Document().Get("effective").Dump(), DefaultPolicyText()) << text;
  }
}

TEST_F(PowerGet, ChangesNothingAndAppliesNothing) {
  PortalPolicyIs(PolicyText(5, 30));
  SaveCounter saves(config.stateDir, "state.json");

  (void)HandlePowerGet();

  EXPECT_EQ(saves.Count(), 0);
  EXPECT_EQ(applied, Lines());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(PowerGet, AnswersOnATerminalThatIsNotEnrolled) {
  StateClear(StateKey::kDeviceToken);

  EXPECT_TRUE(Document().Get("ok").AsBool(false));
}

TEST_F(ReapplyPowerTest, LeavesTheSystemAloneWithoutAPolicy) {
  StateSetString(StateKey::kPowerError, "wake_unavailable");

  ReapplyPower();

  EXPECT_EQ(applied, Lines());
  EXPECT_EQ(StateGetString(StateKey::kPowerError), "wake_unavailable");
}

TEST_F(ReapplyPowerTest, AppliesThePortalsPolicy) {
  PortalPolicyIs(PolicyText(5, 30, kWeekendSchedule));

  ReapplyPower();

  EXPECT_EQ(applied, Lines{PolicyText(5, 30, kWeekendSchedule)});
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ReapplyPowerTest, AppliesTheLocalOverrideInItsPlace) {
  PortalPolicyIs(PolicyText(5, 30, kWeekendSchedule));
  LocalPolicyIs(PolicyText(10, 0));

  ReapplyPower();

  EXPECT_EQ(applied, Lines{PolicyText(10, 0)});
}

TEST_F(ReapplyPowerTest, PassesOverALocalOverrideThatCannotBeRead) {
  PortalPolicyIs(PolicyText(5, 30));
  LocalPolicyIs(PolicyText(5, 241));

  ReapplyPower();

  EXPECT_EQ(applied, Lines{PolicyText(5, 30)});
}

TEST_F(ReapplyPowerTest, AppliesAnUnchangedPolicyEachTimeWithoutADiskWrite) {
  PortalPolicyIs(PolicyText(5, 30));
  SaveCounter saves(config.stateDir, "state.json");

  ReapplyPower();
  ReapplyPower();

  EXPECT_EQ(applied.size(), 2U);
  EXPECT_EQ(saves.Count(), 0);
}

TEST_F(ApplyPowerPolicyTest, KeepsAnErrorAndLogsItOnce) {
  PortalPolicyIs(PolicyText(5, 30, kWeekendSchedule));
  ApplyingGives("wake_unavailable");

  ReapplyPower();
  ReapplyPower();

  EXPECT_EQ(StateGetString(StateKey::kPowerError), "wake_unavailable");
  EXPECT_EQ(Document().Get("error").Dump(), R"("wake_unavailable")");
  EXPECT_EQ(StateFile().Get("PowerError").Dump(), R"("wake_unavailable")");
  EXPECT_EQ(log.Text(), "<4>power: wake_unavailable\n");
}

TEST_F(ApplyPowerPolicyTest, ClearsTheErrorSilentlyWhenItIsGone) {
  PortalPolicyIs(PolicyText(5, 30, kWeekendSchedule));
  ApplyingGives("wake_unavailable");
  ReapplyPower();
  log.Clear();

  ApplyingGives("");
  ReapplyPower();

  EXPECT_EQ(Document().Get("error").Dump(), "null");
  EXPECT_TRUE(StateFile().Get("PowerError").IsNull());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ApplyPowerPolicyTest, LogsAnErrorThatComesBackAndOneThatIsAnother) {
  PortalPolicyIs(PolicyText(5, 30));
  for (const char* const error : {"wake_unavailable", "", "wake_unavailable", "another"}) {
    ApplyingGives(error);
    ReapplyPower();
  }

  EXPECT_EQ(log.Text(),
            "<4>power: wake_unavailable\n<4>power: wake_unavailable\n<4>power: another\n");
}

}  // namespace
}  // namespace Tarnvale::KioskService
