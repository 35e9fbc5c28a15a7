#include "kiosk/admin_sessions.h"

#include <optional>

#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::uint32_t kKioskUid = 1501;

SessionInfo AdministratorSession() {
  return {
      .id = "3", .uid = 1000, .name = "alex", .remote = false, .sessionClass = "user", .tty = {}};
}

TEST(IsAdministratorSession, HoldsForALocalSessionOfANamedUser) {
  EXPECT_TRUE(IsAdministratorSession(AdministratorSession(), kKioskUid));
}

TEST(IsAdministratorSession, HoldsForRoot) {
  SessionInfo session = AdministratorSession();
  session.uid = 0;

  EXPECT_TRUE(IsAdministratorSession(session, kKioskUid));
}

TEST(IsAdministratorSession, FailsForARemoteSession) {
  SessionInfo session = AdministratorSession();
  session.remote = true;

  EXPECT_FALSE(IsAdministratorSession(session, kKioskUid));
  EXPECT_FALSE(IsAdministratorSession(session, std::nullopt));
}

TEST(IsAdministratorSession, FailsWithoutAName) {
  SessionInfo session = AdministratorSession();
  session.name.clear();

  EXPECT_FALSE(IsAdministratorSession(session, kKioskUid));
}

TEST(IsAdministratorSession, FailsForEveryOtherClass) {
  for (const char* other : {"greeter", "user-early", "User", "", "manager", "background"}) {
    SessionInfo session = AdministratorSession();
    session.sessionClass = other;
    EXPECT_FALSE(IsAdministratorSession(session, kKioskUid)) << other;
  }
}

TEST(IsAdministratorSession, FailsForTheKioskAccountWhileItIsKnown) {
  SessionInfo session = AdministratorSession();
  session.uid = kKioskUid;

  EXPECT_FALSE(IsAdministratorSession(session, kKioskUid));
  EXPECT_TRUE(IsAdministratorSession(session, std::nullopt));
}

TEST(IsAdministratorSession, DoesNotLookAtActivityAndTerminal) {
  SessionInfo session = AdministratorSession();
  session.active = true;
  session.tty = "tty7";

  EXPECT_TRUE(IsAdministratorSession(session, kKioskUid));
}

TEST(IsAdministratorSession, FailsForASessionOfWhichNothingIsKnown) {
  EXPECT_FALSE(IsAdministratorSession(SessionInfo(), std::nullopt));
}

TEST(ForgetAdminSession, TellsOnceThatTheSessionWasTracked) {
  TrackAdminSession("3");
  TrackAdminSession("3");
  TrackAdminSession("4");

  EXPECT_TRUE(ForgetAdminSession("3"));
  EXPECT_FALSE(ForgetAdminSession("3"));
  EXPECT_TRUE(ForgetAdminSession("4"));
}

TEST(ForgetAdminSession, KnowsNoOtherSession) {
  TrackAdminSession("3");

  EXPECT_FALSE(ForgetAdminSession("33"));
  EXPECT_FALSE(ForgetAdminSession(""));
}

TEST(ForgetAllAdminSessions, ForgetsEachOfThem) {
  TrackAdminSession("3");
  TrackAdminSession("4");

  ForgetAllAdminSessions();

  EXPECT_FALSE(ForgetAdminSession("3"));
  EXPECT_FALSE(ForgetAdminSession("4"));
}

class AdoptAdminSessionsTest : public ServiceTest {
 protected:
  static SessionInfo SessionOf(const std::string& id, std::uint32_t uid) {
    SessionInfo session = AdministratorSession();
    session.id = id;
    session.uid = uid;
    return session;
  }
};

TEST_F(AdoptAdminSessionsTest, TracksTheAdministratorsWhoAreThere) {
  Provision();
  SessionInfo remote = SessionOf("20", 1000);
  remote.remote = true;
  SessionsAre({SessionOf("3", 1000), KioskSession(), remote, SessionOf("9", 0)});

  AdoptAdminSessions();

  EXPECT_TRUE(ForgetAdminSession("3"));
  EXPECT_TRUE(ForgetAdminSession("9"));
  EXPECT_FALSE(ForgetAdminSession(kTestKioskSession));
  EXPECT_FALSE(ForgetAdminSession("20"));
}

TEST_F(AdoptAdminSessionsTest, TracksTheKiosksSessionTooOnceItsAccountIsLost) {
  AccountIsMissing();
  SessionsAre({KioskSession()});

  AdoptAdminSessions();

  EXPECT_TRUE(ForgetAdminSession(kTestKioskSession));
}

TEST_F(AdoptAdminSessionsTest, AddsToThoseThatAreTracked) {
  Provision();
  SessionsAre({SessionOf("3", 1000)});
  TrackAdminSession("8");

  AdoptAdminSessions();

  EXPECT_TRUE(ForgetAdminSession("3"));
  EXPECT_TRUE(ForgetAdminSession("8"));
}

TEST_F(AdoptAdminSessionsTest, AsksForTheAccountFirstAndLogindOnce) {
  Provision();
  SessionsAre({});

  AdoptAdminSessions();

  const std::vector<std::string> expected = {"lookupKioskAccount", "listSessions"};
  EXPECT_EQ(calls.Names(), expected);
}

}  // namespace
}  // namespace Tarnvale::KioskService
