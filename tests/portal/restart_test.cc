#include "portal/restart.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "core/clock.h"
#include "core/stop.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kArmedLine[] = "<6>enrolled: restarting into kiosk mode in 10 s";
constexpr char kRestartLine[] = "<6>restarting into kiosk mode (enrolled)";
constexpr char kRestartNowLine[] = "<6>restarting into kiosk mode (Restart now)";
constexpr char kFailedLine[] = "<3>the restart into kiosk mode could not be started";

class RestartTest : public ServiceTest {
 protected:
  RestartTest() {
    ops.reboot = [this] {
      EXPECT_FALSE(IsRestartPending());  // and the lock is free while the platform restarts
      rebootedAtMs.store(SteadyNowMs());
      reboots.fetch_add(1);
      return rebootSucceeds;
    };
  }

  void TearDown() override {
    StopThreads();
    StopScheduledRestart();
  }

  [[nodiscard]] bool RestartThreadHasEnded() const {
    return Eventually([this] { return ThreadCount() == threadsAtStart; });
  }

  // With the clock's real waits: arms the restart, and returns when its thread waits.
  static void ScheduleAndSeeItWait() {
    const int waits = TestClock::WaitsBegun();
    ScheduleRestart();
    EXPECT_TRUE(Eventually([waits] { return TestClock::WaitsBegun() > waits; }));
  }

  // With the clock's real waits: moves it in steps that the restart thread looks at one by one.
  void AdvanceStepwise(std::int64_t milliseconds) {
    constexpr std::int64_t kStepMs = 125;
    for (std::int64_t movedMs = 0; movedMs < milliseconds && reboots == 0; movedMs += kStepMs) {
      const int waits = TestClock::WaitsBegun();
      TestClock::AdvanceMs(std::min(kStepMs, milliseconds - movedMs));
      WakeServiceLoop();  // no reason for the thread to go on, but one to look at the clock
      EXPECT_TRUE(Eventually(
          [&] { return TestClock::WaitsBegun() > waits || ThreadCount() == threadsAtStart; }));
    }
  }

  const int threadsAtStart = ThreadCountAtStart();
  std::atomic<int> reboots{0};
  std::atomic<std::int64_t> rebootedAtMs{0};
  bool rebootSucceeds = true;
};

TEST_F(RestartTest, ComesTenSecondsAfterItWasScheduled) {
  const std::int64_t startMs = SteadyNowMs();

  ScheduleRestart();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 1);
  EXPECT_EQ(rebootedAtMs - startMs, 10'000);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kArmedLine, kRestartLine}));
  EXPECT_FALSE(IsRestartPending());
}

TEST_F(RestartTest, DoesNotComeAMillisecondEarlier) {
  TestClock::WaitForReal();
  ScheduleAndSeeItWait();

  AdvanceStepwise(9'999);
  EXPECT_EQ(reboots, 0);
  EXPECT_TRUE(IsRestartPending());

  AdvanceStepwise(1);
  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 1);
}

TEST_F(RestartTest, SaysWhenThePlatformDidNotAcceptIt) {
  rebootSucceeds = false;

  ScheduleRestart();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kArmedLine, kRestartLine, kFailedLine}));
  EXPECT_EQ(reboots, 1);
  EXPECT_FALSE(IsRestartPending());
}

TEST_F(RestartTest, ComesLaterWhenItIsScheduledAgain) {
  TestClock::WaitForReal();
  const std::int64_t startMs = SteadyNowMs();
  ScheduleAndSeeItWait();
  const int threads = ThreadCount();
  AdvanceStepwise(6'000);
  TestClock::AdvanceMs(1);

  ScheduleRestart();

  EXPECT_EQ(ThreadCount(), threads);
  AdvanceStepwise(249);  // the thread wakes every quarter second, so also a millisecond too early
  AdvanceStepwise(9'750);
  EXPECT_EQ(reboots, 0);
  AdvanceStepwise(1);
  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(rebootedAtMs - startMs, 16'001);
  EXPECT_EQ(reboots, 1);
  EXPECT_EQ(log.Count(kArmedLine), 2);
}

TEST_F(RestartTest, CanBeScheduledAgainAfterItsThreadHasEnded) {
  ScheduleRestart();
  EXPECT_TRUE(RestartThreadHasEnded());
  const std::int64_t againMs = SteadyNowMs();

  ScheduleRestart();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 2);
  EXPECT_EQ(rebootedAtMs - againMs, 10'000);
  EXPECT_EQ(log.Count(kRestartLine), 2);
}

TEST_F(RestartTest, IsNotLostWhenItIsScheduledWhileItsThreadIsAboutToEnd) {
  // The thread had taken its deadline and counted as running, so that nobody waited for the new
  // one.
  ops.reboot = [this] {
    if (reboots.fetch_add(1) == 0) ScheduleRestart();
    return false;
  };

  ScheduleRestart();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 2);
  EXPECT_FALSE(IsRestartPending());
}

TEST_F(RestartTest, IsForgottenByAStopAlsoWhenItIsScheduledWhileItsThreadIsAboutToEnd) {
  ops.reboot = [this] {
    reboots.fetch_add(1);
    ScheduleRestart();
    StopThreads();
    return false;
  };

  ScheduleRestart();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 1);
}

TEST_F(RestartTest, ComesAtOnceWithItsReasonWhenItIsBroughtForward) {
  TestClock::WaitForReal();
  ScheduleAndSeeItWait();
  EXPECT_TRUE(IsRestartPending());

  RestartIntoKiosk("Restart now");

  EXPECT_EQ(reboots, 1);
  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{kArmedLine, kRestartNowLine}));
}

TEST_F(RestartTest, ComesOnceAlthoughTwoAreReadyForIt) {
  TestClock::WaitForReal();
  ScheduleAndSeeItWait();
  RestartIntoKiosk("Restart now");

  TestClock::AdvanceMs(20'000);
  WakeServiceLoop();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 1);
  EXPECT_FALSE(log.Has(kRestartLine));
}

TEST_F(RestartTest, ThreadSeesWithinAQuarterSecondThatTheRestartIsTaken) {
  TestClock::WaitForReal();
  ScheduleAndSeeItWait();
  RestartIntoKiosk("Restart now");

  TestClock::AdvanceMs(250);
  WakeServiceLoop();

  EXPECT_TRUE(RestartThreadHasEnded());
}

TEST_F(RestartTest, ComesOnceWhenManyBringItForwardAtTheSameTime) {
  ScheduleRestart();
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([] { RestartIntoKiosk("Restart now"); });
  for (std::thread& thread : threads)
    thread.join();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 1);
}

TEST_F(RestartTest, IsNotPendingUntilItIsScheduled) {
  EXPECT_FALSE(IsRestartPending());

  RestartIntoKiosk("Restart now");

  EXPECT_EQ(reboots, 0);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RestartTest, IsForgottenByAStop) {
  TestClock::WaitForReal();
  ScheduleAndSeeItWait();

  StopThreads();
  StopScheduledRestart();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(reboots, 0);
  EXPECT_FALSE(log.Has(kRestartLine));
}

TEST_F(RestartTest, ThreadEndsWithTheStopAlone) {
  TestClock::WaitForReal();
  ScheduleAndSeeItWait();

  StopThreads();

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 0);
}

TEST_F(RestartTest, NeedsNoThreadToBeStopped) {
  StopScheduledRestart();
  StopScheduledRestart();

  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RestartTest, IsForgottenByClearRestart) {
  TestClock::WaitForReal();
  ScheduleAndSeeItWait();

  ClearRestart();
  EXPECT_FALSE(IsRestartPending());
  AdvanceStepwise(250);

  EXPECT_TRUE(RestartThreadHasEnded());
  EXPECT_EQ(reboots, 0);
}

}  // namespace
}  // namespace Tarnvale::KioskService
