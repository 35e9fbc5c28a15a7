// Since when the portal has not recognised the terminal's token.

#include <string>

#include "core/clock.h"
#include "core/state.h"
#include "core/units.h"
#include "portal/check_in_test.h"
#include "support/save_counter.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kFirstLine[] =
    "<4>check-in: AuthSystem does not recognise this terminal's token; "
    "kiosk mode stays unless that lasts 24 hours\n";

class RememberUnknownDeviceTest : public CheckInTest {
 protected:
  static void Remember(CheckInOutcome outcome = CheckInOutcome::kUnknown) {
    CheckInResult result;
    result.outcome = outcome;
    RememberUnknownDevice(result);
  }

  // One check-in that the portal answers with `unknown`.
  void CheckInAsUnknown() {
    const CheckInResult result = AnsweredWith(401, R"({"status":"unknown"})");
    EXPECT_EQ(result.outcome, CheckInOutcome::kUnknown);
    RememberUnknownDevice(result);
  }
};

TEST_F(RememberUnknownDeviceTest, StoresTheTimeOfTheFirstAnswerAndSaysSo) {
  Remember();

  EXPECT_EQ(StateFile().Get("UnknownSince").Dump(), std::to_string(WallNowMs()));
  EXPECT_EQ(log.Text(), kFirstLine);
}

TEST_F(RememberUnknownDeviceTest, KeepsATimeUpToThePresentSilently) {
  SaveCounter saves(config.stateDir, "state.json");
  int writes = 0;
  for (const std::int64_t sinceMs :
       {std::int64_t{1}, WallNowMs() - 24 * kHourMs + 1, WallNowMs() - 1, WallNowMs()}) {
    StateSetInt(StateKey::kUnknownSince, sinceMs);
    ++writes;

    Remember();

    EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), sinceMs);
    EXPECT_EQ(saves.Count(), writes) << sinceMs;
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RememberUnknownDeviceTest, TakesATimeInTheFutureAsNotSet) {
  StateSetInt(StateKey::kUnknownSince, WallNowMs() + 1);

  Remember();

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), WallNowMs());
  EXPECT_EQ(log.Text(), kFirstLine);
}

TEST_F(RememberUnknownDeviceTest, TakesATimeThatIsNoNumberAsNotSet) {
  StateSetString(StateKey::kUnknownSince, "5");

  Remember();

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), WallNowMs());
}

TEST_F(RememberUnknownDeviceTest, LooksAtNoOtherOutcome) {
  for (const CheckInOutcome outcome :
       {CheckInOutcome::kEnrolled, CheckInOutcome::kRevoked, CheckInOutcome::kFailed}) {
    Remember(outcome);

    EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), 0);
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RememberUnknownDeviceTest, BeginsTheDayAnewAfterAGoodCheckIn) {
  CheckInAsUnknown();
  TestClock::AdvanceMs(23 * kHourMs);
  CheckInAsUnknown();
  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs);

  (void)Enrolled();
  log.Clear();
  CheckInAsUnknown();

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs + 23 * kHourMs);
  EXPECT_EQ(log.Text(), kFirstLine);
}

TEST_F(RememberUnknownDeviceTest, BeginsTheDayAnewAfterTheClockWasCorrectedBackwards) {
  CheckInAsUnknown();
  TestClock::SetWallMs(TestClock::kStartWallMs - kHourMs);

  CheckInAsUnknown();

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs - kHourMs);
}

TEST_F(RememberUnknownDeviceTest, KeepsTheTimeOverFailedCheckIns) {
  CheckInAsUnknown();
  TestClock::AdvanceMs(kHourMs);

  RememberUnknownDevice(AnsweredWith(500, "{}"));
  RememberUnknownDevice(AnsweredWith(401, R"({"status":"revoked"})"));

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs);
}

}  // namespace
}  // namespace Tarnvale::KioskService
