// The life of the service in one process: signals in place, a start, a stop, and the exit status.

#include "core/run_service.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <mutex>
#include <regex>
#include <thread>

#include "control/server_fixture.h"
#include "core/build_stamp.h"
#include "device/updates.h"
#include "portal/restart.h"
#include "support/service_test.h"
#include "support/test_clock.h"
#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

const std::string kStarting = "<6>tarnvale-kioskd " + std::string(kBuildStamp) + " starting";
constexpr char kStopped[] = "<6>tarnvale-kioskd stopped";

// What makeOps, a plain function, hands to the service.
Ops* platform = nullptr;
SlotCalls* platformCalls = nullptr;
std::function<void()> beforeOps = [] {};

Ops MakeOps(const Config& /*config*/) {
  beforeOps();
  return ForwardingOps(*platform, *platformCalls);
}

struct sigaction ActionOf(int signal) {
  struct sigaction action = {};
  EXPECT_EQ(::sigaction(signal, nullptr, &action), 0);
  return action;
}

class RunServiceTest : public ServerFixture {
 protected:
  RunServiceTest() {
    platform = &ops;
    platformCalls = &calls;
    ops.exePathOfPid = [](int) { return std::string("/usr/bin/env"); };
    ops.bootTime = [] { return 0L; };
    ops.rebootRequired = [] { return false; };
  }

  // Runs the service on this thread, and once it listens does `meanwhile` and sends the signal.
  int RunUntil(
      int signal, const std::function<void()>& meanwhile = [] {}) {
    std::thread stopping([this, signal, &meanwhile] {
      EXPECT_TRUE(Eventually([this] { return log.Has("<6>listening on " + config.socket); }));
      meanwhile();
      EXPECT_EQ(::kill(::getpid(), signal), 0);
    });
    const int status = RunService(config, MakeOps);
    stopping.join();
    return status;
  }
};

TEST_F(RunServiceTest, ServesUntilASignalStopsIt) {
  EXPECT_EQ(RunUntil(SIGTERM), 0);

  EXPECT_EQ(log.Lines().front(), kStarting);
  EXPECT_EQ(log.Lines().back(), kStopped);
  EXPECT_FALSE(Exists(config.socket));
}

TEST_F(RunServiceTest, IsStoppedByAnInterruptToo) {
  EXPECT_EQ(RunUntil(SIGINT), 0);

  EXPECT_EQ(log.Lines().back(), kStopped);
}

// The pipe that a signal writes to is made after the start, so all that such a signal leaves is the
// flag: the loops end on it, the accept loop does not see it.
TEST_F(RunServiceTest, ServesOnAfterASignalDuringItsStartUntilTheNextOne) {
  Enrol();
  ops.exePathOfPid = [](int) { return std::string(); };  // admits whoever runs the tests
  ops.listSessions = [] {
    EXPECT_EQ(::raise(SIGTERM), 0);
    return std::vector<SessionInfo>();
  };
  std::string reply;

  EXPECT_EQ(RunUntil(SIGTERM, [&] { reply = Ask("{\"cmd\":\"status\"}\n"); }), 0);

  EXPECT_TRUE(reply.starts_with(R"({"ok":true,"enrolled":true)")) << reply;
  EXPECT_EQ(calls.Count("http"), 0) << "the service loop has seen the stop";
  EXPECT_EQ(log.Lines().back(), kStopped);
}

// The accept loop forgets the restart before it waits for the connections, and one of those may arm
// it again.
TEST_F(RunServiceTest, ForgetsARestartThatIsScheduledWhileItStops) {
  std::mutex handing;  // of the connection, from the thread that makes it
  Descriptor silent;
  TestClock::BeforeWaits([&](std::int64_t milliseconds) {
    if (milliseconds != 10) return;  // another wait than the one for the connections
    ScheduleRestart();
    {
      const std::lock_guard lock(handing);
      (void)silent.Close();  // nothing is sent on it
    }
    EXPECT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
  });

  EXPECT_EQ(RunUntil(SIGTERM,
                     [&] {
                       {
                         const std::lock_guard lock(handing);
                         silent = Connect();
                       }
                       EXPECT_TRUE(Eventually(AreConnectionsRunning));
                     }),
            0);

  EXPECT_TRUE(log.Has("<6>enrolled: restarting into kiosk mode in 10 s"));
  EXPECT_FALSE(IsRestartPending());
}

// Whatever call a signal comes in between must find its own error afterwards.
TEST_F(RunServiceTest, KeepsErrnoThroughASignal) {
  config.stateDir = "";
  beforeOps = [] {
    SetStopDescriptor(1 << 20);  // not open, so writing the byte fails
    errno = E2BIG;
    EXPECT_EQ(::raise(SIGTERM), 0);
    EXPECT_EQ(errno, E2BIG);
    SetStopDescriptor(-1);
  };

  EXPECT_EQ(RunService(config, MakeOps), 1);
}

TEST_F(RunServiceTest, WaitsForARunThatAConnectionStartedWhileItStopped) {
  std::promise<void> release;
  std::atomic<bool> started = false;
  ops.runUpdates = [&release](bool, std::vector<OsUpdate>*, std::atomic<int>*) {
    release.get_future().wait();
    return WuRun{.result = 1, .error = {}};
  };
  TestClock::BeforeWaits([&started](std::int64_t milliseconds) {
    if (milliseconds != 10 || started.exchange(true)) return;
    EXPECT_TRUE(StartWuRun(true));  // the accept loop has joined the settings worker before
    TestClock::AdvanceMs(30'000);
  });
  std::thread stopping([&] {
    EXPECT_TRUE(Eventually([this] { return log.Has("<6>listening on " + config.socket); }));
    const Descriptor client = Connect();
    EXPECT_TRUE(Eventually([] { return AreConnectionsRunning(); }));
    EXPECT_EQ(::kill(::getpid(), SIGTERM), 0);
    EXPECT_TRUE(Eventually([this] { return !Exists(config.socket); }));
    EXPECT_FALSE(log.Has(kStopped));
    release.set_value();
  });

  EXPECT_EQ(RunService(config, MakeOps), 0);

  stopping.join();
  EXPECT_TRUE(started);
  EXPECT_TRUE(TryBeginUpdates()) << "the run has ended";
  EXPECT_EQ(log.Lines().back(), kStopped);
  EXPECT_TRUE(Eventually([] { return !AreConnectionsRunning(); }));
}

TEST_F(RunServiceTest, CarriesAStampOfTheBuildsTime) {
  EXPECT_TRUE(std::regex_match(kBuildStamp, std::regex("\\d{4}-\\d\\d-\\d\\d-\\d{4}")))
      << kBuildStamp;
}

TEST_F(RunServiceTest, HandlesItsSignalsBeforeItTouchesThePlatform) {
  config.stateDir = "";
  beforeOps = [] {
    for (const int signal : {SIGTERM, SIGINT}) {
      const struct sigaction action = ActionOf(signal);
      EXPECT_NE(action.sa_handler, SIG_DFL) << signal;
      EXPECT_EQ(action.sa_flags & SA_RESTART, 0) << signal;
      EXPECT_TRUE(sigisemptyset(&action.sa_mask)) << signal;
    }
    EXPECT_EQ(ActionOf(SIGPIPE).sa_handler, SIG_IGN);
    EXPECT_EQ(ActionOf(SIGHUP).sa_handler, SIG_DFL);
  };

  EXPECT_EQ(RunService(config, MakeOps), 1);
}

TEST_F(RunServiceTest, FailsWithoutItsDirectories) {
  config.stateDir = dir.At("file");
  config.runDir = dir.At("absent/run");

  EXPECT_EQ(RunService(config, MakeOps), 1);

  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{
                kStarting, "<3>cannot create " + config.runDir + " (No such file or directory)",
                "<3>cannot prepare " + config.stateDir}));
}

TEST_F(RunServiceTest, FailsWithoutItsSocket) {
  config.socket = "/" + std::string(107, 'x');

  EXPECT_EQ(RunService(config, MakeOps), 1);

  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{kStarting, "<6>enrolled=0 provisioned=0 maintenance=0"}));
}

}  // namespace
}  // namespace Tarnvale::KioskService
