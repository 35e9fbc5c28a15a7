#include <unistd.h>

#include <string>
#include <vector>

#include "core/clock.h"
#include "core/state.h"
#include "portal/identity.h"
#include "portal/pairing_test.h"
#include "support/save_counter.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kEnrolledReply[] =
    R"({"ok":true,"paired":true,"provisioned":true,"restarting":true,"restartInSeconds":10})";
constexpr char kUnreachableReply[] =
    R"({"ok":true,"paired":true,"provisioned":false,"error":"unreachable"})";

// The last check of a pairing: the portal hands the token out.
class PairCheckEnrolmentTest : public PairingTest {
 protected:
  PairCheckEnrolmentTest() {
    Begin();
    EnrolmentSucceeds();
    log.Clear();
  }

  void ExpectEnrolled() {
    EXPECT_EQ(CurrentDeviceToken(), kNewToken);
    EXPECT_EQ(StateFile().Get("DeviceToken").text, kNewToken);
    EXPECT_EQ(StateFile().Get("DeviceId").text, MachineIdHash());
  }
};

TEST_F(PairCheckEnrolmentTest, AnswersThatTheTerminalRestarts) {
  EXPECT_EQ(Check(), kEnrolledReply);

  ExpectEnrolled();
  EXPECT_TRUE(IsRestartPending());
  EXPECT_EQ(portal.Calls().size(), 3U);
}

TEST_F(PairCheckEnrolmentTest, TellsItsStepsInTheirOrder) {
  (void)Check();

  EXPECT_EQ(
      log.Lines(),
      (std::vector<std::string>{
          "<6>paired: device token held",
          R"(<6>kiosk sign-in methods now {"microsoft":true,"email":false,"extraHosts":[]})",
          "<6>kiosk account tarnvale-kiosk (uid 1501)",
          "<6>provisioned: tarnvale-kiosk signs in at startup into " + config.client + " --kiosk",
          "<6>enrolled: restarting into kiosk mode in 10 s"}));
}

TEST_F(PairCheckEnrolmentTest, KeepsTheTokenOutOfTheLog) {
  (void)Check();

  EXPECT_EQ(log.Text().find(kNewToken), std::string::npos);
}

TEST_F(PairCheckEnrolmentTest, StoresTokenAndMachineInOneSave) {
  SaveCounter saves(config.stateDir, "state.json");
  portal.AnswersWith(kCodePath, [&](const PortalCall&) {
    EXPECT_EQ(saves.Count(), 0);
    return Http{.ok = true, .status = 200, .body = kClaimedBody, .error = {}};
  });
  portal.AnswersWith(kCheckInPath, [&](const PortalCall&) {
    EXPECT_EQ(saves.Count(), 1);
    EXPECT_EQ(ReadText(config.stateDir + "/state.json"),
              std::string(R"({"DeviceToken":"token-from-the-portal","DeviceId":")") +
                  MachineIdHash() + R"("})");
    return Http{.ok = false, .status = 0, .body = {}, .error = "gone"};
  });

  EXPECT_EQ(Check(), kUnreachableReply);
  EXPECT_EQ(saves.Count(), 1);
}

TEST_F(PairCheckEnrolmentTest, ChecksInWithTheNewToken) {
  (void)Check();

  const PortalCall call = portal.Calls().at(2);
  EXPECT_EQ(call.url, "https://portal.test/api/kiosk/check-in");
  EXPECT_EQ(call.token, kNewToken);
}

TEST_F(PairCheckEnrolmentTest, ReplacesATokenOfAnotherMachine) {
  StateSetString(StateKey::kDeviceToken, "foreign");
  StateSetString(StateKey::kDeviceId, "foreign");

  EXPECT_EQ(Check(), kEnrolledReply);
  ExpectEnrolled();
}

TEST_F(PairCheckEnrolmentTest, RecordsNoMachineWhenItsIdCannotBeRead) {
  ASSERT_EQ(::unlink(config.machineIdPath.c_str()), 0);

  EXPECT_EQ(Check(), kEnrolledReply);
  EXPECT_EQ(CurrentDeviceToken(), kNewToken);
  EXPECT_EQ(StateFile().Get("DeviceId").Dump(), R"("")");
}

TEST_F(PairCheckEnrolmentTest, UsesUpTheCode) {
  (void)Check();

  EXPECT_EQ(Check(), kUnknownCodeReply);
  EXPECT_FALSE(IsPending());
}

TEST_F(PairCheckEnrolmentTest, AnswersUnreachableWhenTheCheckInFails) {
  portal.IsUnreachable(kCheckInPath);

  EXPECT_EQ(Check(), kUnreachableReply);
  ExpectEnrolled();
  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 0);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"<6>paired: device token held"}));
  EXPECT_FALSE(IsPending());
}

TEST_F(PairCheckEnrolmentTest, AnswersUnreachableForEveryCheckInThatIsNotGood) {
  struct Row {
    int status;
    const char* body;
  };
  for (const Row& row : {Row{500, "{}"}, Row{200, "{}"}, Row{401, "{}"}, Row{403, "{}"}}) {
    StateClear(StateKey::kDeviceToken);
    Begin();
    portal.Answers(kCodePath, 200, kClaimedBody);
    portal.Answers(kCheckInPath, row.status, row.body);

    EXPECT_EQ(Check(), kUnreachableReply) << row.status << row.body;
    ExpectEnrolled();
  }
  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), 0);
  EXPECT_FALSE(IsRestartPending());
}

TEST_F(PairCheckEnrolmentTest, RemembersAPortalThatDoesNotKnowTheNewToken) {
  portal.Answers(kCheckInPath, 401, R"({"status":"unknown"})");

  EXPECT_EQ(Check(), kUnreachableReply);
  ExpectEnrolled();
  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs);
  EXPECT_EQ(log.Lines().back(),
            "<4>check-in: AuthSystem does not recognise this terminal's token; "
            "kiosk mode stays unless that lasts 24 hours");
}

TEST_F(PairCheckEnrolmentTest, AnswersRevokedWhenThePortalTakesTheTokenBackAtOnce) {
  portal.Answers(kCheckInPath, 401, R"({"status":"revoked"})");
  RemovalWorks();

  EXPECT_EQ(Check(), R"({"ok":false,"error":"revoked"})");
  EXPECT_EQ(CurrentDeviceToken(), "");
  EXPECT_TRUE(StateFile().Get(StateKey::kDeviceId).IsNull());
  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(calls.Count("lookupKioskAccount"), 0);
  EXPECT_FALSE(IsPending());
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{
                "<6>paired: device token held",
                "<4>check-in: the portal says this terminal was removed (HTTP 401, status revoked)",
                "<4>removing kiosk mode: removed in the portal (401, status revoked)"}));
}

TEST_F(PairCheckEnrolmentTest, AnswersRevokedAlsoWhenTheTokenWasReplacedMeanwhile) {
  portal.AnswersWith(kCheckInPath, [](const PortalCall&) {
    StateSetString(StateKey::kDeviceToken, "token of another pairing");
    return Http{.ok = true, .status = 401, .body = R"({"status":"revoked"})", .error = {}};
  });

  EXPECT_EQ(Check(), R"({"ok":false,"error":"revoked"})");
  EXPECT_EQ(CurrentDeviceToken(), "token of another pairing");
}

// The removal forgets the code under the pairing lock, which the check must have given up by then,
// and a code that somebody was given in between with it.
TEST_F(PairCheckEnrolmentTest, LosesACodeThatWasGivenWhileTheRemovalRan) {
  portal.Answers(kCheckInPath, 401, R"({"status":"revoked"})");
  RemovalWorks();
  ops.removePower = [this] {
    StateClear(StateKey::kDeviceToken);
    Begin("NEWCODE1");
  };

  EXPECT_EQ(Check(), R"({"ok":false,"error":"revoked"})");
  EXPECT_FALSE(IsPending("NEWCODE1"));
}

TEST_F(PairCheckEnrolmentTest, AnswersRevokedAfterADayOfAnUnknownToken) {
  StateSetInt(StateKey::kUnknownSince, TestClock::kStartWallMs - 24 * kHourMs);
  portal.Answers(kCheckInPath, 401, R"({"status":"unknown"})");
  RemovalWorks();

  EXPECT_EQ(Check(), R"({"ok":false,"error":"revoked"})");
  EXPECT_EQ(CurrentDeviceToken(), "");
}

TEST_F(PairCheckEnrolmentTest, AnswersTheCodeOfAFailedProvisioning) {
  ops.runSetupTool = [](bool, std::string*) { return false; };

  EXPECT_EQ(Check(), R"({"ok":false,"error":"setup_failed"})");
  ExpectEnrolled();
  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(StateGetString(StateKey::kLastError), "setup_failed");
}

TEST_F(PairCheckEnrolmentTest, AnswersThatTheClientIsMissing) {
  ASSERT_EQ(::unlink(config.client.c_str()), 0);

  EXPECT_EQ(Check(), R"({"ok":false,"error":"no_client"})");
  ExpectEnrolled();
  EXPECT_FALSE(IsRestartPending());
}

TEST_F(PairCheckEnrolmentTest, ArmsTheRestartOnlyAfterProvisioning) {
  ops.runSetupTool = [this](bool, std::string*) {
    EXPECT_FALSE(IsRestartPending());
    AccountIs(kTestKioskUid);
    return true;
  };

  EXPECT_EQ(Check(), kEnrolledReply);
  EXPECT_TRUE(IsRestartPending());
}

using PairCheckWakeTest = PairingTest;

// When somebody has called for a pass of the service loop, its wait ends without time passing.
bool ServiceLoopIsWoken() {
  const std::int64_t beforeMs = SteadyNowMs();
  EXPECT_TRUE(WaitForServicePass(1000));
  return SteadyNowMs() == beforeMs;
}

TEST_F(PairCheckWakeTest, WakesTheServiceLoopBetweenTheTokenAndTheCheckIn) {
  Begin();
  portal.AnswersWith(kCodePath, [](const PortalCall&) {
    EXPECT_FALSE(ServiceLoopIsWoken());
    return Http{.ok = true, .status = 200, .body = kClaimedBody, .error = {}};
  });
  portal.AnswersWith(kCheckInPath, [this](const PortalCall&) {
    EXPECT_TRUE(log.Has("<6>paired: device token held"));
    EXPECT_TRUE(ServiceLoopIsWoken());
    return Http{.ok = false, .status = 0, .body = {}, .error = "gone"};
  });

  EXPECT_EQ(Check(), kUnreachableReply);
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 1);
}

TEST_F(PairCheckWakeTest, LeavesTheServiceLoopAloneWithoutAToken) {
  Begin();
  for (const int status : {202, 500, 400, 404}) {
    portal.Answers(kCodePath, status);
    (void)Check();

    EXPECT_FALSE(ServiceLoopIsWoken()) << status;
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService
