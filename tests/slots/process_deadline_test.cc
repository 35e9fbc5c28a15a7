// The deadline of a run, and the waiting after it.

#include <pthread.h>
#include <signal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "device/process_linux.h"
#include "slots/support/system_stand_ins.h"
#include "slots/support/tool_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kTimeoutMs = 10'000;

class RunProcessDeadline : public ToolTest {
 protected:
  // A thread that lets the tool go on, once the runner has told that it gave the tool up.
  std::thread ReleaseWhenStopped(const Gate& gate) {
    return std::thread([this, &gate] {
      EXPECT_TRUE(WaitFor([this] { return !log.Text().empty(); }));
      EXPECT_FALSE(Exists(directory.At("end")));
      gate.Tell();
    });
  }

  [[nodiscard]] static std::string StopLine(const std::string& tool, const std::string& seconds) {
    return "<3>" + tool + " did not finish in " + seconds + " s; stopped\n";
  }
};

TEST_F(RunProcessDeadline, EndsTheToolAndKeepsWhatItPrinted) {
  const Gate gate(directory.At("gate"));
  const std::string tool = MakeTool("tool", "echo before\necho ready >&3\nread _ < $here/gate");

  const ProcResult run = RunPastReady(tool, kTimeoutMs, kTimeoutMs);

  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(run.output, "before\n");
  EXPECT_EQ(log.Text(), StopLine(tool, "10"));
}

TEST_F(RunProcessDeadline, HasNotPassedWhileAMillisecondIsLeft) {
  const std::string tool = MakeTool("tool", "echo ready >&3\nexit 4");

  const ProcResult run = RunPastReady(tool, kTimeoutMs, kTimeoutMs - 1);

  EXPECT_EQ(run.status, 4);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunProcessDeadline, EndsTheWholeGroup) {
  const Gate gate(directory.At("gate"));
  const LifeLine lives(directory.At("lives"));
  const std::string tool = MakeTool("tool",
                                    "exec 9> $here/lives\n"
                                    "( echo ready >&3; cat $here/gate ) &\n"
                                    "cat $here/gate");

  EXPECT_EQ(RunPastReady(tool, kTimeoutMs, kTimeoutMs).status, -1);

  EXPECT_TRUE(lives.WaitUntilAllAreGone());
}

TEST_F(RunProcessDeadline, EndsAGrandchildThatHoldsTheOutputOfAToolThatLeft) {
  const Gate gate(directory.At("gate"));
  const LifeLine lives(directory.At("lives"));
  const std::string tool =
      MakeTool("tool", "exec 9> $here/lives\n( echo ready >&3; read _ < $here/gate ) &\nexit 0");

  EXPECT_EQ(RunPastReady(tool, kTimeoutMs, kTimeoutMs).status, -1);

  EXPECT_TRUE(lives.WaitUntilAllAreGone());
}

TEST_F(RunProcessDeadline, AsksTheToolToEndWithTheTerminationSignal) {
  // A shell looks for signals between two commands, so this one counts instead of waiting.
  const std::string tool = MakeTool("tool",
                                    "trap 'echo told > $here/end; exit 0' TERM\n"
                                    "echo ready >&3\n"
                                    "count=0\n"
                                    "while [ $count -lt 10000000 ]; do count=$((count+1)); done");

  const ProcResult run = RunPastReady(tool, kTimeoutMs, kTimeoutMs);

  EXPECT_EQ(run.status, -1);
  EXPECT_TRUE(Exists(directory.At("end")));
}

TEST_F(RunProcessDeadline, HoldsTheCallerUntilAToolThatIgnoresItExits) {
  const Gate gate(directory.At("gate"));
  const std::string tool = MakeTool("tool",
                                    "trap '' TERM\n"
                                    "echo ready >&3\n"
                                    "read _ < $here/gate\n"
                                    "echo x > $here/end\n"
                                    "exit 0");
  std::thread release = ReleaseWhenStopped(gate);

  const ProcResult run = RunPastReady(tool, kTimeoutMs, kTimeoutMs);

  EXPECT_EQ(run.status, -1);
  EXPECT_TRUE(Exists(directory.At("end")));
  release.join();
}

TEST_F(RunProcessDeadline, ReachesNobodyBeforeTheChildHasMadeItsGroup) {
  StandIn::LeaveProcessGroupsAlone();
  const Gate gate(directory.At("gate"));
  const std::string tool =
      MakeTool("tool", "echo ready >&3\nread _ < $here/gate\necho x > $here/end");
  std::thread release = ReleaseWhenStopped(gate);

  const ProcResult run = RunPastReady(tool, kTimeoutMs, kTimeoutMs);

  EXPECT_EQ(run.status, -1);
  EXPECT_TRUE(Exists(directory.At("end")));
  EXPECT_EQ(log.Text(), StopLine(tool, "10"));
  release.join();
}

TEST_F(RunProcessDeadline, IsLoggedInWholeSeconds) {
  const std::pair<std::int32_t, std::string> rows[] = {
      {1, "0"}, {999, "0"}, {1000, "1"}, {1999, "1"}, {900'000, "900"}};
  const Gate gate(directory.At("gate"));
  const std::string tool = MakeTool("tool", "echo ready >&3\nread _ < $here/gate");

  for (const auto& [timeoutMs, seconds] : rows) {
    log.Clear();
    EXPECT_EQ(RunPastReady(tool, timeoutMs, timeoutMs).status, -1) << timeoutMs;
    EXPECT_EQ(log.Text(), StopLine(tool, seconds)) << timeoutMs;
  }
}

TEST_F(RunProcessDeadline, HasPassedAtOnceWhenThereIsNoTime) {
  for (const std::int32_t timeoutMs : {0, -1, -5000}) {
    log.Clear();
    EXPECT_EQ(RunProcess({"/bin/true"}, timeoutMs).status, -1) << timeoutMs;
    EXPECT_EQ(log.Lines().size(), 1U) << timeoutMs;
  }
}

// What a child does with a signal it inherits: the service ignores SIGPIPE, and so do its tools.
class RunProcessWriter : public RunProcessDeadline,
                         public ::testing::WithParamInterface<sighandler_t> {};

TEST_P(RunProcessWriter, EndsOnTheClosedPipeAfterTheDeadline) {
  ASSERT_NE(::signal(SIGPIPE, GetParam()), SIG_ERR);
  const std::string tool = MakeTool("tool", "trap '' TERM\necho ready >&3\nexec yes");

  EXPECT_EQ(RunPastReady(tool, kTimeoutMs, kTimeoutMs).status, -1);
}

INSTANTIATE_TEST_SUITE_P(BrokenPipe, RunProcessWriter, ::testing::Values(SIG_DFL, SIG_IGN));

class RunProcessQuietTool : public RunProcessDeadline {
 protected:
  // Starts a tool that closes all its streams and runs on until it is told; the runner is then past
  // its reading.
  std::thread RunQuietTool(std::int32_t& status) {
    const std::string tool =
        MakeTool("tool", "exec >&- 2>&- 3>&-\nread _ < $here/gate\necho x > $here/end\nexit 5");
    const int before = CountDescriptors();
    std::atomic<bool> started{false};
    std::thread runner([tool, &status, &started] {
      started.store(true);
      status = RunProcess({tool}, kTimeoutMs, {}, 3).status;
    });
    // Both pipes have to be seen open before their end means anything.
    EXPECT_TRUE(WaitFor([&] { return started.load() && StandIn::LongestPollMs() > 0; }));
    EXPECT_TRUE(WaitFor([before] { return CountDescriptors() == before; }));
    return runner;
  }
};

TEST_F(RunProcessQuietTool, HoldsTheCallerPastTheDeadline) {
  const Gate gate(directory.At("gate"));
  std::int32_t status = 0;
  std::thread runner = RunQuietTool(status);

  TestClock::AdvanceMs(100 * kTimeoutMs);
  EXPECT_FALSE(Exists(directory.At("end")));
  gate.Tell();
  runner.join();

  EXPECT_EQ(status, 5);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunProcessQuietTool, IsWaitedForThroughInterruptions) {
  struct sigaction quiet = {};
  quiet.sa_handler = [](int) {};  // without SA_RESTART
  ASSERT_EQ(::sigaction(SIGUSR1, &quiet, nullptr), 0);
  const Gate gate(directory.At("gate"));
  std::int32_t status = 0;
  std::thread runner = RunQuietTool(status);

  for (int count = 0; count < 20; ++count)
    ASSERT_EQ(::pthread_kill(runner.native_handle(), SIGUSR1), 0);
  gate.Tell();
  runner.join();

  EXPECT_EQ(status, 5);
}

}  // namespace
}  // namespace Tarnvale::KioskService
