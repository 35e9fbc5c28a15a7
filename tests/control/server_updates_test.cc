// The accept loop's part in OS updates: it starts their loop, and no stop cuts a run short.

#include <atomic>
#include <future>

#include "control/server.h"
#include "control/server_fixture.h"
#include "core/units.h"
#include "device/updates.h"
#include "portal/restart.h"

namespace Tarnvale::KioskService {
namespace {

bool IsStopRequested() {
  return !SleepUnlessStopped(0);
}

class AcceptLoopUpdates : public ServerFixture {
 protected:
  void SetUp() override {
    ServerFixture::SetUp();
    ASSERT_TRUE(OpenControlSocket());
  }
  // Lets the loop's first look come, which on this terminal gives the schedule back.
  void StartAndLetLook() {
    StateSetInt(StateKey::kOwnsWuPolicy, 1);
    Start();
    ASSERT_TRUE(Eventually([] { return TestClock::WaitsBegun() > 1; }));
    TestClock::AdvanceMs(kMinuteMs);
    WakeServiceLoop();  // and all others, who look at the clock
  }
  // A run for the person at the terminal, inside the package manager until it is released.
  void StartHeldRun() {
    ops.runUpdates = [this](bool, std::vector<OsUpdate>*, std::atomic<int>*) {
      released.wait();
      runEnded = true;
      return WuRun{.result = 0, .error = {}};
    };
    ASSERT_TRUE(StartWuRun(true));
  }

  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<bool> runEnded = false;
};

TEST_F(AcceptLoopUpdates, StartsTheirLoop) {
  ops.restoreUpdatesSchedule = [] {};

  StartAndLetLook();

  EXPECT_TRUE(Eventually([this] { return calls.Count("restoreUpdatesSchedule") > 0; }));
}

TEST_F(AcceptLoopUpdates, JoinsTheirLoopBeforeItForgetsTheRestart) {
  std::atomic<bool> restartWasKept = true;
  std::atomic<bool> inPass = false;
  ops.restoreUpdatesSchedule = [&] {
    inPass = true;
    EXPECT_TRUE(Eventually(IsStopRequested));
    // A stop that did not wait for this pass would be past the restart by now.
    for (int count = 0; count < 100; ++count) {
      restartWasKept = restartWasKept && IsRestartPending() && Exists(config.socket);
      std::this_thread::yield();
    }
  };
  StartAndLetLook();
  ASSERT_TRUE(Eventually([&] { return inPass.load(); }));
  ScheduleRestart();

  Stop();

  EXPECT_TRUE(restartWasKept);
  EXPECT_FALSE(IsRestartPending());
}

TEST_F(AcceptLoopUpdates, WaitsForARunHoweverLongItTakes) {
  ScheduleRestart();
  StartHeldRun();
  Start();

  RequestStop();

  // The restart is forgotten just before the run is waited for.
  EXPECT_TRUE(Eventually([] { return !IsRestartPending(); }));
  TestClock::AdvanceMs(24 * kHourMs);
  EXPECT_FALSE(loopEnded);
  EXPECT_TRUE(Exists(config.socket));
  release.set_value();
  acceptLoop.join();
  EXPECT_TRUE(runEnded);
  EXPECT_FALSE(Exists(config.socket));
  EXPECT_TRUE(StateFile().Has("OsUpdatesReport")) << "the run was reported";
}

TEST_F(AcceptLoopUpdates, WaitsForARunBeforeItWaitsForConnections) {
  bool pausedDuringRun = false;
  bool paused = false;
  TestClock::BeforeWaits([&](std::int64_t milliseconds) {
    if (milliseconds != 10) return;  // another wait than the one for the connections
    paused = true;
    pausedDuringRun = pausedDuringRun || !runEnded;
    TestClock::AdvanceMs(30 * kSecondMs);
  });
  ScheduleRestart();
  StartHeldRun();
  Start();
  Descriptor client = Connect();
  ASSERT_TRUE(Eventually([] { return AreConnectionsRunning(); }));

  RequestStop();
  EXPECT_TRUE(Eventually([] { return !IsRestartPending(); }));
  release.set_value();
  acceptLoop.join();

  EXPECT_TRUE(paused);
  EXPECT_FALSE(pausedDuringRun);
}

}  // namespace
}  // namespace Tarnvale::KioskService
