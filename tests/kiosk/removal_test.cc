#include "kiosk/removal.h"

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/failing_calls.h"
#include "core/state.h"
#include "portal/identity.h"
#include "portal/pairing.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kReason[] = "removed in the portal (401, status revoked)";
constexpr char kRemoving[] = "<4>removing kiosk mode: removed in the portal (401, status revoked)";
constexpr char kScheduleIsBack[] =
    "<6>os updates: the package manager's own schedule is back as it was";
constexpr char kStillPending[] =
    "<4>the kiosk account could not be removed yet; retrying at every start and check-in";
constexpr char kFinished[] = "<6>the pending removal of tarnvale-kiosk finished";
constexpr char kLeftAlone[] =
    "<4>the local tarnvale-kiosk is not the account tarnvale-kiosk-setup made (1501); left alone";

using Names = std::vector<std::string>;

// A terminal that holds everything a terminal can hold.
class RemoveKioskModeTest : public ServiceTest {
 protected:
  RemoveKioskModeTest() {
    WriteState(R"({"DeviceToken":"token-of-the-test","DeviceId":")" + MachineIdHash() +
               R"(","Provisioned":1,"Maintenance":1,"MaintenanceAt":5,"LastError":"e",)"
               R"("UnknownSince":6,"SignIn":"s","TerminalName":"n","AccountUid":"1501",)"
               R"("OwnsWuPolicy":1,"UpdatesPolicy":"u","UpdatesSource":"t","OsUpdatesReport":"r",)"
               R"("OsUpdatesWindowDone":"w","PowerPolicy":"p","PowerSource":"t",)"
               R"("PowerLocal":"l","PowerError":"x","MaintenanceFailures":3,)"
               R"("MaintenanceLockedUntil":7,"AuthBaseUrl":"https://by.hand",)"
               R"("DevAllowAnyCaller":1})");
    LoadState();
    AccountIs(kTestKioskUid);
    RemovalWorks();
    EXPECT_EQ(::mkdir(config.brandingDir.c_str(), 0755), 0);
    WriteText(config.brandingDir + "/branding.json", "{}");
  }

  // The members of the state file that are not null.
  [[nodiscard]] Names KeysLeft() const {
    Names keys;
    const Json state = StateFile();
    for (std::size_t i = 0; i < state.Size(); ++i) {
      if (!state.At(i).IsNull()) keys.push_back(state.keys[i]);
    }
    return keys;
  }
  [[nodiscard]] bool IsSet(const char* key) const {
    return !StateFile().Get(key).IsNull();
  }
};

using RemoveKioskAccountTest = RemoveKioskModeTest;

TEST_F(RemoveKioskModeTest, GoesThroughItsStepsInOrder) {
  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Names(), (Names{"runSetupTool", "removePower", "restoreUpdatesSchedule",
                                  "lookupKioskAccount", "endKioskSessions", "deleteKioskAccount"}));
}

TEST_F(RemoveKioskModeTest, TellsItsStepsInTheirOrder) {
  RemoveKioskMode(kReason);

  EXPECT_EQ(log.Lines(), (Names{kRemoving, kScheduleIsBack, "<6>deleted tarnvale-kiosk"}));
}

TEST_F(RemoveKioskModeTest, LeavesTheLockOutAndWhatWasPutInByHand) {
  RemoveKioskMode(kReason);

  EXPECT_EQ(KeysLeft(), (Names{"MaintenanceFailures", "MaintenanceLockedUntil", "AuthBaseUrl",
                               "DevAllowAnyCaller"}));
  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceLockedUntil), 7);
  EXPECT_EQ(CurrentDeviceToken(), "");
}

TEST_F(RemoveKioskModeTest, ClearsItsKeysOneByOneInOneOrder) {
  Names before = KeysLeft();
  Names cleared;
  const FailingCalls saves;
  const auto takeWhatIsGone = [&] {
    const Names now = KeysLeft();
    for (const std::string& key : before) {
      if (std::find(now.begin(), now.end(), key) == now.end()) cleared.push_back(key);
    }
    before = now;
  };
  FailingCalls::Watch([&](const std::string& call) {
    if (call == "rename") takeWhatIsGone();
  });

  RemoveKioskMode(kReason);
  takeWhatIsGone();

  EXPECT_EQ(cleared,
            (Names{"PowerPolicy", "PowerSource", "PowerLocal", "PowerError", "OwnsWuPolicy",
                   "UpdatesPolicy", "UpdatesSource", "OsUpdatesReport", "OsUpdatesWindowDone",
                   "DeviceToken", "DeviceId", "Provisioned", "Maintenance", "MaintenanceAt",
                   "LastError", "UnknownSince", "SignIn", "TerminalName", "AccountUid"}));
}

TEST_F(RemoveKioskModeTest, TellsItsReasonBeforeTheSetupToolRuns) {
  ops.runSetupTool = [this](bool enable, std::string*) {
    EXPECT_FALSE(enable);
    EXPECT_EQ(log.Text(), std::string(kRemoving) + "\n");
    EXPECT_TRUE(Exists(config.brandingDir));
    return true;
  };

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Count("runSetupTool"), 1);
}

TEST_F(RemoveKioskModeTest, DeletesTheBrandingBeforeThePower) {
  ops.removePower = [this] {
    EXPECT_FALSE(Exists(config.brandingDir));
    EXPECT_TRUE(IsSet(StateKey::kPowerPolicy));
  };

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Count("removePower"), 1);
}

TEST_F(RemoveKioskModeTest, ForgetsThePowerBeforeItGivesTheScheduleBack) {
  ops.restoreUpdatesSchedule = [this] {
    EXPECT_FALSE(IsSet(StateKey::kPowerError));
    EXPECT_TRUE(IsSet(StateKey::kOwnsWuPolicy));
    EXPECT_TRUE(IsSet(StateKey::kUpdatesPolicy));
  };

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Count("restoreUpdatesSchedule"), 1);
}

TEST_F(RemoveKioskModeTest, KeepsTheIdentityUntilTheAccountIsDealtWith) {
  ops.deleteKioskAccount = [this] {
    EXPECT_FALSE(IsSet(StateKey::kOsUpdatesWindowDone));
    EXPECT_EQ(CurrentDeviceToken(), kTestToken);
    EXPECT_TRUE(IsSet(StateKey::kAccountUid));
    return true;
  };

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
}

TEST_F(RemoveKioskModeTest, GoesOnWhenTheSetupToolFails) {
  ops.runSetupTool = [](bool, std::string* detail) {
    *detail = "no such unit";
    return false;
  };

  RemoveKioskMode(kReason);

  EXPECT_EQ(log.Lines(), (Names{kRemoving, "<3>tarnvale-kiosk-setup disable failed: no such unit",
                                kScheduleIsBack, "<6>deleted tarnvale-kiosk"}));
  EXPECT_EQ(CurrentDeviceToken(), "");
}

TEST_F(RemoveKioskModeTest, LeavesTheScheduleThatIsNotOurs) {
  for (const Json& owned : {Json(), Json(true), Json("1"), Json(0), Json(2)}) {
    StateSet(StateKey::kOwnsWuPolicy, owned);

    RemoveKioskMode(kReason);

    EXPECT_EQ(calls.Count("restoreUpdatesSchedule"), 0) << owned.Dump();
  }
  EXPECT_FALSE(log.Has(kScheduleIsBack));
}

TEST_F(RemoveKioskModeTest, LooksForNoAccountThatWasNeverMade) {
  StateClear(StateKey::kAccountUid);

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Names(), (Names{"runSetupTool", "removePower", "restoreUpdatesSchedule"}));
  EXPECT_EQ(log.Lines(), (Names{kRemoving, kScheduleIsBack}));
  EXPECT_FALSE(StateFile().Has(StateKey::kTeardownPending));
}

TEST_F(RemoveKioskModeTest, NeedsNothingToTakeDown) {
  WriteState("{}");
  LoadState();

  RemoveKioskMode("nothing");

  EXPECT_EQ(calls.Names(), (Names{"runSetupTool", "removePower"}));
  EXPECT_EQ(log.Text(), "<4>removing kiosk mode: nothing\n");
}

TEST_F(RemoveKioskModeTest, LeavesTheMarkerOfMaintenance) {
  WriteText(config.runDir + "/kiosk-maintenance", "");

  RemoveKioskMode(kReason);

  EXPECT_TRUE(Exists(config.runDir + "/kiosk-maintenance"));
}

TEST_F(RemoveKioskModeTest, MayRunTwice) {
  RemoveKioskMode(kReason);
  const std::string state = ReadText(config.stateDir + "/state.json");

  RemoveKioskMode(kReason);

  EXPECT_EQ(ReadText(config.stateDir + "/state.json"), state);
  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
}

TEST_F(RemoveKioskModeTest, ForgetsTheCodeThatIsShown) {
  WriteState("{}");
  LoadState();
  ops.hostName = ops.osVersion = [] { return std::string("x"); };
  ops.screenCount = [] { return 1; };
  portal.Answers(kPairPath, 200, R"({"pairingCode":"ABCD1234"})");
  (void)PairBegin();

  RemoveKioskMode(kReason);

  EXPECT_EQ(PairCheck(*Json::Parse(R"({"code":"ABCD1234"})")),
            R"({"ok":false,"error":"unknown_code"})");
}

TEST_F(RemoveKioskAccountTest, IsDoneWhenThereIsNone) {
  AccountIsMissing();

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Names().back(), "lookupKioskAccount");
  EXPECT_EQ(log.Lines().back(), kScheduleIsBack);
  EXPECT_FALSE(IsSet(StateKey::kAccountUid));
  EXPECT_FALSE(IsSet(StateKey::kTeardownPending));
}

TEST_F(RemoveKioskAccountTest, StandsPendingWhenTheLookupFails) {
  AccountLookupFails();

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Names().back(), "lookupKioskAccount");
  EXPECT_EQ(log.Lines(), (Names{kRemoving, kScheduleIsBack, kStillPending}));
  EXPECT_EQ(StateGetInt(StateKey::kTeardownPending), 1);
  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1501");
}

TEST_F(RemoveKioskAccountTest, StandsPendingWhenTheDeletionFails) {
  AccountCannotBeDeleted();

  RemoveKioskMode(kReason);

  EXPECT_EQ(log.Lines(),
            (Names{kRemoving, kScheduleIsBack, "<3>cannot delete tarnvale-kiosk", kStillPending}));
  EXPECT_EQ(KeysLeft(), (Names{"AccountUid", "MaintenanceFailures", "MaintenanceLockedUntil",
                               "AuthBaseUrl", "DevAllowAnyCaller", "TeardownPending"}));
  EXPECT_EQ(StateFile().Get(StateKey::kTeardownPending).Dump(), "1");
}

TEST_F(RemoveKioskAccountTest, EndsThePendingOfAnEarlierRemoval) {
  StateSetInt(StateKey::kTeardownPending, 1);

  RemoveKioskMode(kReason);

  EXPECT_FALSE(IsSet(StateKey::kTeardownPending));
  EXPECT_FALSE(log.Has(kFinished));
}

TEST_F(RemoveKioskAccountTest, EndsTheSessionsFirst) {
  ops.deleteKioskAccount = [this] {
    EXPECT_EQ(calls.Count("endKioskSessions"), 1);
    return true;
  };

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
}

struct ForeignRow {
  const char* name;
  unsigned uid;
  const char* comment;
};

class ForeignAccount : public RemoveKioskModeTest,
                       public ::testing::WithParamInterface<ForeignRow> {};

TEST_P(ForeignAccount, IsLeftAloneAndForgotten) {
  AccountIs(GetParam().uid, GetParam().comment);

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Names().back(), "lookupKioskAccount");
  EXPECT_EQ(log.Lines(), (Names{kRemoving, kScheduleIsBack, kLeftAlone}));
  EXPECT_FALSE(IsSet(StateKey::kAccountUid));
  EXPECT_FALSE(IsSet(StateKey::kTeardownPending));
}

INSTANTIATE_TEST_SUITE_P(RemoveKioskMode, ForeignAccount,
                         ::testing::Values(ForeignRow{"AnotherUid", 1502, "Tarnvale kiosk"},
                                           ForeignRow{"AnotherComment", 1501, "Lobby"},
                                           ForeignRow{"NoComment", 1501, ""},
                                           ForeignRow{"SevenBytesOfTheMark", 1501, "Tarnval"},
                                           ForeignRow{"SmallLetters", 1501, "tarnvale kiosk"},
                                           ForeignRow{"MarkNotInFront", 1501, " Tarnvale"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(RemoveKioskAccountTest, TakesAMarkOfExactlyEightBytes) {
  AccountIs(kTestKioskUid, "Tarnvale");

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 1);
}

TEST_F(RemoveKioskAccountTest, ComparesTheUidAsItIsWritten) {
  StateSetString(StateKey::kAccountUid, "01501");

  RemoveKioskMode(kReason);

  EXPECT_EQ(calls.Count("deleteKioskAccount"), 0);
  EXPECT_EQ(log.Lines().back(),
            "<4>the local tarnvale-kiosk is not the account tarnvale-kiosk-setup made (01501); "
            "left alone");
}

TEST_F(RemoveKioskAccountTest, KeepsItsNameInTheLogWhateverIsConfigured) {
  config.kioskUser = "another";
  UseConfig();

  RemoveKioskMode(kReason);

  EXPECT_TRUE(log.Has("<6>deleted tarnvale-kiosk"));
}

}  // namespace
}  // namespace Tarnvale::KioskService
