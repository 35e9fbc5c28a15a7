#include "control/status.h"

#include "core/state.h"
#include "kiosk/provisioning.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

class StatusTest : public ServiceTest {
 protected:
  Json Status(const Caller& caller) {
    return Json::Parse(HandleStatus(caller)).value();
  }
  void SignInIs(const std::string& text) {
    StateSetString(StateKey::kSignIn, text);
  }
};

TEST_F(StatusTest, IsCompleteOnATerminalThatWasNeverEnrolled) {
  EXPECT_EQ(HandleStatus(Caller()),
            R"({"ok":true,"enrolled":false,"provisioned":false,"kioskSession":false,)"
            R"("maintenance":false,"account":"tarnvale-kiosk","terminalName":"",)"
            R"("signIn":{"microsoft":true,"email":false,"extraHosts":[]},)"
            R"("brandingDir":")" +
                config.brandingDir + R"("})");
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(StatusTest, HasAllMembersInTheirOrder) {
  Enrol();
  Provision();
  SessionsAre({KioskSession()});
  StateSetInt(StateKey::kMaintenance, 1);
  StateSetString(StateKey::kTerminalName, "Lobby \"1\"");
  SignInIs(R"({"extraHosts":["login.example.org"],"email":true,"microsoft":false})");
  StateSetString(StateKey::kLastError, "setup_failed");

  EXPECT_EQ(HandleStatus(Kiosk()),
            R"({"ok":true,"enrolled":true,"provisioned":true,"kioskSession":true,)"
            R"("maintenance":true,"account":"tarnvale-kiosk","terminalName":"Lobby \"1\"",)"
            R"("signIn":{"microsoft":false,"email":true,"extraHosts":["login.example.org"]},)"
            R"("brandingDir":")" +
                config.brandingDir + R"(","error":"setup_failed"})");
}

TEST_F(StatusTest, IsNotEnrolledWithATokenOfAnotherMachine) {
  Enrol();
  WriteText(config.machineIdPath, "fedcba9876543210fedcba9876543210\n");

  EXPECT_FALSE(Status(Root()).Get("enrolled").AsBool(true));
}

TEST_F(StatusTest, IsProvisionedWhileTheRecordedAccountIsIntact) {
  Provision();
  EXPECT_TRUE(Status(Root()).Get("provisioned").AsBool(false));
  AccountIs(kTestKioskUid + 1);
  EXPECT_FALSE(Status(Root()).Get("provisioned").AsBool(true));
  AccountIsMissing();
  EXPECT_FALSE(Status(Root()).Get("provisioned").AsBool(true));
  AccountLookupFails();
  EXPECT_FALSE(Status(Root()).Get("provisioned").AsBool(true));
}

TEST_F(StatusTest, LooksNothingUpWhenProvisioningIsNotComplete) {
  Provision();
  for (const char* value : {"null", "0", "2", "true", "\"1\""}) {
    StateSet(StateKey::kProvisioned, Json::Parse(value).value());
    const Json status = Status(Kiosk());
    EXPECT_FALSE(status.Get("provisioned").AsBool(true)) << value;
    EXPECT_FALSE(status.Get("kioskSession").AsBool(true)) << value;
  }
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(StatusTest, AsksLogindForNobodyButTheKioskAccount) {
  Provision();

  EXPECT_FALSE(Status(Person()).Get("kioskSession").AsBool(true));
  EXPECT_FALSE(Status(Root()).Get("kioskSession").AsBool(true));
  EXPECT_EQ(calls.Count("listSessions"), 0);
}

TEST_F(StatusTest, AsksLogindOnceForTheKioskAccount) {
  Provision();
  SessionsAre({KioskSession()});

  EXPECT_TRUE(Status(Kiosk()).Get("kioskSession").AsBool(false));
  EXPECT_EQ(calls.Count("listSessions"), 1);
}

TEST_F(StatusTest, SeesNoKioskSessionInASessionThatIsNotTheAccountsOwn) {
  Provision();
  SessionsAre({PersonSession()});
  EXPECT_FALSE(Status(Kiosk()).Get("kioskSession").AsBool(true));

  Caller withoutSession = Kiosk();
  withoutSession.session.clear();
  EXPECT_FALSE(Status(withoutSession).Get("kioskSession").AsBool(true));
}

TEST_F(StatusTest, IsInMaintenanceForTheNumberOneAlone) {
  for (const char* value : {"2", "true", "\"1\"", "null"}) {
    StateSet(StateKey::kMaintenance, Json::Parse(value).value());
    EXPECT_FALSE(Status(Root()).Get("maintenance").AsBool(true)) << value;
  }
}

TEST_F(StatusTest, TellsTheConstantAccountNameWhateverIsConfigured) {
  config.kioskUser = "another";
  UseConfig();

  EXPECT_EQ(Status(Root()).Get("account").AsString(""), "tarnvale-kiosk");
}

TEST_F(StatusTest, FillsSignInUpWithItsDefaults) {
  const std::string defaults = R"({"microsoft":true,"email":false,"extraHosts":[]})";
  for (const char* text : {"", "not json", "[1,2]", "\"text\"", "{}", R"({"email":1})"}) {
    SignInIs(text);
    EXPECT_EQ(Status(Root()).Get("signIn").Dump(), defaults) << text;
  }
  SignInIs(R"({"email":true})");
  EXPECT_EQ(Status(Root()).Get("signIn").Dump(),
            R"({"microsoft":true,"email":true,"extraHosts":[]})");
}

TEST_F(StatusTest, CarriesTheProvisioningFailureUntilProvisioningSucceeds) {
  AccountIsMissing();
  ops.runSetupTool = [](bool, std::string*) { return false; };
  ASSERT_EQ(ProvisionKiosk(), "setup_failed");
  EXPECT_EQ(ErrorOf(Status(Root())), "setup_failed");
  EXPECT_TRUE(Status(Root()).Get("ok").AsBool(false));

  SetupToolMakes(kTestKioskUid);
  ops.dropAdminGroups = [] {};
  ops.setMaintenanceMarker = [](bool, bool) {};
  ASSERT_EQ(ProvisionKiosk(), "");
  EXPECT_FALSE(Status(Root()).Has("error"));
}

TEST_F(StatusTest, LosesTheErrorWhenItIsCleared) {
  StateSetString(StateKey::kLastError, "no_client");
  StateClear(StateKey::kLastError);

  EXPECT_FALSE(Status(Root()).Has("error"));
}

TEST_F(StatusTest, LogsNothing) {
  Enrol();
  Provision();
  SessionsAre({});

  (void)Status(Kiosk());

  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService
