// A portal that does not recognise the terminal's token: a day is given, and then it ends.

#include <limits>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/state.h"
#include "core/units.h"
#include "portal/check_in_test.h"
#include "portal/identity.h"
#include "support/save_counter.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kFirstLine[] =
    "<4>check-in: AuthSystem does not recognise this terminal's token; "
    "kiosk mode stays unless that lasts 24 hours\n";
constexpr char kOverADay[] =
    "<4>check-in: the token has been unknown to AuthSystem for over 24 hours";
constexpr char kRemoving[] =
    "<4>removing kiosk mode: "
    "the portal has not known this terminal for 24 hours (401, status unknown)";

class UnknownDeviceTest : public CheckInTest {
 protected:
  UnknownDeviceTest() {
    Enrol();
  }

  // One check-in that the portal answers with `unknown`, and its verdict.
  bool CheckInAsUnknown() {
    const CheckInResult result = AnsweredWith(401, R"({"status":"unknown"})");
    EXPECT_EQ(result.outcome, CheckInOutcome::kUnknown);
    return ApplyDeviceStatus(result, kTestToken);
  }
};

TEST_F(UnknownDeviceTest, StoresTheTimeOfTheFirstAnswerAndSaysSo) {
  EXPECT_FALSE(CheckInAsUnknown());

  EXPECT_EQ(StateFile().Get("UnknownSince").Dump(), std::to_string(WallNowMs()));
  EXPECT_EQ(log.Text(), kFirstLine);
}

TEST_F(UnknownDeviceTest, KeepsATimeWithinTheDaySilently) {
  SaveCounter saves(config.stateDir, "state.json");
  int writes = 0;
  for (const std::int64_t ageMs : {24 * kHourMs - 1, std::int64_t{1}, std::int64_t{0}}) {
    const std::int64_t sinceMs = WallNowMs() - ageMs;
    StateSetInt(StateKey::kUnknownSince, sinceMs);
    ++writes;

    EXPECT_FALSE(CheckInAsUnknown());

    EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), sinceMs);
    EXPECT_EQ(saves.Count(), writes) << ageMs;
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(UnknownDeviceTest, RemovesTheTerminalAfterExactly24Hours) {
  RemovalWorks();
  EXPECT_FALSE(CheckInAsUnknown());
  TestClock::AdvanceMs(24 * kHourMs - 1);
  EXPECT_FALSE(CheckInAsUnknown());
  log.Clear();

  TestClock::AdvanceMs(1);
  EXPECT_TRUE(CheckInAsUnknown());

  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kOverADay, kRemoving}));
  EXPECT_EQ(CurrentDeviceToken(), "");
  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), 0);
}

// The difference of the two times does not fit into 64 bits.
TEST_F(UnknownDeviceTest, TakesTheLeastTimeOfAllAsOverADayAgo) {
  RemovalWorks();
  StateSetInt(StateKey::kUnknownSince, std::numeric_limits<std::int64_t>::min());

  EXPECT_TRUE(CheckInAsUnknown());

  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kOverADay, kRemoving}));
}

TEST_F(UnknownDeviceTest, CountsTheDayAcrossRestarts) {
  RemovalWorks();
  EXPECT_FALSE(CheckInAsUnknown());
  TestClock::AdvanceMs(24 * kHourMs);
  LoadState();

  EXPECT_TRUE(CheckInAsUnknown());

  EXPECT_TRUE(log.Has(kRemoving));
}

TEST_F(UnknownDeviceTest, RemovesNothingThatWasPairedAnewMeanwhile) {
  StateSetInt(StateKey::kUnknownSince, WallNowMs() - 24 * kHourMs);
  StateSetString(StateKey::kDeviceToken, "token of a new pairing");

  EXPECT_TRUE(CheckInAsUnknown());

  EXPECT_EQ(log.Text(), std::string(kOverADay) + "\n");
  EXPECT_EQ(CurrentDeviceToken(), "token of a new pairing");
  EXPECT_EQ(calls.Names(), std::vector<std::string>{"http"});
}

TEST_F(UnknownDeviceTest, TakesATimeInTheFutureAsNotSet) {
  StateSetInt(StateKey::kUnknownSince, WallNowMs() + 1);

  EXPECT_FALSE(CheckInAsUnknown());

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), WallNowMs());
  EXPECT_EQ(log.Text(), kFirstLine);
}

TEST_F(UnknownDeviceTest, TakesATimeThatIsNoNumberAsNotSet) {
  StateSetString(StateKey::kUnknownSince, "5");

  EXPECT_FALSE(CheckInAsUnknown());

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), WallNowMs());
}

TEST_F(UnknownDeviceTest, BeginsTheDayAnewAfterAGoodCheckIn) {
  EXPECT_FALSE(CheckInAsUnknown());
  TestClock::AdvanceMs(23 * kHourMs);
  EXPECT_FALSE(CheckInAsUnknown());
  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs);

  (void)Enrolled();
  TestClock::AdvanceMs(kHourMs);
  log.Clear();
  EXPECT_FALSE(CheckInAsUnknown());

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs + 24 * kHourMs);
  EXPECT_EQ(log.Text(), kFirstLine);
}

TEST_F(UnknownDeviceTest, BeginsTheDayAnewAfterTheClockWasCorrectedBackwards) {
  EXPECT_FALSE(CheckInAsUnknown());
  TestClock::SetWallMs(TestClock::kStartWallMs - kHourMs);

  EXPECT_FALSE(CheckInAsUnknown());

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs - kHourMs);
}

TEST_F(UnknownDeviceTest, KeepsTheTimeOverFailedCheckIns) {
  EXPECT_FALSE(CheckInAsUnknown());
  TestClock::AdvanceMs(kHourMs);

  EXPECT_FALSE(ApplyDeviceStatus(AnsweredWith(500, "{}"), kTestToken));
  EXPECT_FALSE(ApplyDeviceStatus(AnsweredWith(401, "{}"), kTestToken));

  EXPECT_EQ(StateGetInt(StateKey::kUnknownSince), TestClock::kStartWallMs);
}

}  // namespace
}  // namespace Tarnvale::KioskService
