#include "kiosk/sessions_linux.h"

#include <gtest/gtest.h>

#include "slots/support/private_bus.h"
#include "slots/support/stand_in_logind.h"
#include "slots/support/system_stand_ins.h"
#include "support/log_capture.h"

namespace Tarnvale::KioskService {
namespace {

// What logind 252 tells of a person at the console, shortened to one key that is passed over for
// each type.
constexpr char kPersonSession[] =
    "({'Id': <'3'>, 'User': <(uint32 1000, objectpath '/org/freedesktop/login1/user/_1000')>, "
    "'Name': <'anna'>, 'Timestamp': <uint64 1700000000000000>, 'VTNr': <uint32 2>, "
    "'Seat': <('seat0', objectpath '/org/freedesktop/login1/seat/seat0')>, 'TTY': <'tty2'>, "
    "'Remote': <false>, 'Class': <'user'>, 'Active': <true>, 'State': <'active'>},)";
constexpr char kSessionPath[] = "/org/freedesktop/login1/session/_33";

class SessionsTest : public ::testing::Test {
 protected:
  using Calls = std::vector<std::string>;

  // Reads a session of these properties, "'Id': <'3'>" for one.
  [[nodiscard]] bool Read(const std::string& properties, SessionInfo& info) {
    logind.Answer("GetAll", "(@a{sv} {" + properties + "},)");
    return ReadSession(kSessionPath, &info);
  }

  void AnswerSession(const std::string& path, const std::string& id) {
    logind.Answer(path + " GetAll", "({'Id': <'" + id + "'>},)");
  }

  PrivateBus bus;
  LogCapture log;
  StandInLogind logind{bus};
};

using ReadSessionTest = SessionsTest;
using ListSessionsTest = SessionsTest;
using SessionOfPidTest = SessionsTest;

TEST_F(ReadSessionTest, TakesAllThatTheServiceKnowsOfASession) {
  logind.Answer("GetAll", kPersonSession);
  SessionInfo info;

  ASSERT_TRUE(ReadSession(kSessionPath, &info));

  EXPECT_EQ(info.id, "3");
  EXPECT_EQ(info.uid, 1000U);
  EXPECT_EQ(info.name, "anna");
  EXPECT_FALSE(info.remote);
  EXPECT_TRUE(info.active);
  EXPECT_EQ(info.sessionClass, "user");
  EXPECT_EQ(info.tty, "tty2");
}

TEST_F(ReadSessionTest, AsksForAllPropertiesOfTheSession) {
  logind.Answer("GetAll", kPersonSession);
  SessionInfo info;

  ASSERT_TRUE(ReadSession(kSessionPath, &info));

  EXPECT_EQ(logind.Calls(),
            Calls{std::string(kSessionPath) + " org.freedesktop.DBus.Properties.GetAll"
                                              " ('org.freedesktop.login1.Session',)"});
  EXPECT_EQ(StandIn::DbusTimeoutsMs(), std::vector<int>{10'000});
}

TEST_F(ReadSessionTest, LeavesWhatLogindDoesNotTellAtTheCautiousValue) {
  SessionInfo info;

  ASSERT_TRUE(Read("'Id': <'c1'>", info));

  EXPECT_EQ(info.id, "c1");
  EXPECT_EQ(info.uid, kUnknownUid);
  EXPECT_EQ(info.name, "");
  EXPECT_TRUE(info.remote);
  EXPECT_FALSE(info.active);
  EXPECT_EQ(info.sessionClass, "");
  EXPECT_EQ(info.tty, "");
}

TEST_F(ReadSessionTest, FailsWithoutAnId) {
  const std::string rows[] = {"", "'Name': <'anna'>", "'Id': <''>", "'id': <'3'>"};

  for (const std::string& row : rows) {
    SessionInfo info;
    EXPECT_FALSE(Read(row, info)) << row;
  }
}

TEST_F(ReadSessionTest, PassesOverValuesOfOtherTypes) {
  SessionInfo info;

  ASSERT_TRUE(
      Read("'Id': <'c1'>, 'Name': <5>, 'Remote': <'no'>, 'Active': <uint32 1>, "
           "'Class': <objectpath '/user'>, 'TTY': <true>, 'User': <uint32 0>",
           info));

  EXPECT_EQ(info.uid, kUnknownUid);
  EXPECT_EQ(info.name, "");
  EXPECT_TRUE(info.remote);
  EXPECT_FALSE(info.active);
  EXPECT_EQ(info.sessionClass, "");
  EXPECT_EQ(info.tty, "");
  EXPECT_EQ(log.Text(), "") << "the library complains of a value that is read as another type";
}

TEST_F(ReadSessionTest, TakesNoIdOfAnotherType) {
  SessionInfo info;

  EXPECT_FALSE(Read("'Id': <uint32 3>, 'Name': <'anna'>", info));
}

TEST_F(ReadSessionTest, ReadsTheHighestUid) {
  SessionInfo info;

  ASSERT_TRUE(Read("'Id': <'c1'>, 'User': <(uint32 4294967294, objectpath '/u')>", info));

  EXPECT_EQ(info.uid, 4294967294U);
}

TEST_F(ReadSessionTest, FailsSilentlyWhenLogindDoesNot) {
  SessionInfo info;
  logind.Refuse("GetAll", "no such session");
  EXPECT_FALSE(ReadSession(kSessionPath, &info));
  logind.Answer("GetAll", "('not a dictionary',)");
  EXPECT_FALSE(ReadSession(kSessionPath, &info));

  EXPECT_EQ(info.id, "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ListSessionsTest, ReadsEachSessionInLogindsOrder) {
  // The ids of the list differ on purpose: what is told of a session comes from its properties.
  logind.Answer("ListSessions",
                "([('x', uint32 1, 'n', 'seat0', objectpath '/s/b'), "
                "('y', uint32 2, 'n', '', objectpath '/s/a')],)");
  AnswerSession("/s/b", "9");
  AnswerSession("/s/a", "1");

  const std::vector<SessionInfo> sessions = ListSessions();

  ASSERT_EQ(sessions.size(), 2U);
  EXPECT_EQ(sessions[0].id, "9");
  EXPECT_EQ(sessions[0].uid, kUnknownUid);
  EXPECT_EQ(sessions[1].id, "1");
}

TEST_F(ListSessionsTest, AsksTheManagerAndThenEachSession) {
  logind.Answer("ListSessions", "([('x', uint32 1, 'n', 'seat0', objectpath '/s/b')],)");
  AnswerSession("/s/b", "9");

  (void)ListSessions();

  const std::string getAll =
      " org.freedesktop.DBus.Properties.GetAll ('org.freedesktop.login1.Session',)";
  EXPECT_EQ(logind.Calls(),
            (Calls{"/org/freedesktop/login1 org.freedesktop.login1.Manager.ListSessions ()",
                   "/s/b" + getAll}));
  EXPECT_EQ(StandIn::DbusTimeoutsMs(), (std::vector<int>{10'000, 10'000}));
}

TEST_F(ListSessionsTest, LeavesOutASessionThatCannotBeRead) {
  logind.Answer("ListSessions",
                "([('1', uint32 1, 'n', '', objectpath '/s/a'), "
                "('2', uint32 1, 'n', '', objectpath '/s/b'), "
                "('3', uint32 1, 'n', '', objectpath '/s/c')],)");
  AnswerSession("/s/a", "1");
  logind.Refuse("/s/b GetAll", "gone");
  AnswerSession("/s/c", "3");

  const std::vector<SessionInfo> sessions = ListSessions();

  ASSERT_EQ(sessions.size(), 2U);
  EXPECT_EQ(sessions[0].id, "1");
  EXPECT_EQ(sessions[1].id, "3");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ListSessionsTest, StartsEachSessionFromTheCautiousValues) {
  logind.Answer("ListSessions",
                "([('1', uint32 1, 'n', '', objectpath '/s/a'), "
                "('2', uint32 1, 'n', '', objectpath '/s/b')],)");
  logind.Answer("/s/a GetAll", kPersonSession);
  AnswerSession("/s/b", "2");

  const std::vector<SessionInfo> sessions = ListSessions();

  ASSERT_EQ(sessions.size(), 2U);
  EXPECT_EQ(sessions[1].name, "");
  EXPECT_TRUE(sessions[1].remote);
}

TEST_F(ListSessionsTest, IsEmptyWhenLogindHasNone) {
  logind.Answer("ListSessions", "(@a(susso) [],)");

  EXPECT_TRUE(ListSessions().empty());
}

TEST_F(ListSessionsTest, IsEmptyWhenLogindFails) {
  logind.Refuse("ListSessions", "busy");
  EXPECT_TRUE(ListSessions().empty());
  logind.Answer("ListSessions", "('not a list',)");
  EXPECT_TRUE(ListSessions().empty());

  EXPECT_EQ(log.Text(), "");
}

TEST_F(SessionOfPidTest, ReadsTheSessionThatLogindNames) {
  logind.Answer("GetSessionByPID", "(objectpath '/s/p',)");
  logind.Answer("/s/p GetAll", kPersonSession);
  SessionInfo info;

  ASSERT_TRUE(SessionOfPid(4321, &info));

  EXPECT_EQ(info.id, "3");
  EXPECT_EQ(info.name, "anna");
  EXPECT_EQ(logind.Calls().at(0),
            "/org/freedesktop/login1 org.freedesktop.login1.Manager.GetSessionByPID"
            " (uint32 4321,)");
  EXPECT_EQ(StandIn::DbusTimeoutsMs(), (std::vector<int>{10'000, 10'000}));
}

TEST_F(SessionOfPidTest, FailsForAProcessOutsideAnySession) {
  logind.Refuse("GetSessionByPID", "PID 4321 does not belong to any known session");
  SessionInfo info;

  EXPECT_FALSE(SessionOfPid(4321, &info));
  EXPECT_EQ(info.id, "");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(SessionOfPidTest, FailsWhenItsSessionCannotBeRead) {
  logind.Answer("GetSessionByPID", "(objectpath '/s/p',)");
  logind.Refuse("/s/p GetAll", "gone");
  SessionInfo info;

  EXPECT_FALSE(SessionOfPid(4321, &info));
}

TEST_F(SessionOfPidTest, FailsForAReplyThatIsNoObject) {
  logind.Answer("GetSessionByPID", "('/s/p',)");
  SessionInfo info;

  EXPECT_FALSE(SessionOfPid(4321, &info));
}

TEST(SessionsWithoutBus, AreNone) {
  const PrivateBus neverStarted;
  const LogCapture log;
  SessionInfo info;

  EXPECT_TRUE(ListSessions().empty());
  EXPECT_FALSE(SessionOfPid(1, &info));
  EXPECT_FALSE(ReadSession(kSessionPath, &info));
}

}  // namespace
}  // namespace Tarnvale::KioskService
