#include "kiosk/session_watcher.h"

#include "core/clock.h"
#include "core/state.h"
#include "core/stop.h"
#include "kiosk/admin_sessions.h"
#include "kiosk/presence.h"
#include "support/service_test.h"
#include "support/test_clock.h"

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

class DuringMaintenance : public SessionWatcherTickTest {
 protected:
  void SetUp() override {
    SessionWatcherTickTest::SetUp();
    StateSetInt(StateKey::kMaintenance, 1);
  }
};

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
