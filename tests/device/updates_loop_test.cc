// Who takes part in automatic updates, and the one run in each window.

#include "device/updates_loop.h"

#include <thread>

#include "core/stop.h"
#include "device/updates.h"
#include "device/updates_loop_fixture.h"
#include "device/updates_policy_json.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

using Events = std::vector<std::string>;

constexpr char kTakenLine[] = "<6>os updates: automatic updates wait for the 02:00-05:00 window";
constexpr char kGivenBackLine[] =
    "<6>os updates: the package manager's own schedule is back as it was";
constexpr char kLiveLine[] =
    "<6>os updates: waiting, a stream session is live; trying again every 15 min in this window";
constexpr char kSignedInLine[] =
    "<6>os updates: waiting, a Tarnvale user is signed in; trying again every 15 min in this "
    "window";

using TakingPart = UpdatesLoopFixture;
using UpdatesWindow = UpdatesLoopFixture;
using DeferredRun = UpdatesLoopFixture;
using JumpingClock = UpdatesLoopFixture;
using AutomaticUpdatesLoopTest = UpdatesLoopFixture;

// Every way of not taking part, each on a terminal that does otherwise.
const std::vector<std::function<void()>>& WaysOut() {
  static const std::vector<std::function<void()>> ways = {
      [] { StateClear(StateKey::kDeviceToken); },
      [] { StateSetString(StateKey::kDeviceId, "of another machine"); },
      [] { StateClear(StateKey::kUpdatesPolicy); },
      [] { StateSetString(StateKey::kUpdatesPolicy, "garbage"); },
      [] { StateSetString(StateKey::kUpdatesPolicy, R"({"automatic":true})"); },
      [] {
        StateSetString(StateKey::kUpdatesPolicy, UpdatesPolicyToJson({.automatic = false}).Dump());
      },
  };
  return ways;
}

TEST_F(TakingPart, TakesTheScheduleAtEachPassAndSaysSoOnce) {
  const UpdatesPolicy policy = {
      .automatic = true, .windowStart = 1325, .windowEnd = 5, .days = 0x22};
  PolicyIs(policy);
  std::vector<UpdatesPolicy> taken;
  ops.takeUpdatesSchedule = [&](const UpdatesPolicy& given) {
    EXPECT_EQ(StateGetInt(StateKey::kOwnsWuPolicy), 1);
    taken.push_back(given);
  };

  PassMinutes(3);

  EXPECT_EQ(taken, (std::vector<UpdatesPolicy>{policy, policy, policy}));
  EXPECT_EQ(log.Text(), "<6>os updates: automatic updates wait for the 22:05-00:05 window\n");
  EXPECT_EQ(StateFile().Get("OwnsWuPolicy").Dump(), "1");
}

TEST_F(TakingPart, TakesTheScheduleInAnOpenWindowAndWhileItWaitsToo) {
  ClockIs(5, 2, 0);
  PersonIs(true, true);

  PassMinutes(20);

  EXPECT_EQ(calls.Count("takeUpdatesSchedule"), 20);
}

TEST_F(TakingPart, DoesNotAnnounceItselfAgainAfterAServiceRestart) {
  Pass();
  ServiceRestarts();
  Pass();

  EXPECT_EQ(log.Count(kTakenLine), 1);
  EXPECT_EQ(calls.Count("takeUpdatesSchedule"), 2);
}

TEST_F(TakingPart, IsAnnouncedWhenTheFlagIsNotTheNumberOne) {
  StateSet(StateKey::kOwnsWuPolicy, true);

  Pass();

  EXPECT_TRUE(log.Has(kTakenLine));
  EXPECT_EQ(StateGetInt(StateKey::kOwnsWuPolicy), 1);
}

TEST_F(TakingPart, EndsByGivingTheScheduleBackOnce) {
  for (const std::function<void()>& leave : WaysOut()) {
    SetUp();
    Pass();
    log.Clear();
    calls.Clear();

    leave();
    PassMinutes(3);

    EXPECT_EQ(calls.Names(), Events{"restoreUpdatesSchedule"});
    EXPECT_EQ(StateGetInt(StateKey::kOwnsWuPolicy), 0);
    EXPECT_EQ(log.Count(kGivenBackLine), 1);
  }
}

TEST_F(TakingPart, DoesNothingOnATerminalThatNeverDid) {
  for (const std::function<void()>& leave : WaysOut()) {
    SetUp();
    ClockIs(5, 3, 0);
    leave();
    const std::string before = StateFile().Dump();

    PassMinutes(3);

    EXPECT_EQ(StateFile().Dump(), before);
  }
  EXPECT_TRUE(calls.Names().empty());
  EXPECT_FALSE(log.Has(kGivenBackLine));
}

TEST_F(TakingPart, FollowsAPolicyThatFlipsAtEachPassForAnHour) {
  ClockIs(5, 1, 59);
  for (int minute = 0; minute < 60; ++minute) {
    PolicyIs({.automatic = minute % 2 == 0});
    PassMinutes(1);
  }

  EXPECT_EQ(calls.Count("takeUpdatesSchedule"), 30);
  EXPECT_EQ(calls.Count("restoreUpdatesSchedule"), 30);
  EXPECT_EQ(log.Count(kTakenLine), 30);
  EXPECT_EQ(log.Count(kGivenBackLine), 30);
  EXPECT_EQ(events, Events{"05 02:00 run"});
}

TEST_F(TakingPart, IsJudgedAnewWhileARetryIsDue) {
  ClockIs(5, 2, 0);
  PersonIs(false, true);
  Pass();

  PolicyIs({.automatic = false});
  PassMinutes(1);

  EXPECT_TRUE(log.Has(kGivenBackLine));
}

TEST_F(UpdatesWindow, BringsOneRunAtItsOpening) {
  PassUntil(5, 23, 0);

  EXPECT_EQ(events, Events{"05 02:00 run"});
  EXPECT_EQ(WindowDone(), "2026-10-05");
  EXPECT_EQ(log.Lines(),
            (Events{kTakenLine, "<6>os updates: the 2026-10-05 window is open",
                    "<6>os updates: searching, then installing", "<6>os updates: 0 pending"}));
}

TEST_F(UpdatesWindow, BringsOneRunEachDay) {
  PassUntil(8, 0, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "06 02:00 run", "07 02:00 run"}));
}

TEST_F(UpdatesWindow, BringsNoRunOnOtherDays) {
  PolicyIs({.automatic = true, .days = 1U << 2});

  PassUntil(8, 0, 0);

  EXPECT_EQ(events, Events{"06 02:00 run"});
}

TEST_F(UpdatesWindow, BringsOneRunWhenItPassesMidnight) {
  PolicyIs({.automatic = true, .windowStart = 1320, .windowEnd = 240, .days = 1U << 1});

  PassUntil(7, 0, 0);

  EXPECT_EQ(events, Events{"05 22:00 run"});
  EXPECT_EQ(WindowDone(), "2026-10-05");
}

TEST_F(UpdatesWindow, IsNotServedAgainAfterAServiceRestart) {
  ClockIs(5, 2, 0);
  Pass();
  ServiceRestarts();
  LoadState();

  PassUntil(5, 4, 59);

  EXPECT_EQ(events, Events{"05 02:00 run"});
}

TEST_F(UpdatesWindow, IsServedByAServiceThatStartsWithinIt) {
  ClockIs(5, 4, 59);

  Pass();

  EXPECT_EQ(events, Events{"05 04:59 run"});
}

TEST_F(UpdatesWindow, IsOverAtItsEnd) {
  ClockIs(5, 5, 0);

  Pass();

  EXPECT_EQ(events, Events{});
  EXPECT_EQ(WindowDone(), "");
}

TEST_F(UpdatesWindow, ReportsHowItsRunWent) {
  struct Row {
    WuRun run;
    std::string result;
    std::string error;
  };
  const Row rows[] = {
      {{.result = 0, .pending = 2, .error = {}}, "\"ok\"", "null"},
      {{.result = 1, .error = {}}, "\"nothing\"", "null"},
      {{.result = 2, .pending = 3, .error = "search_failed"}, "\"failed\"", "\"search_failed\""},
  };

  int day = 5;
  for (const Row& row : rows) {
    run = row.run;
    ClockIs(day++, 2, 30);
    Pass();

    EXPECT_EQ(Reported("lastResult"), row.result);
    EXPECT_EQ(Reported("error"), row.error);
    EXPECT_EQ(Reported("pending"), std::to_string(row.run.pending));
  }
  EXPECT_EQ(Reported("lastRunAt"), "\"2026-10-07T02:30:00Z\"");
}

TEST_F(UpdatesWindow, IsServedByAFailedRunToo) {
  run = {.result = 2, .error = "search_failed"};

  PassUntil(6, 3, 0);

  EXPECT_EQ(events, (Events{"05 02:00 run", "06 02:00 run"}));
  EXPECT_EQ(WindowDone(), "2026-10-06");
}

TEST_F(UpdatesWindow, LeavesInstallsToThePersonAfterAFailedRun) {
  run = {.result = 2, .error = "search_failed"};
  ClockIs(5, 2, 0);
  Pass();

  EXPECT_EQ(Json::Parse(HandleOsInstall())->Get("ok").Dump(), "true");

  JoinSettingsWorker();
  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 run"}));
}

TEST_F(UpdatesWindow, KeepsThePersonsRunsOutWhileItsOwnLasts) {
  ClockIs(5, 2, 0);
  duringRun = [] { EXPECT_EQ(HandleOsInstall(), R"({"ok":false,"error":"busy"})"); };

  Pass();

  EXPECT_EQ(events, Events{"05 02:00 run"});
  EXPECT_TRUE(TryBeginUpdates());
}

TEST_F(UpdatesWindow, GivesTheTicketBackBeforeItWritesTheReport) {
  ClockIs(5, 2, 0);
  std::atomic<pid_t> id{0};
  std::atomic<bool> locked{false};
  duringRun = [&] {
    id = ThreadId();
    EXPECT_TRUE(Eventually([&] { return locked.load(); }));
  };
  std::thread pass([this] { Pass(); });
  ASSERT_TRUE(Eventually([&] { return id != 0; }));

  stateLock.Lock();  // so that the report cannot be written
  locked = true;
  EXPECT_TRUE(Eventually([] { return TryBeginUpdates(); }));
  stateLock.Unlock();

  pass.join();
  EXPECT_EQ(WindowDone(), "2026-10-05");
}

TEST_F(UpdatesWindow, RetriesSilentlyWhenThePersonsRunIsInTheWay) {
  ASSERT_TRUE(TryBeginUpdates());
  PassUntil(5, 2, 7);
  EndUpdates();

  PassUntil(5, 4, 0);

  EXPECT_EQ(events, Events{"05 02:15 run"});
  EXPECT_EQ(log.Lines()[0], kTakenLine);
  EXPECT_EQ(log.Lines()[1], "<6>os updates: the 2026-10-05 window is open");
}

TEST_F(UpdatesWindow, EndsWithoutARunWhenThePersonsRunLastsThroughIt) {
  ASSERT_TRUE(TryBeginUpdates());
  PassUntil(5, 5, 0);
  EndUpdates();

  PassUntil(5, 23, 0);

  EXPECT_EQ(events, Events{});
  EXPECT_EQ(WindowDone(), "");
  EXPECT_EQ(Reported("lastResult"), "null") << "nothing was deferred";
  EXPECT_EQ(log.Text(), std::string(kTakenLine) + "\n");
}

TEST_F(DeferredRun, IsToldOnceInTheLogAndEvery15MinutesInTheReport) {
  PersonIs(true, true);
  ClockIs(5, 1, 59);
  Events deferrals;
  for (int minute = 0; minute < 60; ++minute) {
    PassMinutes(1);
    if (deferrals.empty() || deferrals.back() != Reported("lastRunAt"))
      deferrals.push_back(Reported("lastRunAt"));
  }

  EXPECT_EQ(deferrals, (Events{"\"2026-10-05T02:00:00Z\"", "\"2026-10-05T02:15:00Z\"",
                               "\"2026-10-05T02:30:00Z\"", "\"2026-10-05T02:45:00Z\""}));
  EXPECT_EQ(Reported("lastResult"), "\"deferred\"");
  EXPECT_EQ(log.Count(kLiveLine), 1);
  EXPECT_EQ(events, Events{});
  EXPECT_EQ(WindowDone(), "");
}

TEST_F(DeferredRun, ComesAtTheFirstRetryThatFindsTheReportsOver) {
  PersonIs(false, true);
  PassUntil(5, 2, 28);
  ReportsStop();

  PassUntil(5, 4, 0);

  // At 02:30 the last report is two minutes old, which still counts.
  EXPECT_EQ(events, Events{"05 02:45 run"});
  EXPECT_EQ(Reported("lastResult"), "\"ok\"");
}

TEST_F(DeferredRun, ComesAtTheRetryAfterThePersonHasLeft) {
  PersonIs(true, false);
  PassUntil(5, 2, 1);
  PersonIs(false, false);

  PassUntil(5, 4, 0);

  EXPECT_EQ(events, Events{"05 02:15 run"});
  EXPECT_TRUE(log.Has(kSignedInLine));
}

TEST_F(DeferredRun, IsRetriedAfter15MinutesAndNotAMillisecondEarlier) {
  ClockIs(5, 2, 0);
  PersonIs(true, false);
  Pass();
  calls.Clear();

  TestClock::AdvanceMs(15 * kMinuteMs - 1);
  Pass();
  EXPECT_EQ(events, Events{});
  EXPECT_EQ(calls.Names(), Events{"takeUpdatesSchedule"}) << "nobody is asked";

  TestClock::AdvanceMs(1);
  Pass();
  EXPECT_EQ(events, Events{"05 02:15 run"});
}

TEST_F(DeferredRun, IsDroppedWithItsWindowAndToldAgainInTheNext) {
  PersonIs(true, true);

  PassUntil(6, 3, 0);

  EXPECT_EQ(events, Events{});
  EXPECT_EQ(log.Count(kLiveLine), 2);

  PersonIs(false, false);
  PassUntil(6, 12, 0);
  EXPECT_EQ(events, Events{"06 03:15 run"});
}

TEST_F(DeferredRun, IsToldOnceAlsoWhenTheReasonChanges) {
  PersonIs(true, true);
  PassUntil(5, 2, 1);
  PersonIs(true, false);

  PassUntil(5, 4, 59);

  EXPECT_EQ(log.Count(kLiveLine), 1);
  EXPECT_EQ(log.Count(kSignedInLine), 0);
}

TEST_F(DeferredRun, IsToldAgainAfterAServiceRestart) {
  PersonIs(true, true);
  PassUntil(5, 2, 1);
  ServiceRestarts();

  PassUntil(5, 2, 30);

  EXPECT_EQ(log.Count(kLiveLine), 2);
}

TEST_F(DeferredRun, KeepsWhatTheLastRunFound) {
  run = {.result = 0, .pending = 4, .error = {}};
  PassUntil(5, 3, 0);
  PersonIs(true, true);

  PassUntil(6, 3, 0);

  EXPECT_EQ(Reported("lastResult"), "\"deferred\"");
  EXPECT_EQ(Reported("pending"), "4");
}

TEST_F(JumpingClock, FindsEachDaysWindowByItsName) {
  PassUntil(5, 2, 10);
  ClockIs(6, 2, 10);
  PassMinutes(5);
  ClockIs(5, 2, 20);  // only the last window that was served is known
  PassMinutes(5);

  EXPECT_EQ(events, (Events{"05 02:00 run", "06 02:11 run", "05 02:21 run"}));
}

TEST_F(JumpingClock, ServesAWindowOnceWhenItComesBackFromADayWithoutOne) {
  PolicyIs({.automatic = true, .days = 1U << 1});
  for (int count = 0; count < 3; ++count) {
    ClockIs(5, 2, 0);
    PassMinutes(5);
    ClockIs(6, 2, 0);
    PassMinutes(5);
    ClockIs(4, 2, 0);
    PassMinutes(5);
  }

  EXPECT_EQ(events, Events{"05 02:01 run"});
}

TEST_F(JumpingClock, DoesNotShortenTheWaitForARetry) {
  ClockIs(5, 2, 0);
  PersonIs(true, true);
  Pass();
  PersonIs(false, false);

  ClockIs(6, 2, 0);
  PassMinutes(14);
  EXPECT_EQ(events, Events{});
  PassMinutes(1);
  EXPECT_EQ(events, Events{"06 02:15 run"});
}

TEST_F(AutomaticUpdatesLoopTest, LooksOnceAMinuteAndFirstAfterAMinute) {
  std::vector<std::int64_t> timesMs;
  ops.takeUpdatesSchedule = [&timesMs](const UpdatesPolicy&) {
    timesMs.push_back(SteadyNowMs() - TestClock::kStartSteadyMs);
    if (timesMs.size() == 3) RequestStop();
  };

  AutomaticUpdatesLoop();

  EXPECT_EQ(timesMs, (std::vector<std::int64_t>{60'000, 120'000, 180'000}));
}

TEST_F(AutomaticUpdatesLoopTest, DoesNothingAfterAStop) {
  RequestStop();

  AutomaticUpdatesLoop();

  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(AutomaticUpdatesLoopTest, RemembersFromPassToPass) {
  ClockIs(5, 1, 59);
  ops.takeUpdatesSchedule = [this](const UpdatesPolicy&) {
    PersonIs(true, true);
    if (calls.Count("takeUpdatesSchedule") == 60) RequestStop();
  };

  AutomaticUpdatesLoop();

  EXPECT_EQ(log.Count(kLiveLine), 1);
  EXPECT_EQ(Reported("lastRunAt"), "\"2026-10-05T02:45:00Z\"");
}

TEST_F(AutomaticUpdatesLoopTest, FinishesTheRunThatAStopFinds) {
  ClockIs(5, 1, 59);
  run.restartRequired = true;
  duringRun = [] { RequestStop(); };

  AutomaticUpdatesLoop();

  EXPECT_EQ(events, (Events{"05 02:00 run", "05 02:00 restart"}));
  EXPECT_EQ(WindowDone(), "2026-10-05");
  EXPECT_EQ(Reported("lastResult"), "\"ok\"");
}

}  // namespace
}  // namespace Tarnvale::KioskService
