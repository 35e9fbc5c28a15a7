// The accept loop, and the order in which everything stops.

#include "control/server.h"

#include <poll.h>
#include <pthread.h>

#include <csignal>
#include <ctime>
#include <future>

#include "control/server_fixture.h"
#include "core/clock.h"
#include "portal/restart.h"
#include "support/default_stack_size.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kStatusLine[] = "{\"cmd\":\"status\"}\n";

bool IsStatus(const std::string& reply) {
  return reply.starts_with(R"({"ok":true,"enrolled":)") && reply.ends_with("}\n");
}

bool IsStopRequested() {
  return !SleepUnlessStopped(0);
}

class AcceptLoopTest : public ServerFixture {
 protected:
  void SetUp() override {
    ServerFixture::SetUp();
    ASSERT_TRUE(OpenControlSocket());
  }
  // The first request to be handled waits inside until it is released. Said before Start.
  void HoldFirstHandler() {
    ops.sessionOfPid = [this](int, SessionInfo*) {
      if (handlersInside++ == 0) released.wait();
      return false;
    };
  }
  // A client whose request is being handled, and held.
  [[nodiscard]] Descriptor HeldClient() {
    Descriptor client = Connect();
    EXPECT_TRUE(SendOn(client, kStatusLine));
    EXPECT_TRUE(Eventually([this] { return handlersInside > 0; }));
    return client;
  }

  std::atomic<int> handlersInside = 0;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
};

TEST_F(AcceptLoopTest, SaysWhereItListens) {
  Start();

  EXPECT_TRUE(Eventually([&] { return !log.Text().empty(); }));
  EXPECT_EQ(log.Text(), "<6>listening on " + config.socket + "\n");
}

TEST_F(AcceptLoopTest, ServesOneConnectionAfterTheOther) {
  Start();

  for (int count = 0; count < 3; ++count)
    EXPECT_TRUE(IsStatus(Ask(kStatusLine)));
}

TEST_F(AcceptLoopTest, ServesAConnectionWhileAnotherOneIsBusy) {
  HoldFirstHandler();
  Start();
  const Descriptor busy = HeldClient();

  EXPECT_TRUE(IsStatus(Ask(kStatusLine)));
  EXPECT_TRUE(AreConnectionsRunning());

  release.set_value();
  EXPECT_TRUE(IsStatus(ReadOn(busy)));
  EXPECT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
}

TEST_F(AcceptLoopTest, KeepsConnectionsFromChildren) {
  const std::set<int> before = OpenDescriptors();
  HoldFirstHandler();
  Start();
  const Descriptor client = HeldClient();

  int opened = 0;
  for (const int fd : OpenDescriptors()) {
    if (before.contains(fd)) continue;
    ++opened;
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
  }

  EXPECT_EQ(opened, 2) << "the client and its connection";
  release.set_value();
}

TEST_F(AcceptLoopTest, StartsTheServiceLoop) {
  Enrol();
  portal.IsUnreachable(kCheckInPath);

  Start();

  EXPECT_TRUE(Eventually([&] { return portal.CallsTo(kCheckInPath) > 0; }));
}

TEST_F(AcceptLoopTest, StartsTheSessionWatcher) {
  Start();
  // All three threads have looked and wait; the watcher and the updates loop wait for a time.
  ASSERT_TRUE(Eventually([] { return TestClock::WaitsBegun() > 1; }));
  EXPECT_EQ(calls.Count("listSessions"), 0);

  TestClock::AdvanceMs(2000);
  WakeServiceLoop();

  EXPECT_TRUE(Eventually([&] { return calls.Count("listSessions") > 0; }));
}

// A loop that serves already, and signals that interrupt its poll.
class InterruptedAcceptLoop : public AcceptLoopTest {
 protected:
  void SetUp() override {
    AcceptLoopTest::SetUp();
    struct sigaction action = {};
    action.sa_handler = [](int) { ++signalsTaken; };
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    Start();
    ASSERT_TRUE(IsStatus(Ask(kStatusLine)));
    ASSERT_TRUE(Eventually([] { return TestClock::WaitsBegun() > 1; }));
  }
  void Interrupt() {
    const int before = signalsTaken;
    ASSERT_EQ(::pthread_kill(acceptLoop.native_handle(), SIGUSR1), 0);
    ASSERT_TRUE(Eventually([before] { return signalsTaken > before; }));
  }

  inline static std::atomic<int> signalsTaken = 0;
};

TEST_F(InterruptedAcceptLoop, PollsAgain) {
  for (int count = 0; count < 10; ++count)
    Interrupt();

  EXPECT_TRUE(IsStatus(Ask(kStatusLine)));
  EXPECT_FALSE(loopEnded);
}

TEST_F(InterruptedAcceptLoop, StopsAsIfAskedToWhenItCannotPoll) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizers of this build take descriptors for their own tests";
#endif
  {
    // poll refuses more entries than a process may have descriptors.
    const DescriptorLimit limit = DescriptorLimit::Total(1);
    Interrupt();
    acceptLoop.join();
  }

  EXPECT_EQ(log.Text(),
            "<6>listening on " + config.socket + "\n<3>poll failed (Invalid argument)\n");
  EXPECT_TRUE(IsStopRequested());
  EXPECT_FALSE(Exists(config.socket));
}

std::int64_t CpuNanoseconds(std::thread& thread) {
  clockid_t clock = 0;
  timespec used = {};
  EXPECT_EQ(::pthread_getcpuclockid(thread.native_handle(), &clock), 0);
  EXPECT_EQ(::clock_gettime(clock, &used), 0);
  return used.tv_sec * 1'000'000'000 + used.tv_nsec;
}

// A loop that serves already, and what it does for a client when something runs out.
class ScarceAcceptLoop : public AcceptLoopTest {
 protected:
  void SetUp() override {
    AcceptLoopTest::SetUp();
    Start();
    ASSERT_TRUE(IsStatus(Ask(kStatusLine)));
    ASSERT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
  }
  // What a client reads while the process may have this many descriptors more than before.
  std::string AskWithDescriptors(int more) {
    const Descriptor client = MakeClient();
    const DescriptorLimit limit = DescriptorLimit::More(more);
    EXPECT_TRUE(Connect(client));
    return SendOn(client, kStatusLine) ? ReadOn(client) : std::string();
  }
};

TEST_F(ScarceAcceptLoop, TriesAgainWhileThereIsNoDescriptorForAConnection) {
  const Descriptor client = MakeClient();
  {
    const DescriptorLimit limit = DescriptorLimit::More(0);
    ASSERT_TRUE(Connect(client));
    // The loop tries again and again, which costs processor time and nothing else.
    const std::int64_t before = CpuNanoseconds(acceptLoop);
    EXPECT_TRUE(Eventually([&] { return CpuNanoseconds(acceptLoop) > before + 5'000'000; }));
    EXPECT_FALSE(AreConnectionsRunning());
    EXPECT_FALSE(loopEnded);
  }

  EXPECT_TRUE(SendOn(client, kStatusLine));
  EXPECT_TRUE(IsStatus(ReadOn(client)));
  EXPECT_EQ(log.Text(), "<6>listening on " + config.socket + "\n");
}

TEST_F(ScarceAcceptLoop, KeepsTheLastSixteenDescriptorsForTheServiceItself) {
  EXPECT_EQ(AskWithDescriptors(16), "");
  EXPECT_TRUE(IsStatus(AskWithDescriptors(17)));

  EXPECT_TRUE(IsStatus(Ask(kStatusLine)));
  EXPECT_EQ(log.Text(), "<6>listening on " + config.socket + "\n");
}

TEST_F(ScarceAcceptLoop, ClosesAPeerUnheardWhenThereIsNoThreadForIt) {
  {
    const DefaultStackSize stacks(kImpossibleStackBytes);
    EXPECT_EQ(Ask(kStatusLine), "");
    EXPECT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
  }

  EXPECT_TRUE(IsStatus(Ask(kStatusLine)));
}

TEST_F(AcceptLoopTest, EndsOnAStopAndRemovesTheSocket) {
  Start();
  ASSERT_TRUE(IsStatus(Ask(kStatusLine)));

  Stop();

  EXPECT_FALSE(Exists(config.socket));
  EXPECT_FALSE(Connect().IsOpen());
  EXPECT_FALSE(AreConnectionsRunning());
  EXPECT_TRUE(IsStopRequested());
}

TEST_F(AcceptLoopTest, LetsNoPendingConnectionDelayAStop) {
  const Descriptor client = Connect();
  ASSERT_TRUE(SendOn(client, kStatusLine));
  RequestStop();

  AcceptLoop();

  EXPECT_EQ(ReadOn(client), "");
  EXPECT_EQ(calls.Count("sessionOfPid"), 0);
}

TEST_F(AcceptLoopTest, JoinsTheServiceLoopBeforeItForgetsTheRestart) {
  Enrol();
  std::atomic<bool> restartWasKept = true;
  std::atomic<bool> inPass = false;
  portal.AnswersWith(kCheckInPath, [&](const PortalCall&) {
    inPass = true;
    EXPECT_TRUE(Eventually(IsStopRequested));
    // A stop that did not wait for this pass would be past the restart by now.
    for (int count = 0; count < 100; ++count) {
      restartWasKept = restartWasKept && IsRestartPending() && Exists(config.socket);
      std::this_thread::yield();
    }
    return Http{.ok = false, .status = 0, .body = {}, .error = "cut"};
  });
  ScheduleRestart();
  Start();
  ASSERT_TRUE(Eventually([&] { return inPass.load(); }));

  Stop();

  EXPECT_TRUE(restartWasKept);
  EXPECT_FALSE(IsRestartPending());
}

TEST_F(AcceptLoopTest, JoinsTheSessionWatcherBeforeItForgetsTheRestart) {
  std::atomic<bool> restartWasKept = true;
  std::atomic<bool> inTick = false;
  ops.listSessions = [&] {
    inTick = true;
    EXPECT_TRUE(Eventually(IsStopRequested));
    for (int count = 0; count < 100; ++count) {
      restartWasKept = restartWasKept && IsRestartPending() && Exists(config.socket);
      std::this_thread::yield();
    }
    return std::vector<SessionInfo>();
  };
  Start();
  ASSERT_TRUE(Eventually([] { return TestClock::WaitsBegun() > 1; }));
  TestClock::AdvanceMs(2000);
  ScheduleRestart();
  WakeServiceLoop();
  ASSERT_TRUE(Eventually([&] { return inTick.load(); }));

  Stop();

  EXPECT_TRUE(restartWasKept);
}

TEST_F(AcceptLoopTest, ForgetsAScheduledRestart) {
  ops.reboot = [] { return true; };
  Start();
  ScheduleRestart();

  Stop();

  EXPECT_FALSE(IsRestartPending());
  EXPECT_EQ(calls.Count("reboot"), 0);
}

TEST_F(AcceptLoopTest, ForgetsTheRestartBeforeItWaitsForConnections) {
  ScheduleRestart();
  bool restartPending = true;
  bool socketExists = false;
  bool listens = false;
  TestClock::BeforeWaits([&](std::int64_t milliseconds) {
    if (milliseconds != 10) return;  // another wait than the one for the connections
    restartPending = IsRestartPending();
    socketExists = Exists(config.socket);
    listens = Connect().IsOpen();
    TestClock::AdvanceMs(30000);
  });
  HoldFirstHandler();
  Start();
  const Descriptor client = HeldClient();

  Stop();

  EXPECT_FALSE(restartPending);
  EXPECT_TRUE(socketExists && listens) << "the socket goes last";
  release.set_value();
}

// The pauses while a stop waits for connections. The first takes almost all of the time.
class WaitForConnections : public AcceptLoopTest {
 protected:
  void SetUp() override {
    AcceptLoopTest::SetUp();
    TestClock::BeforeWaits([this](std::int64_t milliseconds) {
      if (milliseconds != 10) return;  // another wait
      if (++pauses == 1) TestClock::AdvanceMs(29'980);
      if (pauses == 2 && inLastPause) inLastPause();
    });
    HoldFirstHandler();
    Start();
    client = HeldClient();
  }

  int pauses = 0;
  std::function<void()> inLastPause;
  Descriptor client;
};

TEST_F(WaitForConnections, EndsWithTheConnection) {
  inLastPause = [this] {
    release.set_value();
    EXPECT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
  };

  Stop();

  EXPECT_EQ(pauses, 2);
  EXPECT_TRUE(IsStatus(ReadOn(client)));
  EXPECT_FALSE(AreConnectionsRunning());
}

TEST_F(WaitForConnections, AbandonsTheConnectionAfterThirtySeconds) {
  const std::int64_t before = SteadyNowMs();

  Stop();

  EXPECT_EQ(pauses, 2);
  EXPECT_EQ(SteadyNowMs() - before, 30'000);
  EXPECT_TRUE(AreConnectionsRunning());
  EXPECT_FALSE(Exists(config.socket));
  release.set_value();
  EXPECT_TRUE(IsStatus(ReadOn(client)));
}

TEST_F(AcceptLoopTest, LetsAConnectionRunItsActionWithinThatTime) {
  ScheduleRestart();
  CallerIsIn(PersonSession());
  ops.reboot = [this] {
    ++handlersInside;
    released.wait();
    return true;
  };
  TestClock::BeforeWaits([this](std::int64_t milliseconds) {
    if (milliseconds != 10) return;
    release.set_value();
    EXPECT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
  });
  Start();
  EXPECT_EQ(Ask("{\"cmd\":\"restart.now\"}\n"), "{\"ok\":true}\n");
  ASSERT_TRUE(Eventually([this] { return handlersInside > 0; }));

  Stop();

  EXPECT_EQ(calls.Count("reboot"), 1);
  EXPECT_FALSE(AreConnectionsRunning());
}

}  // namespace
}  // namespace Tarnvale::KioskService
