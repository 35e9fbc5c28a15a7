// The restart that finishes an automatic run: at once, later in the same window, or not at all.

#include "device/updates.h"
#include "device/updates_loop_fixture.h"

namespace Tarnvale::KioskService {
namespace {

using Events = std::vector<std::string>;

constexpr char kRestartLine[] = "<6>os updates: restarting in 60 s to finish installing";
constexpr char kCannotLine[] = "<3>os updates: cannot restart";
constexpr char kLiveLine[] =
    "<6>os updates: waiting, a stream session is live; trying again every 15 min in this window";

class UpdatesRestart : public UpdatesLoopFixture {
 protected:
  void SetUp() override {
    UpdatesLoopFixture::SetUp();
    run.restartRequired = true;
  }
};

TEST_F(UpdatesRestart, FollowsARunThatAsksForItAtOnce) {
  PassUntil(5, 5, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart"}));
  EXPECT_EQ(log.Lines().back(), kRestartLine);
  EXPECT_EQ(memory.restartKey, "");
}

TEST_F(UpdatesRestart, DoesNotFollowARunThatDoesNotAskForIt) {
  run.restartRequired = false;

  PassUntil(5, 5, 0);

  EXPECT_EQ(events, Events{"05 02:00 run"});
}

TEST_F(UpdatesRestart, FollowsAFailedRunThatAsksForItToo) {
  run.result = 2;
  run.error = "install_failed 100";

  PassUntil(5, 5, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart"}));
}

TEST_F(UpdatesRestart, ComesWhenTheReportIsWrittenAndTheWindowServed) {
  ops.scheduleUpdateRestart = [] {
    EXPECT_EQ(Reported("restartRequired"), "true");
    EXPECT_EQ(WindowDone(), "2026-10-05");
    EXPECT_TRUE(TryBeginUpdates()) << "the ticket is free";
    return true;
  };

  PassUntil(5, 2, 0);

  EXPECT_EQ(calls.Count("scheduleUpdateRestart"), 1);
  const std::string state = StateFile().Dump();  // new members come last
  EXPECT_LT(state.find("OsUpdatesReport"), state.find("OsUpdatesWindowDone"))
      << "a service that dies between the two makes the run again rather than forgets to tell of "
         "it";
}

TEST_F(UpdatesRestart, WaitsForThePersonWhoCameDuringTheRun) {
  duringRun = [this] { PersonIs(true, true); };
  PassUntil(5, 2, 14);
  EXPECT_FALSE(log.Has(kLiveLine)) << "told at the first retry";
  PassUntil(5, 2, 46);
  PersonIs(false, false);

  PassUntil(5, 5, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 03:00 restart"}));
  EXPECT_EQ(log.Count(kLiveLine), 1);
  EXPECT_EQ(Reported("lastResult"), "\"ok\"") << "a restart is not reported as deferred";
  EXPECT_EQ(Reported("lastRunAt"), "\"2026-10-05T02:00:00Z\"");
}

TEST_F(UpdatesRestart, IsToldWithTheRunWhenBothHadToWait) {
  PersonIs(true, true);
  PassUntil(5, 2, 1);
  PersonIs(false, false);
  duringRun = [this] { PersonIs(true, true); };

  PassUntil(5, 4, 0);

  EXPECT_EQ(events, Events{"05 02:15 run"});
  EXPECT_EQ(log.Count(kLiveLine), 1);
}

TEST_F(UpdatesRestart, IsRetriedEvery15MinutesWhenItCannotBeScheduled) {
  restartSucceeds = false;
  PassUntil(5, 2, 40);
  restartSucceeds = true;

  PassUntil(5, 5, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart", "05 02:15 restart",
                            "05 02:30 restart", "05 02:45 restart"}));
  EXPECT_EQ(log.Count(kCannotLine), 3);
  EXPECT_EQ(log.Count(kRestartLine), 1);
}

TEST_F(UpdatesRestart, IsNotTriedOutsideTheWindow) {
  restartSucceeds = false;
  ClockIs(5, 4, 29);

  PassUntil(5, 23, 0);

  EXPECT_EQ(events, (Events{"05 04:30 run", "05 04:30 restart", "05 04:45 restart"}));
}

TEST_F(UpdatesRestart, IsDroppedWhenTheWindowEndsDuringTheRun) {
  ClockIs(5, 4, 58);
  duringRun = [] { TestClock::AdvanceMs(kMinuteMs); };

  PassUntil(5, 23, 0);

  EXPECT_EQ(events, Events{"05 04:59 run"});
  EXPECT_EQ(Reported("restartRequired"), "true");
  EXPECT_EQ(Json::Parse(HandleOsUpdates(Json::Object()))->Get("restartRequired").Dump(), "true");
}

TEST_F(UpdatesRestart, IsDroppedWhenTheRunEndsInTheNextWindow) {
  duringRun = [] { TestClock::AdvanceMs(24 * kHourMs); };
  PassUntil(5, 2, 0);
  EXPECT_EQ(events, Events{"05 02:00 run"});

  duringRun = [] {};
  PassMinutes(15);

  EXPECT_EQ(events, (Events{"05 02:00 run", "06 02:15 run", "06 02:15 restart"}));
}

TEST_F(UpdatesRestart, IsDroppedWithTheWindowAndOwedAnewByALaterRun) {
  duringRun = [this] { PersonIs(true, false); };
  PassUntil(5, 6, 0);
  PersonIs(false, false);
  duringRun = [] {};

  PassUntil(6, 6, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "06 02:00 run", "06 02:00 restart"}));
}

TEST_F(UpdatesRestart, IsNotOwedInTheNextWindowWhenItsRunDoesNotAskForIt) {
  duringRun = [this] { PersonIs(true, false); };
  PassUntil(5, 6, 0);
  PersonIs(false, false);
  duringRun = [] {};
  run.restartRequired = false;

  PassUntil(6, 6, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "06 02:00 run"}));
}

TEST_F(UpdatesRestart, IsForgottenByARestartOfTheService) {
  restartSucceeds = false;
  PassUntil(5, 2, 5);
  restartSucceeds = true;
  ServiceRestarts();

  PassUntil(5, 23, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart"}));
}

TEST_F(UpdatesRestart, ComesOnceInAWindow) {
  PassUntil(5, 2, 0);
  events.clear();

  PassUntil(5, 4, 59);

  EXPECT_EQ(events, Events{});
}

TEST_F(UpdatesRestart, IsNotTriedForAWindowThatAClockHasLeft) {
  restartSucceeds = false;
  PolicyIs({.automatic = true, .days = 1U << 1});
  PassUntil(5, 2, 0);
  restartSucceeds = true;

  ClockIs(6, 2, 0);
  PassMinutes(60);
  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart"}));

  ClockIs(5, 3, 0);
  PassMinutes(1);
  EXPECT_EQ(events.back(), "05 03:01 restart") << "the same window is open again";
}

TEST_F(UpdatesRestart, HangsOnThePolicyWithWhichTheRunBegan) {
  duringRun = [] { StateClear(StateKey::kUpdatesPolicy); };

  PassUntil(5, 2, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart"}));
}

TEST_F(UpdatesRestart, IsNotRetriedWhenThePolicyIsGone) {
  restartSucceeds = false;
  duringRun = [] { StateClear(StateKey::kUpdatesPolicy); };

  PassUntil(5, 5, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart"}));
}

}  // namespace
}  // namespace Tarnvale::KioskService
