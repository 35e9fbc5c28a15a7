// The service loop's thread: when its passes come, and what ends it.

#include "core/service_loop.h"

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "core/clock.h"
#include "core/state.h"
#include "core/stop.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

class ServiceLoopTest : public ServiceTest {
 protected:
  ServiceLoopTest() {
    Provision();
    ops.dropAdminGroups = [] {};
  }
  ~ServiceLoopTest() override {
    RequestStop();
    if (loop.joinable()) loop.join();
  }

  // Every pass notes its time and does `action` with its number, the first of which is 1, while its
  // exchange with the portal lasts.
  void EachPass(bool answered, std::function<void(std::size_t pass)> action) {
    portal.AnswersWith(kCheckInPath, [this, answered, action](const PortalCall&) {
      timesMs.push_back(SteadyNowMs() - TestClock::kStartSteadyMs);
      action(timesMs.size());
      return Http{.ok = answered, .status = 200, .body = R"({"status":"enrolled"})", .error = {}};
    });
  }
  static std::function<void(std::size_t)> StopAt(std::size_t last) {
    return [last](std::size_t pass) {
      if (pass == last) RequestStop();
    };
  }
  // Runs the loop on its own thread until it waits for nobody knows how long.
  void StartAndLetWait() {
    loop = std::thread([this] {
      id = ThreadId();
      ServiceLoop();
      ended = true;
    });
    EXPECT_TRUE(Eventually([this] { return id != 0 && IsAsleep(id); }));
  }

  std::vector<std::int64_t> timesMs;  // Since the start of the test.
  std::thread loop;
  std::atomic<pid_t> id{0};
  std::atomic<bool> ended{false};
};

TEST_F(ServiceLoopTest, MakesItsFirstPassAtOnceAndOneEvery30Seconds) {
  Enrol();
  EachPass(true, StopAt(4));

  ServiceLoop();

  EXPECT_EQ(timesMs, (std::vector<std::int64_t>{0, 30000, 60000, 90000}));
}

TEST_F(ServiceLoopTest, MakesThemLessOftenWhileThePortalIsGone) {
  Enrol();
  EachPass(false, StopAt(8));

  ServiceLoop();

  EXPECT_EQ(timesMs,
            (std::vector<std::int64_t>{0, 30000, 90000, 210000, 450000, 930000, 1530000, 2130000}));
}

TEST_F(ServiceLoopTest, MakesNoPassAfterAStop) {
  Enrol();
  RequestStop();

  ServiceLoop();

  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(ServiceLoopTest, EndsAPassThatAStopFinds) {
  Enrol();
  EachPass(true, StopAt(1));

  ServiceLoop();

  EXPECT_EQ(timesMs.size(), 1U);
  EXPECT_EQ(calls.Names().back(), "lookupKioskAccount");
  EXPECT_EQ(calls.Count("dropAdminGroups"), 1);
}

TEST_F(ServiceLoopTest, PassesAgainAtOnceWhenWokenDuringAPass) {
  Enrol();
  EachPass(true, [](std::size_t pass) {
    if (pass == 1) WakeServiceLoop();
    if (pass == 3) RequestStop();
  });

  ServiceLoop();

  EXPECT_EQ(timesMs, (std::vector<std::int64_t>{0, 0, 30000}));
}

TEST_F(ServiceLoopTest, AsksThePortalForNothingWhileItIsIdle) {
  StartAndLetWait();

  TestClock::AdvanceMs(86400000);

  EXPECT_TRUE(IsAsleep(id));
  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(ServiceLoopTest, ChecksInAsSoonAsAPairingWakesIt) {
  StartAndLetWait();
  TestClock::AdvanceMs(5000);
  EachPass(true, StopAt(3));

  Enrol();
  WakeServiceLoop();
  loop.join();

  EXPECT_EQ(timesMs, (std::vector<std::int64_t>{5000, 35000, 65000}));
}

TEST_F(ServiceLoopTest, GoesBackToSleepWhenWokenForNothing) {
  StartAndLetWait();

  WakeServiceLoop();

  EXPECT_TRUE(Eventually([this] { return IsAsleep(id); }));
  EXPECT_FALSE(ended);
  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(ServiceLoopTest, EndsAtOnceWhenStoppedWhileIdle) {
  StartAndLetWait();

  RequestStop();
  loop.join();

  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(ServiceLoopTest, EndsAtOnceWhenStoppedDuringAWait) {
  TestClock::WaitForReal();
  Enrol();
  EachPass(true, [](std::size_t) {});
  StartAndLetWait();
  ASSERT_TRUE(Eventually([] { return TestClock::WaitsBegun() == 1; }));

  RequestStop();
  loop.join();

  EXPECT_EQ(timesMs, std::vector<std::int64_t>{0});
}

TEST_F(ServiceLoopTest, FallsIdleWhenTheTokenGoes) {
  Enrol();
  EachPass(true, [](std::size_t pass) {
    if (pass == 2) StateClear(StateKey::kDeviceToken);
  });

  StartAndLetWait();
  EXPECT_TRUE(Eventually([this] { return calls.Count("http") == 2 && IsAsleep(id); }));
  RequestStop();
  loop.join();

  EXPECT_EQ(timesMs, (std::vector<std::int64_t>{0, 30000}));
}

TEST_F(ServiceLoopTest, FallsIdleAfterTheAccountOfARemovalIsGone) {
  RemovalWorks();
  StateSetInt(StateKey::kTeardownPending, 1);
  ops.deleteKioskAccount = [this] {
    timesMs.push_back(SteadyNowMs() - TestClock::kStartSteadyMs);
    return timesMs.size() == 3;
  };

  StartAndLetWait();
  EXPECT_TRUE(
      Eventually([this] { return calls.Count("deleteKioskAccount") == 3 && IsAsleep(id); }));
  RequestStop();
  loop.join();

  EXPECT_EQ(timesMs, (std::vector<std::int64_t>{0, 30000, 60000}));
  EXPECT_EQ(calls.Count("http"), 0);
}

TEST_F(ServiceLoopTest, FallsIdleWhenThePortalRevokesTheTerminal) {
  Enrol();
  RemovalWorks();
  portal.Answers(kCheckInPath, 401, R"({"status":"revoked"})");

  StartAndLetWait();
  EXPECT_TRUE(
      Eventually([this] { return calls.Count("deleteKioskAccount") == 1 && IsAsleep(id); }));
  RequestStop();
  loop.join();

  EXPECT_EQ(calls.Count("http"), 1);
}

}  // namespace
}  // namespace Tarnvale::KioskService
