#include "kiosk/provisioning.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <thread>

#include "core/state.h"
#include "support/service_test.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

class ProvisionKioskTest : public ServiceTest {
 protected:
  void SetUp() override {
    AccountIsMissing();
    ops.dropAdminGroups = [] {};
    ops.setMaintenanceMarker = [](bool, bool) {};
    SetupToolMakes(kTestKioskUid);
  }
  void ToolFails(const std::string& detail) {
    ops.runSetupTool = [detail](bool, std::string* detailOut) {
      *detailOut = detail;
      return false;
    };
  }
  void UidIsRecorded(const std::string& uid) {
    StateSetString(StateKey::kAccountUid, uid);
  }
  // Fails with this code, and in the way that all failures share.
  void ExpectFailure(const std::string& code, const std::string& detail = {}) {
    StateSetInt(StateKey::kProvisioned, 1);
    StateSetInt(StateKey::kTeardownPending, 1);

    EXPECT_EQ(ProvisionKiosk(), code);

    EXPECT_EQ(log.Text(), "<3>provisioning failed: " + code + detail + "\n");
    EXPECT_EQ(StateGetString(StateKey::kLastError), code);
    EXPECT_TRUE(StateFile().Get(StateKey::kProvisioned).IsNull());
    EXPECT_TRUE(StateFile().Get(StateKey::kTeardownPending).IsNull());
    EXPECT_EQ(calls.Count("setMaintenanceMarker"), 0);
  }
  [[nodiscard]] std::string ProvisionedLine() const {
    return "<6>provisioned: tarnvale-kiosk signs in at startup into " + config.client + " --kiosk";
  }
};

TEST_F(ProvisionKioskTest, RecordsTheAccountThatTheToolMade) {
  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_EQ(StateFile().Get(StateKey::kAccountUid).Dump(), "\"1501\"");
  EXPECT_EQ(StateFile().Get(StateKey::kProvisioned).Dump(), "1");
  EXPECT_FALSE(StateFile().Has(StateKey::kLastError));
  const std::vector<std::string> expected = {"<6>kiosk account tarnvale-kiosk (uid 1501)",
                                             ProvisionedLine()};
  EXPECT_EQ(log.Lines(), expected);
}

TEST_F(ProvisionKioskTest, GoesThroughItsStepsInOrder) {
  (void)ProvisionKiosk();

  const std::vector<std::string> expected = {"lookupKioskAccount", "runSetupTool",
                                             "lookupKioskAccount", "lookupKioskAccount",
                                             "dropAdminGroups",    "setMaintenanceMarker"};
  EXPECT_EQ(calls.Names(), expected);
}

TEST_F(ProvisionKioskTest, CountsAsNotProvisionedWhileTheToolRuns) {
  Provision();
  StateSetInt(StateKey::kTeardownPending, 1);
  StateSetString(StateKey::kLastError, "setup_failed");
  ops.runSetupTool = [this](bool enable, std::string*) {
    EXPECT_TRUE(enable);
    EXPECT_TRUE(StateFile().Get(StateKey::kProvisioned).IsNull());
    EXPECT_TRUE(StateFile().Get(StateKey::kTeardownPending).IsNull());
    EXPECT_EQ(StateGetString(StateKey::kLastError), "setup_failed") << "cleared at the end only";
    return true;
  };

  EXPECT_EQ(ProvisionKiosk(), "");
  EXPECT_TRUE(StateFile().Get(StateKey::kLastError).IsNull());
}

TEST_F(ProvisionKioskTest, DropsTheGroupsOfTheRecordedAccountBeforeItIsProvisioned) {
  ops.dropAdminGroups = [this] {
    EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1501");
    EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 0);
    EXPECT_TRUE(log.Has("<6>kiosk account tarnvale-kiosk (uid 1501)"));
    EXPECT_FALSE(log.Has(ProvisionedLine()));
  };

  EXPECT_EQ(ProvisionKiosk(), "");
  EXPECT_EQ(calls.Count("dropAdminGroups"), 1);
}

TEST_F(ProvisionKioskTest, LogsTheConstantNameWhateverIsConfigured) {
  config.kioskUser = "another";
  UseConfig();

  (void)ProvisionKiosk();

  EXPECT_TRUE(log.Has("<6>kiosk account tarnvale-kiosk (uid 1501)"));
  EXPECT_TRUE(log.Has(ProvisionedLine()));
}

TEST_F(ProvisionKioskTest, RunsTheToolAgainForTheAccountThatIsRecorded) {
  Provision();

  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_EQ(calls.Count("runSetupTool"), 1);
  EXPECT_EQ(log.Text(), ProvisionedLine() + "\n");
}

TEST_F(ProvisionKioskTest, AdoptsTheToolsAccountAfterTheStateWasLost) {
  AccountIs(kTestKioskUid, "Tarnvale");

  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_EQ(calls.Count("runSetupTool"), 1);
  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1501");
  const std::vector<std::string> expected = {"<6>kiosk account tarnvale-kiosk (uid 1501)",
                                             ProvisionedLine()};
  EXPECT_EQ(log.Lines(), expected);
}

TEST_F(ProvisionKioskTest, ReplacesTheRecordedUidOfAnAccountThatIsGone) {
  UidIsRecorded("1001");

  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1501");
  const std::vector<std::string> expected = {
      "<4>the recorded kiosk account is gone; using the new one",
      "<6>kiosk account tarnvale-kiosk (uid 1501)", ProvisionedLine()};
  EXPECT_EQ(log.Lines(), expected);
}

TEST_F(ProvisionKioskTest, DropsNoGroupsOfAnAccountWithoutTheMark) {
  AccountIs(kTestKioskUid, "made by hand");
  UidIsRecorded("1501");
  ops.runSetupTool = [](bool, std::string*) { return true; };

  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_EQ(calls.Count("dropAdminGroups"), 0);
  EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 1);
}

TEST_F(ProvisionKioskTest, RemovesALeftoverMarkerAndStartsNothingBeforeItIsDone) {
  StateSetString(StateKey::kLastError, "setup_failed");
  ops.setMaintenanceMarker = [this](bool allowKiosk, bool startKiosk) {
    EXPECT_TRUE(allowKiosk);
    EXPECT_FALSE(startKiosk);
    EXPECT_EQ(calls.Count("dropAdminGroups"), 1);
    EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 0);
    EXPECT_EQ(StateGetString(StateKey::kLastError), "setup_failed");
  };

  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 1);
}

TEST_F(ProvisionKioskTest, LeavesMaintenanceAndItsMarkerAsTheyAre) {
  StateSetInt(StateKey::kMaintenance, 1);

  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);
  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 0);
}

TEST_F(ProvisionKioskTest, RemovesTheMarkerForAnyOtherValueOfMaintenance) {
  for (const char* value : {"null", "0", "2", "true", "\"1\""}) {
    calls.Clear();
    StateSet(StateKey::kMaintenance, Json::Parse(value).value());
    EXPECT_EQ(ProvisionKiosk(), "");
    EXPECT_EQ(calls.Count("setMaintenanceMarker"), 1) << value;
  }
}

TEST_F(ProvisionKioskTest, TakesAClientThatItsOwnerMayExecute) {
  for (const mode_t mode : {0755U, 0700U, 0100U, 04755U}) {
    ASSERT_EQ(::chmod(config.client.c_str(), mode), 0);
    EXPECT_EQ(ProvisionKiosk(), "") << std::oct << mode;
  }
}

TEST_F(ProvisionKioskTest, FollowsALinkToTheClient) {
  ASSERT_EQ(::rename(config.client.c_str(), dir.At("client-1.2").c_str()), 0);
  ASSERT_EQ(::symlink("client-1.2", config.client.c_str()), 0);

  EXPECT_EQ(ProvisionKiosk(), "");
}

using NoClient = ProvisionKioskTest;

TEST_F(NoClient, IsAMissingFile) {
  ASSERT_EQ(::unlink(config.client.c_str()), 0);

  ExpectFailure("no_client");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(NoClient, IsADirectory) {
  ASSERT_EQ(::unlink(config.client.c_str()), 0);
  ASSERT_EQ(::mkdir(config.client.c_str(), 0755), 0);

  ExpectFailure("no_client");
}

TEST_F(NoClient, IsALinkToNothing) {
  ASSERT_EQ(::unlink(config.client.c_str()), 0);
  ASSERT_EQ(::symlink("nothing", config.client.c_str()), 0);

  ExpectFailure("no_client");
}

TEST_F(NoClient, IsAFileThatItsOwnerMayNotExecute) {
  for (const mode_t mode : {0644U, 0655U, 0677U}) {
    log.Clear();
    ASSERT_EQ(::chmod(config.client.c_str(), mode), 0);
    ExpectFailure("no_client");
  }
}

TEST_F(NoClient, KeepsTheRecordedUid) {
  Provision();
  ASSERT_EQ(::unlink(config.client.c_str()), 0);

  ExpectFailure("no_client");

  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1501");
}

using AccountLookupFailed = ProvisionKioskTest;

TEST_F(AccountLookupFailed, DoesNotRunTheTool) {
  AccountLookupFails();

  ExpectFailure("account_lookup_failed");

  EXPECT_EQ(calls.Count("runSetupTool"), 0);
}

struct ForeignRow {
  const char* name;
  const char* recorded;
  unsigned uid;
  const char* comment;
};

class AccountExists : public ProvisionKioskTest,
                      public ::testing::WithParamInterface<ForeignRow> {};

TEST_P(AccountExists, LeavesAForeignAccountAlone) {
  UidIsRecorded(GetParam().recorded);
  AccountIs(GetParam().uid, GetParam().comment);

  ExpectFailure("account_exists");

  EXPECT_EQ(calls.Count("runSetupTool"), 0);
  EXPECT_EQ(calls.Count("dropAdminGroups"), 0);
  EXPECT_EQ(StateGetString(StateKey::kAccountUid), GetParam().recorded);
}

INSTANTIATE_TEST_SUITE_P(
    ProvisionKiosk, AccountExists,
    ::testing::Values(ForeignRow{"AnotherComment", "", 1501, "Lobby computer"},
                      ForeignRow{"NoComment", "", 1501, ""},
                      ForeignRow{"SevenBytesOfTheMark", "", 1501, "Tarnval"},
                      ForeignRow{"SmallLetters", "", 1501, "tarnvale kiosk"},
                      ForeignRow{"MarkNotInFront", "", 1501, " Tarnvale"},
                      // The mark does not help an account of another uid than the recorded one.
                      ForeignRow{"AnotherUid", "1001", 1501, "Tarnvale kiosk"},
                      ForeignRow{"AnotherTextOfTheUid", "01501", 1501, "Tarnvale kiosk"}),
    [](const auto& row) { return std::string(row.param.name); });

using SetupFailed = ProvisionKioskTest;

TEST_F(SetupFailed, TellsTheDetailToTheLogAlone) {
  ToolFails("/opt/setup is not installed");

  ExpectFailure("setup_failed", ": /opt/setup is not installed");

  EXPECT_EQ(StateFile().Dump().find("installed"), std::string::npos);
  EXPECT_EQ(calls.Count("lookupKioskAccount"), 1);
}

TEST_F(SetupFailed, HasNoColonWithoutADetail) {
  ToolFails("");

  ExpectFailure("setup_failed");
}

TEST_F(SetupFailed, ReplacesTheLastError) {
  StateSetString(StateKey::kLastError, "no_client");
  ToolFails("");

  ExpectFailure("setup_failed");
}

TEST_F(SetupFailed, KeepsTheRecordedUid) {
  UidIsRecorded("1001");
  ToolFails("");

  ExpectFailure("setup_failed");

  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "1001");
}

using AccountCreateFailed = ProvisionKioskTest;

TEST_F(AccountCreateFailed, IsAToolThatMadeNoAccount) {
  ops.runSetupTool = [](bool, std::string* detail) {
    *detail = "all is well";
    return true;
  };

  ExpectFailure("account_create_failed");

  EXPECT_EQ(StateGetString(StateKey::kAccountUid), "");
  EXPECT_EQ(calls.Count("dropAdminGroups"), 0);
}

TEST_F(AccountCreateFailed, IsALookupThatFailsAfterTheTool) {
  ops.runSetupTool = [this](bool, std::string*) {
    AccountLookupFails();
    return true;
  };

  ExpectFailure("account_create_failed");
}

TEST_F(ProvisionKioskTest, ClearsTheErrorOfAnEarlierFailure) {
  ToolFails("");
  (void)ProvisionKiosk();
  ASSERT_EQ(StateGetString(StateKey::kLastError), "setup_failed");
  SetupToolMakes(kTestKioskUid);

  EXPECT_EQ(ProvisionKiosk(), "");

  EXPECT_TRUE(StateFile().Get(StateKey::kLastError).IsNull());
}

TEST_F(ProvisionKioskTest, HoldsOffASecondProvisioningUntilTheToolIsDone) {
  std::atomic<int> inside = 0;
  std::atomic<bool> met = false;
  std::promise<pid_t> second;
  ops.runSetupTool = [&, secondThread = second.get_future().share()](bool, std::string*) {
    if (++inside > 1) met = true;
    const pid_t thread = secondThread.get();
    // The second run has met the lock, or has come past it.
    EXPECT_TRUE(Eventually([&] { return met || ThreadId() == thread || IsAsleep(thread); }));
    --inside;
    return true;
  };
  AccountIs(kTestKioskUid);
  std::thread first([] { EXPECT_EQ(ProvisionKiosk(), ""); });
  ASSERT_TRUE(Eventually([&] { return inside > 0; }));
  std::thread waiting([&] {
    second.set_value(ThreadId());
    EXPECT_EQ(ProvisionKiosk(), "");
  });
  first.join();
  waiting.join();

  EXPECT_FALSE(met);
  EXPECT_EQ(calls.Count("runSetupTool"), 2);
}

}  // namespace
}  // namespace Tarnvale::KioskService
