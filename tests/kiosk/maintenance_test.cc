#include "kiosk/maintenance.h"

#include <memory>
#include <optional>
#include <vector>

#include "core/state.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/session_watcher.h"
#include "kiosk/unlock.h"
#include "support/other_thread.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kOk[] = R"({"ok":true})";
constexpr char kHeldOffLine[] =
    "<6>maintenance: the kiosk session is held off "
    "until the administrator signs out or the device restarts";
constexpr char kAcceptedLine[] = "<6>maintenance: accepted with the terminal settings unlock";
constexpr char kExpiredLine[] = "<6>terminal settings locked: the unlock expired";

std::string Error(const std::string& code) {
  return R"({"ok":false,"error":")" + code + R"("})";
}

class MaintenanceTest : public ServiceTest {
 protected:
  void SetUp() override {
    IsInService();
    ops.setMaintenanceMarker = [this](bool allowKiosk, bool startKiosk) {
      marks.push_back({allowKiosk, startKiosk});
    };
    ops.endKioskSessions = [](bool wait) { EXPECT_FALSE(wait); };
  }
  std::string Enter(const std::string& unlockToken, const std::string& password,
                    const std::string& session = kTestKioskSession) {
    return Maintenance(unlockToken, password, session, after);
  }
  std::string EnterWithPassword() {
    return Enter("", kTestExitPassword);
  }
  // Maintenance has not begun, and nothing was done towards it.
  void ExpectRefused(const std::string& reply, const std::string& code) {
    EXPECT_EQ(reply, Error(code));
    EXPECT_FALSE(InMaintenance());
    EXPECT_FALSE(StateFile().Has(StateKey::kMaintenanceAt));
    EXPECT_TRUE(marks.empty());
    EXPECT_FALSE(after);
    EXPECT_FALSE(log.Has(kHeldOffLine));
  }

  struct Mark {
    bool allowKiosk = false;
    bool startKiosk = false;
    bool operator==(const Mark&) const = default;
  };
  std::vector<Mark> marks;
};

TEST_F(MaintenanceTest, BeginsWithThePassword) {
  EXPECT_EQ(EnterWithPassword(), kOk);

  EXPECT_TRUE(InMaintenance());
  EXPECT_EQ(StateFile().Get(StateKey::kMaintenance).Dump(), "1");
  EXPECT_EQ(StateFile().Get(StateKey::kMaintenanceAt).Dump(), "1800000000000");
  EXPECT_EQ(marks, (std::vector<Mark>{{.allowKiosk = false, .startKiosk = false}}));
  EXPECT_EQ(log.Text(), std::string(kHeldOffLine) + "\n");
}

TEST_F(MaintenanceTest, EndsTheKioskSessionAfterTheReply) {
  EXPECT_EQ(EnterWithPassword(), kOk);
  ASSERT_TRUE(after);
  EXPECT_EQ(calls.Count("endKioskSessions"), 0);

  after();

  EXPECT_EQ(calls.Count("endKioskSessions"), 1);
}

TEST_F(MaintenanceTest, MakesTheMarkerWhenTheStateStandsAndForgetsTheAdministratorsThen) {
  TrackAdminSession("9");
  ops.setMaintenanceMarker = [this](bool, bool) {
    EXPECT_EQ(StateFile().Get(StateKey::kMaintenance).Dump(), "1");
    EXPECT_EQ(StateFile().Get(StateKey::kMaintenanceAt).Dump(), "1800000000000");
    EXPECT_EQ(log.Text(), "");
    EXPECT_TRUE(ForgetAdminSession("9"));
    TrackAdminSession("10");
  };

  EXPECT_EQ(EnterWithPassword(), kOk);

  EXPECT_FALSE(ForgetAdminSession("10"));
}

TEST_F(MaintenanceTest, HoldsTheLifecycleLockOverTheMarker) {
  std::unique_ptr<OtherThread> other;
  ops.setMaintenanceMarker = [&](bool, bool) {
    other = std::make_unique<OtherThread>([] {
      const MutexLock lock(lifecycleLock);
      return std::string();
    });
    EXPECT_TRUE(Eventually([&] { return other->IsAtRest(); }));
    EXPECT_FALSE(other->IsDone());
  };

  EXPECT_EQ(EnterWithPassword(), kOk);

  EXPECT_EQ(other->Result(), "");
}

TEST_F(MaintenanceTest, EndsTheUnlockAlsoWhenItBeginsWithThePassword) {
  const std::string token = Unlock();

  EXPECT_EQ(EnterWithPassword(), kOk);

  EXPECT_FALSE(UnlockValid(token, kTestKioskSession));
  EXPECT_EQ(log.Text(), std::string(kHeldOffLine) + "\n");
}

TEST_F(MaintenanceTest, BeginsAnewWhileItIsInForce) {
  (void)EnterWithPassword();
  TrackAdminSession("9");
  TestClock::AdvanceMs(5000);

  EXPECT_EQ(EnterWithPassword(), kOk);

  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceAt), TestClock::kStartWallMs + 5000);
  EXPECT_FALSE(ForgetAdminSession("9"));
}

TEST_F(MaintenanceTest, AnswersWhatThePasswordTestSays) {
  ExpectRefused(Enter("", "wrong"), "wrong_password");
  ExpectRefused(Enter("", ""), "wrong_password");
  portal.IsUnreachable(kCheckInPath);
  ExpectRefused(Enter("", kTestExitPassword), "unreachable");
  StateClear(StateKey::kProvisioned);
  ExpectRefused(Enter("", kTestExitPassword), "not_provisioned");
  StateClear(StateKey::kDeviceToken);
  ExpectRefused(Enter("", kTestExitPassword), "not_enrolled");
  log.Clear();
  ExpectRefused(Enter("", kTestExitPassword), "locked");

  EXPECT_EQ(log.Lines(),
            std::vector<std::string>{
                "<4>maintenance: 5 attempts without the right password; refusing for 300 s"});
}

TEST_F(MaintenanceTest, IsBusyWhileAnotherPasswordIsTested) {
  portal.AnswersWith(kCheckInPath, [this](const PortalCall&) {
    portal.IsUnreachable(kCheckInPath);  // for a second one, which must not ask
    OtherThread other([] { return HandleUnlock(kTestExitPassword, kTestKioskSession); });
    EXPECT_EQ(other.Result(), Error("busy"));
    return Http{.ok = true, .status = 500, .body = {}, .error = {}};
  });

  ExpectRefused(EnterWithPassword(), "unreachable");
}

// With the settings unlocked for the kiosk's session.
class WithUnlock : public MaintenanceTest {
 protected:
  void SetUp() override {
    MaintenanceTest::SetUp();
    token = Unlock();
    exchanges = portal.CallsTo(kCheckInPath);
  }
  // How often the portal was asked since then.
  [[nodiscard]] int Exchanges() const {
    return portal.CallsTo(kCheckInPath) - exchanges;
  }
  std::string token;
  int exchanges = 0;
};

TEST_F(WithUnlock, BeginsWithoutAskingThePortal) {
  portal.IsUnreachable(kCheckInPath);

  EXPECT_EQ(Enter(token, ""), kOk);

  EXPECT_TRUE(InMaintenance());
  EXPECT_TRUE(after);
  EXPECT_EQ(Exchanges(), 0);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kAcceptedLine, kHeldOffLine}));
}

TEST_F(WithUnlock, BeginsWithoutLookingAtThePassword) {
  EXPECT_EQ(Enter(token, "wrong"), kOk);

  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceFailures), 0);
}

TEST_F(WithUnlock, BeginsDuringALockOut) {
  StateSetInt(StateKey::kMaintenanceLockedUntil, TestClock::kStartWallMs + 1);

  EXPECT_EQ(Enter(token, ""), kOk);

  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceLockedUntil), TestClock::kStartWallMs + 1);
}

TEST_F(WithUnlock, TakesTheTokenOnce) {
  EXPECT_EQ(Enter(token, ""), kOk);

  EXPECT_EQ(Enter(token, ""), Error("not_unlocked"));
  EXPECT_FALSE(UnlockValid(token, kTestKioskSession));
}

TEST_F(WithUnlock, IsOverBeforeTheMarkerIsMade) {
  ops.setMaintenanceMarker = [this](bool, bool) {
    EXPECT_FALSE(UnlockValid(token, kTestKioskSession));
  };

  EXPECT_EQ(Enter(token, ""), kOk);

  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 1);
}

TEST_F(WithUnlock, IsRefusedWithoutAnEnrolmentWhateverThePassword) {
  StateClear(StateKey::kDeviceToken);
  for (const char* password : {"", kTestExitPassword})
    ExpectRefused(Enter(token, password), "not_enrolled");

  EXPECT_EQ(log.Text(), "");
  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceFailures), 0);
}

TEST_F(WithUnlock, IsRefusedWithoutProvisioningWhateverThePassword) {
  AccountIsMissing();
  for (const char* password : {"", kTestExitPassword})
    ExpectRefused(Enter(token, password), "not_provisioned");

  EXPECT_EQ(log.Text(), "");
  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceFailures), 0);
}

TEST_F(WithUnlock, IsRefusedWithATokenThatIsNotValidAndNoPassword) {
  for (const std::string& wrong : {std::string("short"), std::string(32, '0')})
    ExpectRefused(Enter(wrong, ""), "not_unlocked");
  ExpectRefused(Enter(token, "", "c8"), "not_unlocked");

  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(Exchanges(), 0);
  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceFailures), 0);
  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
}

TEST_F(WithUnlock, BeginsWithThePasswordWhenTheTokenIsNotValid) {
  EXPECT_EQ(Enter(std::string(32, '0'), kTestExitPassword), kOk);

  EXPECT_EQ(Exchanges(), 1);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{kHeldOffLine});
}

TEST_F(WithUnlock, IsRefusedWithATokenThatIsNotValidAndAWrongPassword) {
  ExpectRefused(Enter(std::string(32, '0'), "wrong"), "wrong_password");

  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceFailures), 1);
  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
}

TEST_F(WithUnlock, BeginsWithThePasswordWhenTheUnlockHasExpired) {
  TestClock::AdvanceMs(600'000);

  EXPECT_EQ(Enter(token, kTestExitPassword), kOk);

  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kExpiredLine, kHeldOffLine}));
}

TEST_F(WithUnlock, IsRefusedWithAnExpiredUnlockAlone) {
  TestClock::AdvanceMs(600'000);

  ExpectRefused(Enter(token, ""), "not_unlocked");

  EXPECT_EQ(log.Lines(), std::vector<std::string>{kExpiredLine});
}

class EndMaintenanceTest : public MaintenanceTest {
 protected:
  void SetUp() override {
    MaintenanceTest::SetUp();
    StateSetInt(StateKey::kMaintenance, 1);
    StateSetInt(StateKey::kMaintenanceAt, TestClock::kStartWallMs);
  }
  // Over, as the log tells in all cases.
  void ExpectOver() const {
    EXPECT_TRUE(StateFile().Get(StateKey::kMaintenance).IsNull());
    EXPECT_TRUE(StateFile().Get(StateKey::kMaintenanceAt).IsNull());
    EXPECT_EQ(log.Text(), "<6>maintenance over (the reason): kiosk sign-in restored\n");
  }
};

TEST_F(EndMaintenanceTest, LetsTheKioskStartAgain) {
  EndMaintenance("the reason");

  ExpectOver();
  EXPECT_EQ(marks, (std::vector<Mark>{{.allowKiosk = true, .startKiosk = true}}));
}

TEST_F(EndMaintenanceTest, RestoresTheKioskBetweenTheStateAndTheLog) {
  ops.setMaintenanceMarker = [this](bool, bool) {
    EXPECT_TRUE(StateFile().Get(StateKey::kMaintenanceAt).IsNull());
    EXPECT_EQ(log.Text(), "");
  };

  EndMaintenance("the reason");

  ExpectOver();
}

TEST_F(EndMaintenanceTest, DoesNothingWhenNoneIsInForce) {
  for (const char* value : {"null", "2", "true", "\"1\""}) {
    StateSet(StateKey::kMaintenance, Json::Parse(value).value());
    EndMaintenance("the reason");
    EXPECT_EQ(StateFile().Get(StateKey::kMaintenance).Dump(), value);
  }

  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceAt), TestClock::kStartWallMs);
  EXPECT_TRUE(calls.Names().empty());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(EndMaintenanceTest, LeavesTheMarkerWithoutAnEnrolment) {
  StateClear(StateKey::kDeviceToken);

  EndMaintenance("the reason");

  ExpectOver();
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(EndMaintenanceTest, LeavesTheMarkerWithATokenOfAnotherMachine) {
  StateSetString(StateKey::kDeviceId, "another");

  EndMaintenance("the reason");

  EXPECT_TRUE(marks.empty());
  EXPECT_TRUE(log.Has("<6>maintenance over (the reason): kiosk sign-in restored"));
}

TEST_F(EndMaintenanceTest, LeavesTheMarkerWithoutProvisioning) {
  StateClear(StateKey::kProvisioned);

  EndMaintenance("the reason");

  ExpectOver();
  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(EndMaintenanceTest, LeavesTheMarkerWhenTheAccountIsLost) {
  AccountIsMissing();

  EndMaintenance("the reason");

  ExpectOver();
  EXPECT_TRUE(marks.empty());
}

class WatcherMeetsCommand : public MaintenanceTest {
 protected:
  // Maintenance is in force, and the one administrator's session has just ended.
  void AdministratorSignsOut() {
    StateSetInt(StateKey::kMaintenance, 1);
    SessionInfo administrator = PersonSession();
    administrator.id = "9";
    SessionsAre({administrator});
    TakeSessionBaseline();
    TrackAdminSession("9");
    SessionsAre({});
  }
};

TEST_F(WatcherMeetsCommand, WhoComesWhileItEntersDoesNotWaitForIt) {
  AdministratorSignsOut();
  bool watched = false;
  ops.setMaintenanceMarker = [&](bool allowKiosk, bool) {
    if (allowKiosk) return;
    OtherThread watcher([] {
      SessionWatcherTick();
      return std::string();
    });
    watched = Eventually([&] { return watcher.IsDone(); });
  };

  EXPECT_EQ(EnterWithPassword(), kOk);

  EXPECT_TRUE(watched) << "the command holds the lifecycle lock meanwhile";
  EXPECT_FALSE(InMaintenance());
  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 2);
  EXPECT_EQ(log.Count("<6>maintenance over (the administrator signed out): kiosk sign-in restored"),
            1);
}

TEST_F(WatcherMeetsCommand, AnEntryWhileItEndsIsInForceAndStaysSo) {
  AdministratorSignsOut();
  std::string reply;
  ops.setMaintenanceMarker = [&](bool allowKiosk, bool) {
    if (!allowKiosk) return;
    OtherThread command([this] { return EnterWithPassword(); });
    EXPECT_TRUE(Eventually([&] { return command.IsDone(); })) << "waits for no lock of it";
    reply = command.Result();
  };

  SessionWatcherTick();
  SessionWatcherTick();

  EXPECT_EQ(reply, kOk);
  EXPECT_TRUE(InMaintenance());
  EXPECT_EQ(StateGetInt(StateKey::kMaintenanceAt), TestClock::kStartWallMs);
}

}  // namespace
}  // namespace Tarnvale::KioskService
