// One pass of the service loop: what it does, and how long the next one is away.

#include <string>
#include <vector>

#include "core/service_loop.h"
#include "core/state.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kEnrolledReply[] = R"({"status":"enrolled"})";
constexpr char kReachableAgain[] = "<6>check-in: AuthSystem reachable again";

std::string NoUsableAnswer(const std::string& reason) {
  return "<4>check-in: no usable answer from AuthSystem (" + reason + "); still enrolled";
}

class ServicePassTest : public ServiceTest {
 protected:
  // Enrolled, provisioned, with a portal that answers and nothing in its groups to be taken away.
  void IsInStep() {
    Enrol();
    Provision();
    ops.dropAdminGroups = [] {};
    PortalAnswers();
  }
  void PortalAnswers() {
    portal.Answers(kCheckInPath, 200, kEnrolledReply);
  }
  void PortalIsGone() {
    portal.IsUnreachable(kCheckInPath, "Could not connect");
  }
  std::vector<std::int64_t> Passes(int count) {
    std::vector<std::int64_t> delaysMs;
    for (int pass = 0; pass < count; ++pass)
      delaysMs.push_back(ServicePass());
    return delaysMs;
  }
};

using ServicePassProvisioning = ServicePassTest;

TEST_F(ServicePassTest, WantsNoTimerAndNoPortalWithoutAToken) {
  EXPECT_EQ(Passes(3), (std::vector<std::int64_t>{-1, -1, -1}));

  EXPECT_EQ(calls.Names(), std::vector<std::string>{});
  EXPECT_FALSE(Exists(config.stateDir + "/state.json"));
}

TEST_F(ServicePassTest, WantsNoTimerAndNoPortalWithATokenOfAnotherMachine) {
  StateSetString(StateKey::kDeviceToken, kTestToken);
  StateSetString(StateKey::kDeviceId, "somebody else's");

  EXPECT_EQ(ServicePass(), -1);

  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(ServicePassTest, ComesBackAfter30SecondsWhenAllIsWell) {
  IsInStep();

  EXPECT_EQ(Passes(3), (std::vector<std::int64_t>{30000, 30000, 30000}));

  EXPECT_EQ(portal.CallsTo(kCheckInPath), 3);
  EXPECT_EQ(portal.Calls()[0].token, kTestToken);
}

TEST_F(ServicePassTest, SaysNothingWhenAllIsWell) {
  IsInStep();
  (void)ServicePass();
  log.Clear();

  (void)ServicePass();

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ServicePassTest, BacksOffWhileThePortalGivesNoUsableAnswer) {
  IsInStep();
  PortalIsGone();

  EXPECT_EQ(Passes(8), (std::vector<std::int64_t>{30000, 60000, 120000, 240000, 480000, 600000,
                                                  600000, 600000}));

  EXPECT_EQ(log.Text(), NoUsableAnswer("Could not connect") + "\n");
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 8);
}

TEST_F(ServicePassTest, BacksOffForEveryAnswerThatIsNoGoodOne) {
  IsInStep();
  portal.Answers(kCheckInPath, 500);
  EXPECT_EQ(ServicePass(), 30000);
  portal.Answers(kCheckInPath, 200, "<html>");
  EXPECT_EQ(ServicePass(), 60000);
  portal.Answers(kCheckInPath, 401, R"({"status":"unknown"})");
  EXPECT_EQ(ServicePass(), 120000);
  portal.Answers(kCheckInPath, 401, "{}");
  EXPECT_EQ(ServicePass(), 240000);

  EXPECT_TRUE(log.Has(NoUsableAnswer("HTTP 500")));
  EXPECT_FALSE(log.Has(NoUsableAnswer("unexpected check-in reply")));
}

TEST_F(ServicePassTest, ChangesNothingWhileThePortalIsGone) {
  IsInStep();
  StateSetString(StateKey::kTerminalName, "Lobby");
  const std::string before = ReadText(config.stateDir + "/state.json");
  PortalIsGone();

  (void)Passes(3);

  EXPECT_EQ(ReadText(config.stateDir + "/state.json"), before);
  EXPECT_EQ(calls.Names(), (std::vector<std::string>{"http", "http", "http"}));
}

TEST_F(ServicePassTest, TellsTheEndOfAnOutageOnceAndStartsOver) {
  IsInStep();
  PortalIsGone();
  (void)Passes(4);
  PortalAnswers();
  EXPECT_EQ(Passes(2), (std::vector<std::int64_t>{30000, 30000}));
  EXPECT_EQ(log.Count(kReachableAgain), 1);

  PortalIsGone();
  EXPECT_EQ(Passes(2), (std::vector<std::int64_t>{30000, 60000}));
  EXPECT_EQ(log.Count(NoUsableAnswer("Could not connect")), 2);
}

TEST_F(ServicePassTest, TellsOfNoEndWithoutAnOutage) {
  IsInStep();

  (void)Passes(2);

  EXPECT_FALSE(log.Has(kReachableAgain));
}

TEST_F(ServicePassTest, StartsTheBackOffOverWhenTheTokenIsGone) {
  IsInStep();
  PortalIsGone();
  (void)Passes(4);
  StateClear(StateKey::kDeviceToken);
  EXPECT_EQ(ServicePass(), -1);

  Enrol();
  EXPECT_EQ(Passes(2), (std::vector<std::int64_t>{30000, 60000}));

  // It is still the same outage.
  EXPECT_EQ(log.Count(NoUsableAnswer("Could not connect")), 1);
}

TEST_F(ServicePassTest, TakesTheAdminGroupsAwayAtEveryGoodCheckIn) {
  IsInStep();

  (void)Passes(3);
  EXPECT_EQ(calls.Count("dropAdminGroups"), 3);

  PortalIsGone();
  (void)Passes(3);
  EXPECT_EQ(calls.Count("dropAdminGroups"), 3);
}

TEST_F(ServicePassTest, LeavesTheGroupsOfAnAccountThatTheSetupToolDidNotMake) {
  IsInStep();
  AccountIs(kTestKioskUid, "Somebody's own");

  EXPECT_EQ(ServicePass(), 30000);

  EXPECT_EQ(calls.Count("dropAdminGroups"), 0);
}

TEST_F(ServicePassTest, ChecksInBeforeItTouchesTheTerminal) {
  IsInStep();

  (void)ServicePass();

  ASSERT_FALSE(calls.Names().empty());
  EXPECT_EQ(calls.Names().front(), "http");
}

TEST_F(ServicePassProvisioning, IsDoneByTheFirstGoodCheckIn) {
  Enrol();
  PortalAnswers();
  AccountIsMissing();
  SetupToolMakes(kTestKioskUid);
  ops.dropAdminGroups = [] {};

  EXPECT_EQ(Passes(3), (std::vector<std::int64_t>{30000, 30000, 30000}));

  EXPECT_EQ(calls.Count("runSetupTool"), 1);
  EXPECT_EQ(StateGetInt(StateKey::kProvisioned), 1);
}

TEST_F(ServicePassProvisioning, ComesAfterTheAdminGroupsAreTakenAway) {
  IsInStep();
  StateClear(StateKey::kProvisioned);
  ops.runSetupTool = [this](bool, std::string*) {
    EXPECT_EQ(calls.Count("dropAdminGroups"), 1);
    return false;
  };

  EXPECT_EQ(ServicePass(), 30000);

  EXPECT_EQ(calls.Count("runSetupTool"), 1);
}

TEST_F(ServicePassProvisioning, IsNotTriedWhileThePortalIsGone) {
  Enrol();
  PortalIsGone();

  EXPECT_EQ(ServicePass(), 30000);

  EXPECT_EQ(calls.Count("runSetupTool"), 0);
}

TEST_F(ServicePassProvisioning, IsTriedAgainAtTheFirstPass600SecondsAfterAFailure) {
  Enrol();
  PortalAnswers();
  AccountIsMissing();
  ops.runSetupTool = [](bool, std::string*) { return false; };

  EXPECT_EQ(ServicePass(), 30000);
  TestClock::AdvanceMs(599999);
  EXPECT_EQ(ServicePass(), 30000);
  EXPECT_EQ(calls.Count("runSetupTool"), 1);

  TestClock::AdvanceMs(1);
  EXPECT_EQ(ServicePass(), 30000);
  EXPECT_EQ(calls.Count("runSetupTool"), 2);

  TestClock::AdvanceMs(599999);
  EXPECT_EQ(ServicePass(), 30000);
  EXPECT_EQ(calls.Count("runSetupTool"), 2);
}

// The tool may take minutes, and what counts is when it failed.
TEST_F(ServicePassProvisioning, CountsTheTimeFromTheEndOfTheFailure) {
  Enrol();
  PortalAnswers();
  AccountIsMissing();
  ops.runSetupTool = [](bool, std::string*) {
    TestClock::AdvanceMs(500000);
    return false;
  };

  (void)ServicePass();
  TestClock::AdvanceMs(599999);
  (void)ServicePass();

  EXPECT_EQ(calls.Count("runSetupTool"), 1);
}

TEST_F(ServicePassProvisioning, LeavesTheBackOffAloneWhenItFails) {
  Enrol();
  PortalAnswers();
  AccountIsMissing();
  ops.runSetupTool = [](bool, std::string*) { return false; };
  EXPECT_EQ(ServicePass(), 30000);
  EXPECT_EQ(StateGetString(StateKey::kLastError), "setup_failed");

  PortalIsGone();
  EXPECT_EQ(Passes(2), (std::vector<std::int64_t>{30000, 60000}));
}

TEST_F(ServicePassProvisioning, NeedsNoTimerAfterASuccess) {
  Enrol();
  PortalAnswers();
  AccountIsMissing();
  SetupToolMakes(kTestKioskUid);
  ops.dropAdminGroups = [] {};
  (void)ServicePass();

  AccountIsMissing();  // Somebody deletes it.
  (void)ServicePass();

  EXPECT_EQ(calls.Count("runSetupTool"), 2);
}

}  // namespace
}  // namespace Tarnvale::KioskService
