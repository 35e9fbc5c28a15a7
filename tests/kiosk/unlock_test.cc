#include "kiosk/unlock.h"

#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <memory>
#include <vector>

#include "core/state.h"
#include "kiosk/random_source.h"
#include "support/other_thread.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kExpiredLine[] = "<6>terminal settings locked: the unlock expired\n";
constexpr char kFailedReply[] = R"({"ok":false,"error":"failed"})";
const std::string kSixteenBytes("\x00\x01\x0F\x10\x7F\x80\xA5\xFF ABCDEFG", 16);
constexpr char kItsToken[] = "00010f107f80a5ff2041424344454647";

void Wipe() {
  const MutexLock lock(unlockLock);
  WipeUnlock();
}

class HandleUnlockTest : public ServiceTest {
 protected:
  void SetUp() override {
    IsInService();
  }
  static std::string UnlockFor(const std::string& session) {
    return Json::Parse(HandleUnlock(kTestExitPassword, session))->Get("unlockToken").AsString("");
  }
  // A token of the same length that is not the one in force.
  static std::string Other(std::string token, std::size_t at) {
    token.at(at) = token.at(at) == '0' ? '1' : '0';
    return token;
  }
};

TEST_F(HandleUnlockTest, HandsOutATokenForTenMinutes) {
  RandomSource::Gives({kSixteenBytes});
  KeepSecret(kItsToken);

  EXPECT_EQ(HandleUnlock(kTestExitPassword, "c7"), std::string(R"({"ok":true,"unlockToken":")") +
                                                       kItsToken + R"(","expiresInSeconds":600})");

  EXPECT_EQ(log.Text(), "<6>terminal settings unlocked for session c7, 600 s\n");
  EXPECT_TRUE(UnlockValid(kItsToken, "c7"));
}

TEST_F(HandleUnlockTest, MakesEachTokenAnew) {
  const std::string first = UnlockFor("c7");
  const std::string second = UnlockFor("c7");

  EXPECT_NE(first, second);
  for (const std::string& token : {first, second}) {
    EXPECT_EQ(token.size(), 32U);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos) << token;
  }
}

TEST_F(HandleUnlockTest, OpensTheRandomSourceOnceForReadingAlone) {
  (void)UnlockFor("c7");

  EXPECT_EQ(RandomSource::Opened(), 1);
  EXPECT_EQ(RandomSource::OpenFlags(), O_RDONLY | O_CLOEXEC);
}

TEST_F(HandleUnlockTest, PutsShortReadsTogether) {
  RandomSource::Gives({kSixteenBytes.substr(0, 1), kSixteenBytes.substr(1, 14),
                       kSixteenBytes.substr(15), "never read"});

  EXPECT_EQ(UnlockFor("c7"), kItsToken);
}

TEST_F(HandleUnlockTest, FailsWithoutARandomSourceThoughThePasswordWasRight) {
  StateSetInt(StateKey::kMaintenanceFailures, 3);
  RandomSource::FailsToOpen(EMFILE);

  EXPECT_EQ(HandleUnlock(kTestExitPassword, "c7"), kFailedReply);

  EXPECT_EQ(log.Text(), "");
  EXPECT_TRUE(StateFile().Get(StateKey::kMaintenanceFailures).IsNull());
}

TEST_F(HandleUnlockTest, FailsWithFifteenBytes) {
  for (const std::vector<std::string>& chunks :
       {std::vector<std::string>{}, {kSixteenBytes.substr(0, 15)}, {"12345678", "1234567"}}) {
    RandomSource::Gives(chunks);
    EXPECT_EQ(HandleUnlock(kTestExitPassword, "c7"), kFailedReply);
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(HandleUnlockTest, LeavesAnEarlierUnlockWhenItFails) {
  const std::string token = UnlockFor("c7");
  RandomSource::FailsToOpen(EMFILE);

  EXPECT_EQ(HandleUnlock(kTestExitPassword, "c8"), kFailedReply);

  EXPECT_TRUE(UnlockValid(token, "c7"));
}

TEST_F(HandleUnlockTest, RefusesAndLogsWhateverThePasswordTestSays) {
  EXPECT_EQ(HandleUnlock("wrong", "c7"), R"({"ok":false,"error":"wrong_password"})");
  portal.IsUnreachable(kCheckInPath);
  EXPECT_EQ(HandleUnlock(kTestExitPassword, "c7"), R"({"ok":false,"error":"unreachable"})");
  StateSetInt(StateKey::kMaintenanceLockedUntil, TestClock::kStartWallMs + 1);
  EXPECT_EQ(HandleUnlock(kTestExitPassword, "c7"), R"({"ok":false,"error":"locked"})");

  EXPECT_EQ(log.Text(),
            "<4>terminal settings unlock refused: wrong_password\n"
            "<4>terminal settings unlock refused: unreachable\n"
            "<4>terminal settings unlock refused: locked\n");
  EXPECT_EQ(RandomSource::Opened(), 0);
}

TEST_F(HandleUnlockTest, LeavesAnEarlierUnlockWhenThePasswordIsWrong) {
  const std::string token = UnlockFor("c7");

  (void)HandleUnlock("wrong", "c7");

  EXPECT_TRUE(UnlockValid(token, "c7"));
}

TEST_F(HandleUnlockTest, ReplacesAnyEarlierUnlock) {
  const std::string first = UnlockFor("c7");
  const std::string second = UnlockFor("c7");
  EXPECT_FALSE(UnlockValid(first, "c7"));
  EXPECT_TRUE(UnlockValid(second, "c7"));

  const std::string third = UnlockFor("c8");
  EXPECT_FALSE(UnlockValid(second, "c7"));
  EXPECT_TRUE(UnlockValid(third, "c8"));
}

TEST_F(HandleUnlockTest, BeginsTheTenMinutesAnew) {
  (void)UnlockFor("c7");
  TestClock::AdvanceMs(599'000);
  const std::string token = UnlockFor("c7");

  TestClock::AdvanceMs(599'999);

  EXPECT_TRUE(UnlockValid(token, "c7"));
}

TEST_F(HandleUnlockTest, WritesNothingOfTheUnlockAnywhere) {
  KeepSecret(UnlockFor("c7"));

  EXPECT_EQ(StateFile().Dump().find("nlock"), std::string::npos);
}

TEST_F(HandleUnlockTest, TestsOneOfTwoAndAnswersTheOtherBusyAtOnce) {
  std::unique_ptr<OtherThread> other;
  portal.AnswersWith(kCheckInPath, [&](const PortalCall&) {
    portal.IsUnreachable(kCheckInPath);  // for a second one, which must not ask
    other = std::make_unique<OtherThread>([] { return HandleUnlock("another", "c7"); });
    EXPECT_TRUE(Eventually([&] { return other->IsDone(); })) << "while the first still waits";
    return Http{.ok = true,
                .status = 200,
                .body = R"({"status":"enrolled","exitPassword":"Exit-Password-7"})",
                .error = {}};
  });

  const std::string token = UnlockFor("c7");

  EXPECT_EQ(other->Result(), R"({"ok":false,"error":"busy"})");
  EXPECT_TRUE(log.Has("<4>terminal settings unlock refused: busy"));
  EXPECT_TRUE(UnlockValid(token, "c7"));
}

class UnlockValidTest : public HandleUnlockTest {
 protected:
  void SetUp() override {
    HandleUnlockTest::SetUp();
    RandomSource::Gives({kSixteenBytes});
    token = UnlockFor("c7");
    log.Clear();
  }
  std::string token;
};

TEST_F(UnlockValidTest, HoldsForTheTokenAndItsSessionAsOftenAsItIsAsked) {
  EXPECT_TRUE(UnlockValid(token, "c7"));
  EXPECT_TRUE(UnlockValid(token, "c7"));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UnlockValidTest, FailsForEveryOtherTokenAndLeavesTheUnlock) {
  std::string upper = token;
  std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
  std::vector<std::string> others = {"", token + "0", token.substr(1), token.substr(0, 31), upper};
  for (std::size_t i = 0; i < token.size(); ++i)
    others.push_back(Other(token, i));

  for (const std::string& other : others)
    EXPECT_FALSE(UnlockValid(other, "c7")) << other;

  EXPECT_TRUE(UnlockValid(token, "c7"));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UnlockValidTest, FailsForDifferencesThatCancelEachOther) {
  std::string swapped = token;
  std::reverse(swapped.begin(), swapped.end());

  EXPECT_FALSE(UnlockValid(swapped, "c7"));
}

TEST_F(UnlockValidTest, FailsForEveryOtherSessionAndLeavesTheUnlock) {
  for (const char* session : {"", "c", "c70", "c8", "C7", "3"})
    EXPECT_FALSE(UnlockValid(token, session)) << session;

  EXPECT_TRUE(UnlockValid(token, "c7"));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UnlockValidTest, EndsAfterTenMinutesAndTellsItOnce) {
  TestClock::AdvanceMs(599'999);
  EXPECT_TRUE(UnlockValid(token, "c7"));

  TestClock::AdvanceMs(1);
  EXPECT_FALSE(UnlockValid(token, "c7"));
  EXPECT_FALSE(UnlockValid(token, "c7"));

  EXPECT_EQ(log.Text(), kExpiredLine);
}

TEST_F(UnlockValidTest, IsNotLengthenedByItsUse) {
  TestClock::AdvanceMs(300'000);
  EXPECT_TRUE(UnlockValid(token, "c7"));
  TestClock::AdvanceMs(300'000);

  EXPECT_FALSE(UnlockValid(token, "c7"));
}

TEST_F(UnlockValidTest, DoesNotLookAtTheWallClock) {
  TestClock::SetWallMs(TestClock::kStartWallMs + 86'400'000);

  EXPECT_TRUE(UnlockValid(token, "c7"));
}

TEST_F(UnlockValidTest, EndsAnExpiredUnlockForAWrongTokenOfItsLength) {
  TestClock::AdvanceMs(600'000);

  EXPECT_FALSE(UnlockValid(Other(token, 5), "c7"));

  EXPECT_EQ(log.Text(), kExpiredLine);
}

TEST_F(UnlockValidTest, DoesNotEndAnExpiredUnlockForAnotherLengthOrSession) {
  TestClock::AdvanceMs(600'000);

  EXPECT_FALSE(UnlockValid("", "c7"));
  EXPECT_FALSE(UnlockValid("short", "c7"));
  EXPECT_FALSE(UnlockValid(token, "c8"));
  EXPECT_EQ(log.Text(), "");

  EXPECT_FALSE(UnlockValid(token, "c7"));
  EXPECT_EQ(log.Text(), kExpiredLine);
}

TEST_F(UnlockValidTest, FailsSilentlyWithoutAnUnlock) {
  Wipe();

  EXPECT_FALSE(UnlockValid(token, "c7"));
  EXPECT_FALSE(UnlockValid("", ""));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UnlockValidTest, FailsForAnUnlockThatWasWipedTwice) {
  Wipe();
  Wipe();

  EXPECT_FALSE(UnlockValid(token, "c7"));
}

TEST_F(UnlockValidTest, OutlivesARemovalThatIsPending) {
  StateClear(StateKey::kDeviceToken);
  StateClear(StateKey::kProvisioned);
  StateSetInt(StateKey::kTeardownPending, 1);

  EXPECT_TRUE(UnlockValid(token, "c7"));
}

using ForgetUnlockOfTest = UnlockValidTest;

TEST_F(ForgetUnlockOfTest, EndsTheUnlockOfThisSessionAndTellsItOnce) {
  ForgetUnlockOf("c7");
  ForgetUnlockOf("c7");

  EXPECT_FALSE(UnlockValid(token, "c7"));
  EXPECT_EQ(log.Text(), "<6>terminal settings locked: session c7 signed out\n");
}

TEST_F(ForgetUnlockOfTest, LeavesTheUnlockOfAnotherSession) {
  for (const char* session : {"", "c", "c70", "3"})
    ForgetUnlockOf(session);

  EXPECT_TRUE(UnlockValid(token, "c7"));
  EXPECT_EQ(log.Text(), "");
}

TEST_F(ForgetUnlockOfTest, IsSilentWithoutAnUnlock) {
  Wipe();

  ForgetUnlockOf("c7");
  ForgetUnlockOf("");

  EXPECT_EQ(log.Text(), "");
}

TEST_F(ForgetUnlockOfTest, TellsOfAnExpiredUnlockThatNobodyAskedFor) {
  TestClock::AdvanceMs(600'000);

  ForgetUnlockOf("c7");

  EXPECT_EQ(log.Text(), "<6>terminal settings locked: session c7 signed out\n");
}

}  // namespace
}  // namespace Tarnvale::KioskService
