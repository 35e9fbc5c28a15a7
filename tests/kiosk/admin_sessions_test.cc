#include "kiosk/admin_sessions.h"

#include <gtest/gtest.h>

#include <optional>

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

}  // namespace
}  // namespace Tarnvale::KioskService
