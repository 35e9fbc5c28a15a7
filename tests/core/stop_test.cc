// Stopping the process, waking the service loop, and the pauses that both end.

#include "core/stop.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "core/clock.h"
#include "core/descriptor.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int64_t kDayMs = 86400000;

// A wait on a thread of its own, for tests in which it is ended from outside.
class Waiting {
 public:
  explicit Waiting(std::function<bool()> wait)
      : thread_([this, wait = std::move(wait)] {
          id_ = ThreadId();
          result_ = wait();
          ended_ = true;
        }) {
    EXPECT_TRUE(Eventually([this] { return IsStuck(); }));
  }
  ~Waiting() {
    if (!thread_.joinable()) return;
    StopThreads();
    thread_.join();
  }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  bool IsStuck() const {
    return id_ != 0 && !ended_ && IsAsleep(id_);
  }
  bool Result() {
    thread_.join();
    return result_;
  }

 private:
  std::atomic<pid_t> id_{0};
  std::atomic<bool> ended_{false};
  bool result_ = false;
  std::thread thread_;
};

class SleepUnlessStoppedTest : public ServiceTest {
 protected:
  const std::int64_t startMs = SteadyNowMs();
};

TEST_F(SleepUnlessStoppedTest, SleepsTheFullTimeWithoutAStop) {
  EXPECT_TRUE(SleepUnlessStopped(2000));

  EXPECT_EQ(SteadyNowMs() - startMs, 2000);
}

TEST_F(SleepUnlessStoppedTest, TakesNoTimeForNone) {
  EXPECT_TRUE(SleepUnlessStopped(0));

  EXPECT_EQ(SteadyNowMs(), startMs);
}

TEST_F(SleepUnlessStoppedTest, EndsAtOnceWhenAStopWasRequestedBefore) {
  RequestStop();

  EXPECT_FALSE(SleepUnlessStopped(2000));
  EXPECT_FALSE(SleepUnlessStopped(0));

  EXPECT_EQ(SteadyNowMs(), startMs);
}

TEST_F(SleepUnlessStoppedTest, EndsAsSoonAsAStopIsRequested) {
  TestClock::WaitForReal();
  Waiting sleeper([] { return SleepUnlessStopped(kDayMs); });

  RequestStop();

  EXPECT_FALSE(sleeper.Result());
}

TEST_F(SleepUnlessStoppedTest, GoesBackToSleepAfterANotificationAlone) {
  TestClock::WaitForReal();
  Waiting sleeper([] { return SleepUnlessStopped(2000); });
  ASSERT_TRUE(Eventually([] { return TestClock::WaitsBegun() == 1; }));

  TestClock::AdvanceMs(1999);
  WakeServiceLoop();
  EXPECT_TRUE(Eventually([] { return TestClock::WaitsBegun() == 2; }));

  TestClock::AdvanceMs(1);
  WakeServiceLoop();
  EXPECT_TRUE(sleeper.Result());
}

TEST_F(SleepUnlessStoppedTest, LeavesTheWakeUpToTheServiceLoop) {
  WakeServiceLoop();

  EXPECT_TRUE(SleepUnlessStopped(2000));

  EXPECT_TRUE(WaitForServicePass(-1));
}

class WaitForServicePassTest : public ServiceTest {
 protected:
  const std::int64_t startMs = SteadyNowMs();
};

TEST_F(WaitForServicePassTest, WaitsForItsDelay) {
  EXPECT_TRUE(WaitForServicePass(30000));

  EXPECT_EQ(SteadyNowMs() - startMs, 30000);
}

TEST_F(WaitForServicePassTest, EndsAtOnceForNoDelay) {
  EXPECT_TRUE(WaitForServicePass(0));

  EXPECT_EQ(SteadyNowMs(), startMs);
}

TEST_F(WaitForServicePassTest, RemembersAWakeUpThatCameBefore) {
  WakeServiceLoop();

  EXPECT_TRUE(WaitForServicePass(30000));

  EXPECT_EQ(SteadyNowMs(), startMs);
}

TEST_F(WaitForServicePassTest, RemembersAWakeUpWithoutATimerToo) {
  WakeServiceLoop();

  EXPECT_TRUE(WaitForServicePass(-1));
}

TEST_F(WaitForServicePassTest, TakesAllWakeUpsWithIt) {
  WakeServiceLoop();
  WakeServiceLoop();
  EXPECT_TRUE(WaitForServicePass(30000));

  EXPECT_TRUE(WaitForServicePass(30000));

  EXPECT_EQ(SteadyNowMs() - startMs, 30000);
}

TEST_F(WaitForServicePassTest, TakesAWakeUpWithItAlsoWhenItDoesNotWait) {
  WakeServiceLoop();
  EXPECT_TRUE(WaitForServicePass(0));

  EXPECT_TRUE(WaitForServicePass(30000));

  EXPECT_EQ(SteadyNowMs() - startMs, 30000);
}

TEST_F(WaitForServicePassTest, EndsAtOnceWhenAStopWasRequestedBefore) {
  RequestStop();
  WakeServiceLoop();

  for (const std::int64_t delayMs : {-1, 0, 30000})
    EXPECT_FALSE(WaitForServicePass(delayMs)) << delayMs;

  EXPECT_EQ(SteadyNowMs(), startMs);
}

TEST_F(WaitForServicePassTest, EndsATimedWaitWithAWakeUp) {
  TestClock::WaitForReal();
  Waiting loop([] { return WaitForServicePass(30000); });

  WakeServiceLoop();

  EXPECT_TRUE(loop.Result());
}

TEST_F(WaitForServicePassTest, EndsATimedWaitWithAStop) {
  TestClock::WaitForReal();
  Waiting loop([] { return WaitForServicePass(30000); });

  RequestStop();

  EXPECT_FALSE(loop.Result());
}

TEST_F(WaitForServicePassTest, WaitsWithoutATimerForANegativeDelay) {
  Waiting loop([] { return WaitForServicePass(-1); });

  TestClock::AdvanceMs(365 * kDayMs);
  EXPECT_TRUE(loop.IsStuck());
  EXPECT_EQ(SteadyNowMs() - startMs, 365 * kDayMs);

  WakeServiceLoop();
  EXPECT_TRUE(loop.Result());
}

TEST_F(WaitForServicePassTest, EndsAWaitWithoutATimerWithAStop) {
  Waiting loop([] { return WaitForServicePass(-1); });

  RequestStop();

  EXPECT_FALSE(loop.Result());
}

class RequestStopTest : public ServiceTest {
 protected:
  RequestStopTest() {
    EXPECT_TRUE(OpenPipe(pipe));
    EXPECT_EQ(::fcntl(pipe.readEnd.Get(), F_SETFL, O_NONBLOCK), 0);
  }
  ~RequestStopTest() override {
    SetStopDescriptor(-1);
  }

  std::string Written() const {
    char bytes[64];
    const ssize_t count = ::read(pipe.readEnd.Get(), bytes, sizeof bytes);
    return {bytes, count < 0 ? 0 : static_cast<std::size_t>(count)};
  }

  Pipe pipe;
};

TEST_F(RequestStopTest, WritesOneByteOfValueOne) {
  SetStopDescriptor(pipe.writeEnd.Get());

  RequestStop();

  EXPECT_EQ(Written(), "\x01");
}

TEST_F(RequestStopTest, WritesAgainEachTime) {
  SetStopDescriptor(pipe.writeEnd.Get());

  RequestStop();
  RequestStop();

  EXPECT_EQ(Written(), "\x01\x01");
}

TEST_F(RequestStopTest, WritesNothingWithoutADescriptor) {
  RequestStop();
  EXPECT_EQ(Written(), "");

  SetStopDescriptor(pipe.writeEnd.Get());
  SetStopDescriptor(-1);
  RequestStop();
  EXPECT_EQ(Written(), "");
  EXPECT_FALSE(SleepUnlessStopped(1));
}

TEST_F(RequestStopTest, EndsTheWaitOfEveryThread) {
  TestClock::WaitForReal();
  Waiting first([] { return SleepUnlessStopped(kDayMs); });
  Waiting second([] { return SleepUnlessStopped(kDayMs); });
  Waiting loop([] { return WaitForServicePass(-1); });

  RequestStop();

  EXPECT_FALSE(first.Result());
  EXPECT_FALSE(second.Result());
  EXPECT_FALSE(loop.Result());
}

TEST_F(RequestStopTest, IsDoneWithoutTheByteByStopThreads) {
  SetStopDescriptor(pipe.writeEnd.Get());

  StopThreads();

  EXPECT_EQ(Written(), "");
  EXPECT_FALSE(SleepUnlessStopped(1));
}

using ClearStopAndWakeTest = WaitForServicePassTest;

TEST_F(ClearStopAndWakeTest, ForgetsBoth) {
  RequestStop();
  WakeServiceLoop();

  ClearStopAndWake();

  EXPECT_TRUE(WaitForServicePass(30000));
  EXPECT_EQ(SteadyNowMs() - startMs, 30000);
}

}  // namespace
}  // namespace Tarnvale::KioskService
