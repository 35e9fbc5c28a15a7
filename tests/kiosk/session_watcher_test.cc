#include "kiosk/session_watcher.h"

#include <filesystem>

#include "core/clock.h"
#include "core/state.h"
#include "core/stop.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/presence.h"
#include "kiosk/unlock.h"
#include "support/other_thread.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kAdminSession[] = "9";

class SessionWatcherTickTest : public ServiceTest {
 protected:
  void SetUp() override {
    Provision();
    SessionsAre({PersonSession(), KioskSession()});
    TakeSessionBaseline();
    calls.Clear();
  }
  static SessionInfo AdminSession() {
    return {.id = kAdminSession,
            .uid = kTestPersonUid,
            .name = "alex",
            .remote = false,
            .sessionClass = "user",
            .tty = {}};
  }
  // The sessions of the baseline with this one, and a look at them.
  void SignsIn(const SessionInfo& session) {
    SessionsAre({PersonSession(), KioskSession(), session});
    SessionWatcherTick();
  }
  void ReportLive() {
    Json request = Json::Object();
    request.Set("signedIn", true);
    request.Set("live", true);
    EXPECT_EQ(HandleSessionReport(request, kTestKioskSession), R"({"ok":true})");
    TestClock::AdvanceMs(2000);
  }
  [[nodiscard]] std::string PresenceFile() const {
    return ReadText(config.runDir + "/kiosk-presence.json");
  }
};

TEST_F(SessionWatcherTickTest, CostsOneLookAtTheAccountAndOneAtTheSessions) {
  SessionWatcherTick();

  const std::vector<std::string> expected = {"lookupKioskAccount", "listSessions"};
  EXPECT_EQ(calls.Names(), expected);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SessionWatcherTickTest, ClearsTheReportWhenItsSessionIsGone) {
  ReportLive();
  SessionsAre({PersonSession()});

  SessionWatcherTick();

  EXPECT_EQ(PresenceFile(), R"({"signedIn":false,"live":false,"at":1800000002000})");
  SessionsAre({PersonSession(), KioskSession()});
  EXPECT_EQ(RestartBlocker(), "");
}

TEST_F(SessionWatcherTickTest, LeavesTheReportWhileItsSessionLasts) {
  ReportLive();
  SessionsAre({KioskSession()});

  SessionWatcherTick();

  EXPECT_EQ(PresenceFile(), R"({"signedIn":true,"live":true,"at":1800000000000})");
  EXPECT_EQ(RestartBlocker(), "a stream session is live");
}

TEST_F(SessionWatcherTickTest, TakesAnEmptyListForTheEndOfAllSessions) {
  ReportLive();
  SessionsAre({});

  SessionWatcherTick();

  EXPECT_EQ(PresenceFile(), R"({"signedIn":false,"live":false,"at":1800000002000})");
}

TEST_F(SessionWatcherTickTest, ClearsTheReportOnce) {
  ReportLive();
  SessionsAre({});
  SessionWatcherTick();
  TestClock::AdvanceMs(2000);

  SessionWatcherTick();

  EXPECT_EQ(PresenceFile(), R"({"signedIn":false,"live":false,"at":1800000002000})");
}

TEST_F(SessionWatcherTickTest, ClearsTheReportOfASessionThatCameAndWentAfterTheStart) {
  SessionsAre({});
  SessionWatcherTick();
  SessionsAre({KioskSession()});
  SessionWatcherTick();
  ReportLive();
  SessionsAre({});

  SessionWatcherTick();

  EXPECT_EQ(PresenceFile(), R"({"signedIn":false,"live":false,"at":1800000002000})");
}

TEST_F(SessionWatcherTickTest, LeavesTheReportOfASessionThatItNeverSaw) {
  SessionsAre({});
  TakeSessionBaseline();
  ReportLive();

  SessionWatcherTick();

  EXPECT_EQ(PresenceFile(), R"({"signedIn":true,"live":true,"at":1800000000000})");
}

constexpr char kSignedOutLine[] = "<6>terminal settings locked: session c7 signed out";

TEST_F(SessionWatcherTickTest, EndsTheUnlockWithItsSession) {
  const std::string token = Unlock();
  SessionsAre({PersonSession()});

  SessionWatcherTick();

  EXPECT_FALSE(UnlockValid(token, kTestKioskSession));
  EXPECT_EQ(log.Text(), std::string(kSignedOutLine) + "\n");
}

TEST_F(SessionWatcherTickTest, LeavesTheUnlockWhileItsSessionLasts) {
  const std::string token = Unlock();
  SessionsAre({KioskSession()});

  SessionWatcherTick();

  EXPECT_TRUE(UnlockValid(token, kTestKioskSession));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SessionWatcherTickTest, EndsTheUnlockWhenLogindListsNothing) {
  const std::string token = Unlock();
  SessionsAre({});
  SessionWatcherTick();
  SessionsAre({PersonSession(), KioskSession()});

  SessionWatcherTick();

  EXPECT_FALSE(UnlockValid(token, kTestKioskSession));
  EXPECT_EQ(log.Text(), std::string(kSignedOutLine) + "\n");
}

TEST_F(SessionWatcherTickTest, EndsTheUnlockBeforeItClearsTheReport) {
  (void)Unlock();
  ReportLive();
  log.Clear();
  std::filesystem::remove_all(config.runDir);  // so that the clearing tells of itself
  SessionsAre({PersonSession()});

  SessionWatcherTick();

  ASSERT_EQ(log.Lines().size(), 2U) << log.Text();
  EXPECT_EQ(log.Lines()[0], kSignedOutLine);
  EXPECT_TRUE(log.Lines()[1].starts_with("<3>")) << log.Lines()[1];
}

class DuringMaintenance : public SessionWatcherTickTest {
 protected:
  void SetUp() override {
    SessionWatcherTickTest::SetUp();
    Enrol();
    StateSetInt(StateKey::kMaintenance, 1);
    ops.setMaintenanceMarker = [](bool allowKiosk, bool startKiosk) {
      EXPECT_TRUE(allowKiosk);
      EXPECT_TRUE(startKiosk);
    };
  }
  void SignsOut() {
    SessionsAre({PersonSession(), KioskSession()});
    SessionWatcherTick();
  }
};

constexpr char kOverLine[] =
    "<6>maintenance over (the administrator signed out): kiosk sign-in restored";

TEST_F(DuringMaintenance, TheEndOfAnAdministratorsSessionEndsIt) {
  SignsIn(AdminSession());
  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);

  SignsOut();

  EXPECT_TRUE(StateFile().Get(StateKey::kMaintenance).IsNull());
  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 1);
  EXPECT_EQ(log.Text(), std::string(kOverLine) + "\n");
}

TEST_F(DuringMaintenance, TheEndOfOneOfTwoAdministratorsSessionsEndsItOnce) {
  SessionInfo second = AdminSession();
  second.id = "10";
  SignsIn(AdminSession());
  SessionsAre({PersonSession(), KioskSession(), AdminSession(), second});
  SessionWatcherTick();

  SignsIn(second);
  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 0);
  SignsOut();

  EXPECT_EQ(log.Count(kOverLine), 1);
}

TEST_F(DuringMaintenance, TheEndOfBothInOneLookEndsItOnce) {
  SessionInfo second = AdminSession();
  second.id = "10";
  SessionsAre({AdminSession(), second});
  SessionWatcherTick();

  SignsOut();

  EXPECT_EQ(log.Count(kOverLine), 1);
  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 1);
  EXPECT_TRUE(ForgetAdminSession(kAdminSession)) << "\"10\" came first, and ended it";
}

TEST_F(DuringMaintenance, TheEndOfASessionOfTheBaselineEndsNothing) {
  SessionsAre({});

  SessionWatcherTick();

  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(DuringMaintenance, TheEndOfARemoteSessionEndsNothing) {
  SessionInfo session = AdminSession();
  session.remote = true;
  SignsIn(session);

  SignsOut();

  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(DuringMaintenance, TheEndOfTheKiosksOwnSessionEndsNothing) {
  SessionInfo session = KioskSession();
  session.id = "c8";
  SignsIn(session);

  SignsOut();

  EXPECT_EQ(StateGetInt(StateKey::kMaintenance), 1);
}

TEST_F(DuringMaintenance, AnEmptyListEndsItWhileAnAdministratorIsTracked) {
  SignsIn(AdminSession());
  SessionsAre({});

  SessionWatcherTick();

  EXPECT_EQ(log.Text(), std::string(kOverLine) + "\n");
}

TEST_F(DuringMaintenance, TheUnlockAndTheReportGoBeforeMaintenanceEnds) {
  const std::string token = Unlock();
  ReportLive();
  SignsIn(AdminSession());
  TrackAdminSession(kTestKioskSession);
  log.Clear();
  ops.setMaintenanceMarker = [this](bool, bool) {
    EXPECT_TRUE(log.Has(kSignedOutLine));
    EXPECT_TRUE(PresenceFile().starts_with(R"({"signedIn":false,"live":false,)"));
  };
  SessionsAre({PersonSession(), AdminSession()});

  SessionWatcherTick();

  EXPECT_FALSE(UnlockValid(token, kTestKioskSession));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kSignedOutLine, kOverLine}));
}

TEST_F(DuringMaintenance, TheWatcherHoldsNoLockWhenItEnds) {
  SignsIn(AdminSession());
  ops.setMaintenanceMarker = [](bool, bool) {
    EXPECT_TRUE(
        AreFree({&lifecycleLock, &adminSessionsLock, &unlockLock, &presenceLock, &stateLock}));
  };

  SignsOut();

  EXPECT_EQ(calls.Count("setMaintenanceMarker"), 1);
}

TEST_F(DuringMaintenance, ANewAdministratorsSessionIsTracked) {
  SignsIn(AdminSession());

  EXPECT_TRUE(ForgetAdminSession(kAdminSession));
}

TEST_F(DuringMaintenance, AllNewAdministratorsSessionsAreTracked) {
  SessionInfo second = AdminSession();
  second.id = "10";
  SessionsAre({second, KioskSession(), AdminSession()});

  SessionWatcherTick();

  EXPECT_TRUE(ForgetAdminSession("10"));
  EXPECT_TRUE(ForgetAdminSession(kAdminSession));
}

TEST_F(DuringMaintenance, ASessionIsNewOnce) {
  SignsIn(AdminSession());
  ASSERT_TRUE(ForgetAdminSession(kAdminSession));

  SessionWatcherTick();

  EXPECT_FALSE(ForgetAdminSession(kAdminSession));
}

TEST_F(DuringMaintenance, SessionsOfTheBaselineAreNotTracked) {
  SessionWatcherTick();

  EXPECT_FALSE(ForgetAdminSession(kTestPersonSession));
  EXPECT_FALSE(ForgetAdminSession(kTestKioskSession));
}

TEST_F(DuringMaintenance, ARemoteSessionIsNotTracked) {
  SessionInfo session = AdminSession();
  session.remote = true;

  SignsIn(session);

  EXPECT_FALSE(ForgetAdminSession(kAdminSession));
}

TEST_F(DuringMaintenance, ANewSessionOfTheKioskAccountIsNotTracked) {
  SessionInfo session = AdminSession();
  session.uid = kTestKioskUid;

  SignsIn(session);

  EXPECT_FALSE(ForgetAdminSession(kAdminSession));
}

TEST_F(DuringMaintenance, AnySessionIsTrackedOnceTheKioskAccountIsLost) {
  AccountIsMissing();
  SessionInfo session = AdminSession();
  session.uid = kTestKioskUid;

  SignsIn(session);

  EXPECT_TRUE(ForgetAdminSession(kAdminSession));
}

TEST_F(DuringMaintenance, GreetersAndNamelessSessionsAreNotTracked) {
  SessionInfo greeter = AdminSession();
  greeter.sessionClass = "greeter";
  SessionInfo nameless = AdminSession();
  nameless.id = "10";
  nameless.name.clear();
  SessionsAre({greeter, nameless});

  SessionWatcherTick();

  EXPECT_FALSE(ForgetAdminSession(kAdminSession));
  EXPECT_FALSE(ForgetAdminSession("10"));
}

TEST_F(DuringMaintenance, ASessionThatReappearsIsNewAgain) {
  SessionsAre({});
  SessionWatcherTick();
  SessionsAre({PersonSession()});

  SessionWatcherTick();

  EXPECT_TRUE(ForgetAdminSession(kTestPersonSession));
}

TEST_F(SessionWatcherTickTest, TracksNobodyOutsideMaintenance) {
  for (const char* value : {"null", "2", "true", "\"1\""}) {
    StateSet(StateKey::kMaintenance, Json::Parse(value).value());
    SessionsAre({});
    SessionWatcherTick();
    SignsIn(AdminSession());
    EXPECT_FALSE(ForgetAdminSession(kAdminSession)) << value;
  }
}

TEST_F(SessionWatcherTickTest, DoesNotTrackAnAdministratorWhoWasThereBeforeMaintenance) {
  SignsIn(AdminSession());
  StateSetInt(StateKey::kMaintenance, 1);

  SessionWatcherTick();

  EXPECT_FALSE(ForgetAdminSession(kAdminSession));
}

TEST_F(SessionWatcherTickTest, ForgetsATrackedSessionThatIsGoneDuringMaintenanceAlone) {
  StateSetInt(StateKey::kMaintenance, 1);
  SignsIn(AdminSession());
  StateClear(StateKey::kMaintenance);
  SessionsAre({});
  SessionWatcherTick();

  EXPECT_TRUE(ForgetAdminSession(kAdminSession)) << "outside maintenance nobody asks for it";
  EXPECT_EQ(log.Text(), "");
}

class SessionWatcherTest : public SessionWatcherTickTest {
 protected:
  // Each look is noted with its moment since the start and takes `lookMs`; the last one stops.
  void LookThreeTimes(std::int64_t lookMs) {
    ops.listSessions = [this, lookMs] {
      looksAtMs.push_back(SteadyNowMs() - TestClock::kStartSteadyMs);
      TestClock::AdvanceMs(lookMs);
      if (looksAtMs.size() == 3) RequestStop();
      return std::vector<SessionInfo>();
    };
    SessionWatcher();
  }

  std::vector<std::int64_t> looksAtMs;
};

TEST_F(SessionWatcherTest, LooksEveryTwoSecondsFromTwoSecondsOn) {
  LookThreeTimes(0);

  const std::vector<std::int64_t> expected = {2000, 4000, 6000};
  EXPECT_EQ(looksAtMs, expected);
}

TEST_F(SessionWatcherTest, DoesNotCountTheTimeOfTheLookItself) {
  LookThreeTimes(500);

  const std::vector<std::int64_t> expected = {2000, 4500, 7000};
  EXPECT_EQ(looksAtMs, expected);
}

TEST_F(SessionWatcherTest, LooksNoMoreOnceAStopIsRequested) {
  RequestStop();

  SessionWatcher();

  EXPECT_EQ(calls.Count("listSessions"), 0);
}

}  // namespace
}  // namespace Tarnvale::KioskService
