#include "kiosk/exit_password.h"

#include <atomic>
#include <memory>
#include <ostream>
#include <thread>

#include "core/state.h"
#include "support/other_thread.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kWrong[] = "Not-The-Password";
constexpr char kLockOutLine[] =
    "<4>maintenance: 5 attempts without the right password; refusing for 300 s";
constexpr char kEnrolledReply[] = R"({"status":"enrolled","exitPassword":"Exit-Password-7"})";

class CheckExitPasswordTest : public ServiceTest {
 protected:
  void SetUp() override {
    Enrol();
    Provision();
    ExitPasswordIs(kTestExitPassword);
    KeepSecret(kWrong);
  }
  // This many attempts, each of which ends so.
  static void Attempt(int times, const std::string& outcome, const std::string& password = kWrong) {
    for (int i = 1; i <= times; ++i)
      EXPECT_EQ(CheckExitPassword(password), outcome) << "attempt " << i;
  }
  static std::int64_t Failures() {
    return StateGetInt(StateKey::kMaintenanceFailures);
  }
  static std::int64_t LockedUntilMs() {
    return StateGetInt(StateKey::kMaintenanceLockedUntil);
  }
  // Nothing is counted and no lock-out is known, not even as a number.
  void ExpectCleared() const {
    EXPECT_TRUE(StateFile().Get(StateKey::kMaintenanceFailures).IsNull());
    EXPECT_TRUE(StateFile().Get(StateKey::kMaintenanceLockedUntil).IsNull());
  }
  // What a removal does on the platform.
  void RemovalWorks() {
    ops.runSetupTool = [](bool, std::string*) { return true; };
    ops.removePower = [] {};
    ops.endKioskSessions = [](bool) {};
    ops.deleteKioskAccount = [] { return true; };
    SessionsAre({});
  }
};

struct MatchRow {
  const char* name;
  std::string entered;
  std::string expected;
  bool matches;
};

void PrintTo(const MatchRow& row, std::ostream* out) {
  *out << row.name;
}

class Matching : public CheckExitPasswordTest, public ::testing::WithParamInterface<MatchRow> {};

TEST_P(Matching, IsDecidedByTheTrimmedBytesWithoutTheirCase) {
  ExitPasswordIs(GetParam().expected);

  EXPECT_EQ(CheckExitPassword(GetParam().entered), GetParam().matches ? "" : "wrong_password");

  EXPECT_EQ(Failures(), GetParam().matches ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    CheckExitPassword, Matching,
    ::testing::Values(MatchRow{"TheSame", "Exit-Pass 7", "Exit-Pass 7", true},
                      MatchRow{"OtherCase", "eXIT-pASS 7", "Exit-Pass 7", true},
                      MatchRow{"SpaceAroundTheEntered", " \t\r\nExit-Pass 7 \v\f", "Exit-Pass 7",
                               true},
                      MatchRow{"SpaceAroundTheExpected", "Exit-Pass 7", "\n Exit-Pass 7 \t", true},
                      MatchRow{"OneByte", "X", "x", true},
                      MatchRow{"BytesAbove127", "\xC3\xA4-pass", "\xC3\xA4-PASS", true},
                      MatchRow{"ALetterLess", "Exit-Pass ", "Exit-Pass 7", false},
                      MatchRow{"TheLastLetterMissing", "Exit-Pas", "Exit-Pass", false},
                      MatchRow{"ALetterMore", "Exit-Passs", "Exit-Pass", false},
                      MatchRow{"OtherFirstLetter", "exit-pass", "axit-pass", false},
                      MatchRow{"OtherLastLetter", "exit-pass", "exit-pasd", false},
                      MatchRow{"SpaceWithin", "Exit- Pass", "Exit-Pass", false},
                      MatchRow{"TheBitOfCaseInASign", "exit@pass", "exit`pass", false},
                      MatchRow{"CaseAbove127", "\xC3\x84-pass", "\xC3\xA4-pass", false},
                      MatchRow{"NulBehindIt", std::string("exit-pass\0", 10), "exit-pass", false},
                      MatchRow{"EmptyEntered", "", "exit-pass", false},
                      MatchRow{"BlankEntered", " \n", "exit-pass", false},
                      MatchRow{"EmptyExpected", "exit-pass", "", false},
                      MatchRow{"BothEmpty", "", "", false}, MatchRow{"BothBlank", " ", " ", false}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(CheckExitPasswordTest, MatchesNothingWhenThePortalSendsNoPassword) {
  for (const char* reply :
       {R"({"status":"enrolled"})", R"({"status":"enrolled","exitPassword":null})"}) {
    portal.Answers(kCheckInPath, 200, reply);
    EXPECT_EQ(CheckExitPassword(""), "wrong_password") << reply;
  }
}

TEST_F(CheckExitPasswordTest, AsksThePortalOnceWithTheTokenInForce) {
  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");

  ASSERT_EQ(portal.Calls().size(), 1U);
  EXPECT_EQ(portal.Calls()[0].url, "https://portal.test/api/kiosk/check-in");
  EXPECT_EQ(portal.Calls()[0].token, kTestToken);
}

TEST_F(CheckExitPasswordTest, AsksThePortalAnewForEachTest) {
  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");
  ExitPasswordIs("Changed-Meanwhile");

  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "wrong_password");
  EXPECT_EQ(CheckExitPassword("changed-meanwhile"), "");
}

TEST_F(CheckExitPasswordTest, LogsNothingOfItsOwn) {
  (void)CheckExitPassword(kTestExitPassword);
  log.Clear();

  (void)CheckExitPassword(kWrong);
  (void)CheckExitPassword(kTestExitPassword);

  EXPECT_EQ(log.Text(), "");
}

TEST_F(CheckExitPasswordTest, CountsTheAttemptBeforeAnythingIsTested) {
  ops.lookupKioskAccount = [this, lookUp = ops.lookupKioskAccount](unsigned* uid, std::string* c) {
    EXPECT_EQ(StateFile().Get(StateKey::kMaintenanceFailures).Dump(), "1");
    return lookUp(uid, c);
  };

  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");

  EXPECT_GT(calls.Count("lookupKioskAccount"), 0);
}

TEST_F(CheckExitPasswordTest, ClearsTheCountOnAMatch) {
  Attempt(4, "wrong_password");
  ASSERT_EQ(Failures(), 4);

  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");

  ExpectCleared();
  Attempt(4, "wrong_password");
  EXPECT_EQ(LockedUntilMs(), 0);
}

TEST_F(CheckExitPasswordTest, ClearsALockOutThatIsOver) {
  StateSetInt(StateKey::kMaintenanceLockedUntil, TestClock::kStartWallMs);

  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");

  ExpectCleared();
}

// What ends a test before the passwords are compared.
class NotCompared : public CheckExitPasswordTest {
 protected:
  void Expect(const std::string& outcome, int exchanges) {
    EXPECT_EQ(CheckExitPassword(kTestExitPassword), outcome);
    EXPECT_EQ(portal.CallsTo(kCheckInPath), exchanges);
    EXPECT_EQ(Failures(), 1) << "counted";
    EXPECT_EQ(LockedUntilMs(), 0);
  }
};

TEST_F(NotCompared, IsATerminalWithoutAToken) {
  StateClear(StateKey::kDeviceToken);

  Expect("not_enrolled", 0);

  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(NotCompared, IsATokenOfAnotherMachine) {
  WriteText(config.machineIdPath, "fedcba9876543210fedcba9876543210\n");

  Expect("not_enrolled", 0);
}

TEST_F(NotCompared, IsATerminalThatIsNotProvisioned) {
  StateClear(StateKey::kProvisioned);

  Expect("not_provisioned", 0);
}

TEST_F(NotCompared, IsAnAccountThatIsLost) {
  AccountIsMissing();

  Expect("not_provisioned", 0);
}

TEST_F(NotCompared, IsAnAccountThatCannotBeLookedUp) {
  AccountLookupFails();

  Expect("not_provisioned", 0);
}

TEST_F(NotCompared, IsARevokedTerminal) {
  RemovalWorks();
  portal.Answers(kCheckInPath, 401, R"({"status":"revoked"})");

  Expect("not_enrolled", 1);
}

TEST_F(NotCompared, IsARevocationOfATokenThatWasReplacedMeanwhile) {
  portal.AnswersWith(kCheckInPath, [](const PortalCall&) {
    StateSetString(StateKey::kDeviceToken, "paired-anew");
    return Http{.ok = true, .status = 401, .body = R"({"status":"revoked"})", .error = {}};
  });

  Expect("not_enrolled", 1);
}

TEST_F(NotCompared, IsATerminalUnknownForADay) {
  RemovalWorks();
  StateSetInt(StateKey::kUnknownSince, TestClock::kStartWallMs - 24 * 3'600'000);
  portal.Answers(kCheckInPath, 401, R"({"status":"unknown"})");

  Expect("not_enrolled", 1);
}

TEST_F(NotCompared, IsATerminalUnknownForLess) {
  portal.Answers(kCheckInPath, 401, R"({"status":"unknown"})");

  Expect("unreachable", 1);
}

TEST_F(NotCompared, IsAPortalThatCannotBeReached) {
  portal.IsUnreachable(kCheckInPath);

  Expect("unreachable", 1);
}

struct UnusableRow {
  const char* name;
  int status;
  const char* body;
};

void PrintTo(const UnusableRow& row, std::ostream* out) {
  *out << row.name;
}

class Unusable : public NotCompared, public ::testing::WithParamInterface<UnusableRow> {};

TEST_P(Unusable, IsAnAnswerOfNoUse) {
  portal.Answers(kCheckInPath, GetParam().status, GetParam().body);

  Expect("unreachable", 1);
}

INSTANTIATE_TEST_SUITE_P(CheckExitPassword, Unusable,
                         ::testing::Values(UnusableRow{"ServerError", 500, kEnrolledReply},
                                           UnusableRow{"BareUnauthorized", 401, "{}"},
                                           UnusableRow{"NoStatus", 200,
                                                       R"({"exitPassword":"Exit-Password-7"})"},
                                           UnusableRow{"NoJson", 200, "<html>"}),
                         [](const auto& row) { return std::string(row.param.name); });

class LockOut : public CheckExitPasswordTest {
 protected:
  void ExpectLockOutFrom(std::int64_t wallMs) {
    EXPECT_EQ(LockedUntilMs(), wallMs + 300'000);
    EXPECT_EQ(StateFile().Get(StateKey::kMaintenanceFailures).Dump(), "0");
    EXPECT_EQ(log.Count(kLockOutLine), 1);
  }
};

TEST_F(LockOut, BeginsWithTheFifthWrongPasswordWhichStillAnswersSo) {
  Attempt(4, "wrong_password");
  EXPECT_FALSE(log.Has(kLockOutLine));
  EXPECT_EQ(LockedUntilMs(), 0);

  Attempt(1, "wrong_password");

  ExpectLockOutFrom(TestClock::kStartWallMs);
  Attempt(1, "locked");
}

TEST_F(LockOut, RefusesTheRightPasswordFor300SecondsWithoutAskingThePortal) {
  Attempt(5, "wrong_password");

  TestClock::AdvanceMs(299'999);
  Attempt(1, "locked", kTestExitPassword);
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 5);
  TestClock::AdvanceMs(1);
  Attempt(1, "", kTestExitPassword);
  ExpectCleared();
}

TEST_F(LockOut, LeavesFiveNewAttempts) {
  Attempt(5, "wrong_password");
  TestClock::AdvanceMs(300'000);

  Attempt(5, "wrong_password");

  Attempt(1, "locked");
  EXPECT_EQ(LockedUntilMs(), TestClock::kStartWallMs + 600'000);
  EXPECT_EQ(log.Count(kLockOutLine), 2);
}

TEST_F(LockOut, RunsFromTheFifthAttemptAndIsNotLengthenedByMore) {
  Attempt(5, "wrong_password");
  TestClock::AdvanceMs(1000);

  Attempt(20, "locked");

  ExpectLockOutFrom(TestClock::kStartWallMs);
}

TEST_F(LockOut, OutlivesARestartOfTheService) {
  Attempt(5, "wrong_password");

  LoadState();

  Attempt(1, "locked", kTestExitPassword);
}

TEST_F(LockOut, FollowsTheWallClock) {
  Attempt(5, "wrong_password");

  TestClock::SetWallMs(TestClock::kStartWallMs - 86'400'000);
  Attempt(1, "locked", kTestExitPassword);
  TestClock::SetWallMs(TestClock::kStartWallMs + 300'000);
  Attempt(1, "", kTestExitPassword);
}

TEST_F(LockOut, ComesBeforeTheTestThatRuns) {
  portal.AnswersWith(kCheckInPath, [this](const PortalCall&) {
    portal.IsUnreachable(kCheckInPath);  // for a second one, which must not ask
    StateSetInt(StateKey::kMaintenanceLockedUntil, TestClock::kStartWallMs + 1);
    OtherThread other([] { return CheckExitPassword(kTestExitPassword); });
    EXPECT_EQ(other.Result(), "locked");
    return Http{.ok = true, .status = 200, .body = kEnrolledReply, .error = {}};
  });

  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");

  ExpectCleared();
}

TEST_F(LockOut, IsSetOffByTheAttemptAfterFiveThatNeverCameToAComparison) {
  portal.IsUnreachable(kCheckInPath);
  Attempt(5, "unreachable");
  EXPECT_EQ(Failures(), 5);
  EXPECT_FALSE(log.Has(kLockOutLine));
  ExitPasswordIs(kTestExitPassword);

  Attempt(1, "locked", kTestExitPassword);

  ExpectLockOutFrom(TestClock::kStartWallMs);
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 5);
}

TEST_F(LockOut, CountsAttemptsOfEveryKind) {
  StateClear(StateKey::kDeviceToken);
  Attempt(1, "not_enrolled");
  Enrol();
  StateClear(StateKey::kProvisioned);
  Attempt(1, "not_provisioned");
  Provision();
  portal.IsUnreachable(kCheckInPath);
  Attempt(2, "unreachable");
  ExitPasswordIs(kTestExitPassword);

  Attempt(1, "wrong_password");

  ExpectLockOutFrom(TestClock::kStartWallMs);
}

TEST_F(LockOut, WaitsForTheSixthAttemptWhenTheFifthWasNotCompared) {
  Attempt(4, "wrong_password");
  portal.IsUnreachable(kCheckInPath);
  Attempt(1, "unreachable");
  EXPECT_EQ(LockedUntilMs(), 0);

  Attempt(1, "locked");

  ExpectLockOutFrom(TestClock::kStartWallMs);
}

TEST_F(LockOut, IsSetOffByACountAboveFiveToo) {
  StateSetInt(StateKey::kMaintenanceFailures, 6);

  Attempt(1, "locked", kTestExitPassword);

  ExpectLockOutFrom(TestClock::kStartWallMs);
}

using TwoAtOnce = CheckExitPasswordTest;

TEST_F(TwoAtOnce, AreOneTestedAndOneBusyAtOnce) {
  std::unique_ptr<OtherThread> other;
  portal.AnswersWith(kCheckInPath, [&](const PortalCall&) {
    portal.IsUnreachable(kCheckInPath);  // for a second one, which must not ask
    other = std::make_unique<OtherThread>([] { return CheckExitPassword(kTestExitPassword); });
    EXPECT_TRUE(Eventually([&] { return other->IsDone(); })) << "while the first still waits";
    EXPECT_EQ(Failures(), 1) << "busy does not count";
    return Http{.ok = true, .status = 200, .body = kEnrolledReply, .error = {}};
  });

  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");

  EXPECT_EQ(other->Result(), "busy");
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 1);
}

TEST_F(TwoAtOnce, LeaveTheWayFreeForAThirdHoweverTheFirstEnds) {
  portal.IsUnreachable(kCheckInPath);
  Attempt(1, "unreachable");
  AccountIsMissing();
  Attempt(1, "not_provisioned");
  StateClear(StateKey::kDeviceToken);
  Attempt(1, "not_enrolled");
  Enrol();
  Provision();
  ExitPasswordIs(kTestExitPassword);
  Attempt(1, "wrong_password");

  Attempt(1, "", kTestExitPassword);
}

TEST_F(TwoAtOnce, HoldNoLockWhileThePortalThinks) {
  portal.AnswersWith(kCheckInPath, [](const PortalCall&) {
    EXPECT_TRUE(AreFree({&lifecycleLock, &passwordLock, &unlockLock, &stateLock}));
    return Http{.ok = true, .status = 200, .body = kEnrolledReply, .error = {}};
  });

  EXPECT_EQ(CheckExitPassword(kTestExitPassword), "");
}

TEST_F(TwoAtOnce, GetFiveAttemptsTogether) {
  std::atomic<int> wrong{0};
  const auto guess = [&wrong] {
    std::string outcome;
    while ((outcome = CheckExitPassword(kWrong)) != "locked") {
      if (outcome == "wrong_password") wrong.fetch_add(1);
      std::this_thread::yield();
    }
  };
  std::thread first(guess);
  std::thread second(guess);
  first.join();
  second.join();

  EXPECT_EQ(wrong, 5);
  EXPECT_EQ(portal.CallsTo(kCheckInPath), 5);
  EXPECT_EQ(log.Count(kLockOutLine), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService
