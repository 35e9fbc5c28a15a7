// Runs of the package manager: what they change in the status and the report, and the thread that
// makes those of the person at the terminal.

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "core/locks.h"
#include "core/state.h"
#include "device/updates.h"
#include "device/updates_fixture.h"
#include "support/default_stack_size.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kSearching[] = "<6>os updates: searching";
constexpr char kInstalling[] = "<6>os updates: searching, then installing";

using RunUpdatesTest = UpdatesFixture;
using StartWuRunTest = UpdatesFixture;
using SettingsWorker = UpdatesFixture;
using GiveBackUpdatesScheduleTest = UpdatesFixture;

TEST_F(RunUpdatesTest, ShowsACheckWithoutProgressWhileItInstalls) {
  RunsEndWith({.result = 0, .error = {}});
  Json during;
  duringRun = [&during] { during = Status(); };

  (void)RunNow(true);

  EXPECT_TRUE(during.Get("checking").boolean);
  EXPECT_FALSE(during.Get("installing").boolean);
  EXPECT_EQ(during.Get("progress").Dump(), "0");
}

TEST_F(RunUpdatesTest, ShowsNoRunWhenItHasEnded) {
  for (const std::int32_t result : {0, 1, 2}) {
    RunsEndWith({.result = result, .error = {}});

    (void)RunNow(true);

    EXPECT_FALSE(Status().Get("checking").boolean) << result;
    EXPECT_FALSE(Status().Get("installing").boolean) << result;
  }
}

TEST_F(RunUpdatesTest, HoldsNoLockWhileThePackageManagerWorks) {
  RunsEndWith({.result = 0, .error = {}});
  bool answered = false;
  duringRun = [&answered] {
    std::thread other([&answered] {
      answered = !StatusText().empty() && HandleOsInstall() == kBusyReply;
      JoinSettingsWorker();
    });
    other.join();
  };

  (void)RunNow(true);

  EXPECT_TRUE(answered);
}

TEST_F(RunUpdatesTest, CountsItsProgressFromZero) {
  RunsEndWith({.result = 0, .error = {}});
  (void)RunNow(true);
  progressAtStart = -1;

  (void)RunNow(false);

  EXPECT_EQ(progressAtStart, 0);
}

TEST_F(RunUpdatesTest, PassesTheResultOn) {
  RunsEndWith({.result = 2, .pending = 7, .restartRequired = true, .error = "install_failed 100"});

  const WuRun run = RunNow(true);

  EXPECT_EQ(run.result, 2);
  EXPECT_EQ(run.pending, 7);
  EXPECT_TRUE(run.restartRequired);
  EXPECT_EQ(run.error, "install_failed 100");
}

TEST_F(RunUpdatesTest, SaysWhatItDoesAndWhatItFound) {
  struct Row {
    bool install;
    WuRun run;
    std::vector<std::string> lines;
  };
  const Row rows[] = {
      {false, {.result = 0, .pending = 12, .error = {}}, {kSearching, "<6>os updates: 12 pending"}},
      {false, {.result = 1, .error = {}}, {kSearching, "<6>os updates: 0 pending"}},
      {true,
       {.result = 0, .pending = 1, .restartRequired = true, .error = {}},
       {kInstalling, "<6>os updates: 1 pending, restart required"}},
      {true, {.result = 1, .error = {}}, {kInstalling, "<6>os updates: 0 pending"}},
      {false, {.result = 2, .error = "apt_missing"}, {kSearching, "<3>os updates: apt_missing"}},
      {true,
       {.result = 2, .pending = 3, .restartRequired = true, .error = "install_failed -1"},
       {kInstalling, "<3>os updates: install_failed -1"}},
  };

  for (const Row& row : rows) {
    log.Clear();
    RunsEndWith(row.run);

    (void)RunNow(row.install);

    EXPECT_EQ(log.Lines(), row.lines);
  }
}

TEST_F(RunUpdatesTest, SaysThatItSearchesBeforeItDoes) {
  RunsEndWith({.result = 1, .error = {}});
  duringRun = [this] { EXPECT_TRUE(log.Has(kSearching)); };

  (void)RunNow(false);
}

TEST_F(RunUpdatesTest, KeepsWhatIsKnownWhenItFails) {
  RunsEndWith({.result = 0, .pending = 2, .restartRequired = true, .error = {}}, Packages(2));
  (void)RunNow(false);
  const Json before = Status();
  TestClock::AdvanceMs(3'600'000);
  RunsEndWith({.result = 2, .pending = 0, .error = "search_failed"}, Packages(1));

  (void)RunNow(false);

  Json expected = before;
  expected.Set("error", "search_failed");
  EXPECT_EQ(StatusText(), expected.Dump());
}

TEST_F(RunUpdatesTest, ForgetsTheErrorOfTheRunBeforeWhenItBegins) {
  RunsEndWith({.result = 2, .error = "search_failed"});
  (void)RunNow(false);
  RunsEndWith({.result = 1, .error = {}});
  duringRun = [] { EXPECT_TRUE(Status().Get("error").IsNull()); };

  (void)RunNow(false);

  EXPECT_TRUE(Status().Get("error").IsNull());
}

TEST_F(RunUpdatesTest, ReplacesWhatWasPending) {
  RunsEndWith({.result = 0, .pending = 2, .restartRequired = true, .error = {}}, Packages(2));
  (void)RunNow(false);
  TestClock::AdvanceMs(90'000);
  RunsEndWith({.result = 1, .error = {}});

  (void)RunNow(true);

  EXPECT_EQ(Status().Get("updates").Size(), 0U);
  EXPECT_FALSE(Status().Get("restartRequired").boolean);
  EXPECT_EQ(Status().Get("lastChecked").text, "2027-01-15T08:01:30Z");
}

// Holds a start of a run up when the status shows it and its thread does not exist yet.
class RequestedRun : public UpdatesFixture {
 protected:
  // What `os.updates` shows at that moment.
  Json StatusAtDocument(bool install) {
    Json shown;
    settingsWorkerLock.Lock();
    std::thread request([install] { EXPECT_TRUE(StartWuRun(install)); });
    EXPECT_TRUE(Eventually([] { return Status().Get("checking").boolean; }));
    shown = Status();
    settingsWorkerLock.Unlock();
    request.join();
    JoinSettingsWorker();
    return shown;
  }
};

TEST_F(RequestedRun, ShowsAnInstallUntilItBegins) {
  RunsEndWith({.result = 0, .error = {}});

  const Json first = StatusAtDocument(true);
  const Json second = StatusAtDocument(true);

  EXPECT_TRUE(first.Get("installing").boolean);
  EXPECT_EQ(first.Get("progress").Dump(), "0");
  EXPECT_TRUE(second.Get("installing").boolean);
  EXPECT_EQ(second.Get("progress").Dump(), "100") << "of the install before";
}

TEST_F(RequestedRun, ShowsTheProgressThatARunWasLeftAt) {
  RunsEndWith({.result = 0, .error = {}});
  (void)StatusAtDocument(false);
  EXPECT_EQ(StatusAtDocument(true).Get("progress").Dump(), "42") << "a check does not make it 100";

  RunsEndWith({.result = 2, .error = "install_failed 1"});
  (void)StatusAtDocument(true);
  EXPECT_EQ(StatusAtDocument(true).Get("progress").Dump(), "42") << "nor does a failure";
}

TEST_F(RequestedRun, ShowsNoInstallForACheck) {
  RunsEndWith({.result = 0, .error = {}});

  const Json shown = StatusAtDocument(false);

  EXPECT_FALSE(shown.Get("installing").boolean);
  EXPECT_EQ(shown.Get("progress").Dump(), "0");
}

TEST_F(StartWuRunTest, StartsOneRunAfterTheOther) {
  RunsEndWith({.result = 0, .error = {}});

  for (int count = 0; count < 5; ++count)
    EXPECT_TRUE(Eventually([count] { return StartWuRun(count % 2 == 0); }));
  JoinSettingsWorker();

  EXPECT_EQ(installs, (std::vector<bool>{true, false, true, false, true}));
}

TEST_F(StartWuRunTest, GivesTheTicketBackWhenThereIsNoThreadForTheRun) {
  RunsEndWith({.result = 0, .error = {}});
  {
    const DefaultStackSize stacks(kImpossibleStackBytes);
    EXPECT_EQ(HandleOsInstall(), kBusyReply);
    EXPECT_FALSE(Document(HandleOsUpdates(Document(R"({"check":true})"))).Get("checking").boolean);
  }
  EXPECT_EQ(log.Count("<3>os updates: no thread for the run (Resource temporarily unavailable)"),
            2);
  EXPECT_EQ(log.Lines().size(), 2U);

  EXPECT_TRUE(StartWuRun(true));

  JoinSettingsWorker();
  EXPECT_EQ(installs, std::vector<bool>{true});
}

TEST_F(SettingsWorker, ReportsTheVerdictOfAnInstall) {
  struct Row {
    WuRun run;
    std::string verdict;
    std::string error;
  };
  const Row rows[] = {
      {{.result = 0, .pending = 1, .restartRequired = true, .error = {}}, "\"ok\"", "null"},
      {{.result = 1, .error = {}}, "\"nothing\"", "null"},
      {{.result = 2, .pending = 5, .error = "install_failed 100"},
       "\"failed\"",
       "\"install_failed 100\""},
  };

  for (const Row& row : rows) {
    RunsEndWith(row.run);
    EXPECT_TRUE(StartWuRun(true));
    JoinSettingsWorker();

    EXPECT_EQ(Report().Get("lastResult").Dump(), row.verdict);
    EXPECT_EQ(Report().Get("error").Dump(), row.error);
    EXPECT_EQ(Report().Get("pending").AsInt(-1), row.run.pending);
    EXPECT_EQ(Report().Get("restartRequired").boolean, row.run.restartRequired);
    EXPECT_EQ(Report().Get("lastRunAt").text, "2027-01-15T08:00:00Z");
  }
}

TEST_F(SettingsWorker, ReportsACheckWithoutAVerdict) {
  RunsEndWith({.result = 0, .pending = 3, .restartRequired = true, .error = {}});

  EXPECT_TRUE(StartWuRun(false));
  JoinSettingsWorker();

  EXPECT_EQ(Report().Dump(), R"({"pending":3,"restartRequired":true,"lastRunAt":null,)"
                             R"("lastResult":null,"error":null})");
}

TEST_F(SettingsWorker, ReportsWhatAFailedCheckFoundAndNotThatItFailed) {
  StateSetString(StateKey::kOsUpdatesReport,
                 R"({"lastRunAt":"T","lastResult":"ok","error":null,"pending":9,)"
                 R"("restartRequired":true})");
  RunsEndWith({.result = 2, .error = "search_failed"});

  EXPECT_TRUE(StartWuRun(false));
  JoinSettingsWorker();

  EXPECT_EQ(Report().Dump(), R"({"lastRunAt":"T","lastResult":"ok","error":null,"pending":0,)"
                             R"("restartRequired":false})");
}

TEST_F(SettingsWorker, GivesTheTicketBackWhenTheReportIsWritten) {
  RunsEndWith({.result = 0, .error = {}});
  HoldRuns();
  EXPECT_TRUE(StartWuRun(true));
  ASSERT_TRUE(RunIsInside());

  stateLock.Lock();  // so that the report cannot be written
  Release();
  EXPECT_TRUE(Eventually([this] { return log.Has("<6>os updates: 0 pending"); }));
  EXPECT_TRUE(Eventually([this] { return IsAsleep(runThread); }));
  EXPECT_FALSE(TryBeginUpdates());
  stateLock.Unlock();

  JoinSettingsWorker();
  EXPECT_TRUE(TryBeginUpdates());
  EXPECT_EQ(Report().Get("lastResult").text, "ok");
}

TEST_F(SettingsWorker, IsWaitedForHoweverLongItsRunTakes) {
  RunsEndWith({.result = 0, .error = {}});
  HoldRuns();
  EXPECT_TRUE(StartWuRun(true));
  ASSERT_TRUE(RunIsInside());
  std::atomic<pid_t> id{0};
  std::atomic<bool> ended{false};
  std::thread stop([&] {
    id = ThreadId();
    JoinSettingsWorker();
    ended = true;
  });

  EXPECT_TRUE(Eventually([&] { return id != 0 && IsAsleep(id); }));
  TestClock::AdvanceMs(24 * 3'600'000);
  EXPECT_FALSE(ended);
  EXPECT_EQ(HandleOsInstall(), kBusyReply) << "nobody waits behind the stop";

  Release();
  stop.join();
  EXPECT_TRUE(TryBeginUpdates());
}

TEST_F(SettingsWorker, NeedsNotExistToBeWaitedFor) {
  JoinSettingsWorker();
  JoinSettingsWorker();

  EXPECT_EQ(log.Text(), "");
}

TEST_F(GiveBackUpdatesScheduleTest, RestoresItAndThenForgetsThatItWasTaken) {
  StateSetInt(StateKey::kOwnsWuPolicy, 1);
  ops.restoreUpdatesSchedule = [this] {
    EXPECT_EQ(StateGetInt(StateKey::kOwnsWuPolicy), 1);
    EXPECT_EQ(log.Text(), "");
  };

  GiveBackUpdatesSchedule();
  GiveBackUpdatesSchedule();

  EXPECT_EQ(calls.Names(), std::vector<std::string>{"restoreUpdatesSchedule"});
  EXPECT_TRUE(StateFile().Has("OwnsWuPolicy") && StateFile().Get("OwnsWuPolicy").IsNull());
  EXPECT_EQ(log.Text(), "<6>os updates: the package manager's own schedule is back as it was\n");
}

TEST_F(GiveBackUpdatesScheduleTest, LeavesAScheduleAloneThatIsNotOurs) {
  for (const char* const value : {"null", "0", "2", "true", "\"1\""}) {
    StateSet(StateKey::kOwnsWuPolicy, Document(value));

    GiveBackUpdatesSchedule();
  }

  EXPECT_TRUE(calls.Names().empty());
  EXPECT_EQ(log.Text(), "");
}

}  // namespace
}  // namespace Tarnvale::KioskService
