// What comes back of a tool: its exit code and what it printed.

#include <gtest/gtest.h>

#include <thread>

#include "device/process_linux.h"
#include "slots/support/system_stand_ins.h"
#include "slots/support/tool_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kTimeoutMs = 10'000;
constexpr std::size_t kOutputCapBytes = 4'194'304;

using RunProcessOutput = ToolTest;

class RunProcessExit : public ToolTest, public ::testing::WithParamInterface<int> {};

TEST_P(RunProcessExit, PassesTheExitCodeOn) {
  const ProcResult run =
      RunProcess({"/bin/sh", "-c", "exit " + std::to_string(GetParam())}, kTimeoutMs);

  EXPECT_EQ(run.status, GetParam());
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(log.Text(), "");
}

INSTANTIATE_TEST_SUITE_P(Codes, RunProcessExit,
                         ::testing::Values(0, 1, 2, 126, 127, 128, 129, 143, 254, 255));

TEST_F(RunProcessOutput, MergesBothStreamsInTheOrderOfArrival) {
  const std::string tool = MakeTool("tool", "echo one\necho two >&2\necho three");

  EXPECT_EQ(RunProcess({tool}, kTimeoutMs).output, "one\ntwo\nthree\n");
}

TEST_F(RunProcessOutput, KeepsEveryByte) {
  const std::string tool = MakeTool("tool", "printf ' a\\000b\\377\\r\\n '");

  EXPECT_EQ(RunProcess({tool}, kTimeoutMs).output, std::string(" a\0b\377\r\n ", 8));
}

TEST_F(RunProcessOutput, KeepsOutputOfExactlyTheCap) {
  const ProcResult run =
      RunProcess({"/usr/bin/head", "-c", std::to_string(kOutputCapBytes), "/dev/zero"}, kTimeoutMs);

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output.size(), kOutputCapBytes);
}

TEST_F(RunProcessOutput, DropsWhatComesAfterTheCapAndLetsTheToolFinish) {
  const std::string tool =
      MakeTool("tool", "head -c 5242880 /dev/zero && echo finished > $here/end\nexit 6");

  const ProcResult run = RunProcess({tool}, kTimeoutMs);

  EXPECT_EQ(run.status, 6);
  EXPECT_GE(run.output.size(), kOutputCapBytes);
  EXPECT_LE(run.output.size(), kOutputCapBytes + 4095);
  EXPECT_TRUE(Exists(directory.At("end")));
}

TEST_F(RunProcessOutput, GoesPastTheCapWithTheBlockThatReachesIt) {
  // The first byte is a block of its own, so that no later one ends on the cap.
  const std::string tool = MakeTool(
      "tool", "printf x\necho go >&3\nread _ < $here/gate\nexec head -c 5242880 /dev/zero");
  const Gate gate(directory.At("gate"));

  const ProcResult run =
      RunProcess({tool}, kTimeoutMs, {}, 3, [&gate](const std::string&) { gate.Tell(); });

  EXPECT_EQ(run.status, 0);
  EXPECT_GE(run.output.size(), kOutputCapBytes);
  EXPECT_LE(run.output.size(), kOutputCapBytes + 4095);
}

TEST_F(RunProcessOutput, KeepsWhatAToolPrintedBeforeASignal) {
  const std::string tool = MakeTool("tool", "echo before\nkill -KILL $$");

  const ProcResult run = RunProcess({tool}, kTimeoutMs);

  EXPECT_EQ(run.status, -1);
  EXPECT_EQ(run.output, "before\n");
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunProcessOutput, CallsATerminationThatTheRunnerDidNotSendAFailureToo) {
  const std::string tool = MakeTool("tool", "kill -TERM $$");

  EXPECT_EQ(RunProcess({tool}, kTimeoutMs).status, -1);
}

TEST_F(RunProcessOutput, WaitsForTheOutputOfAGrandchild) {
  const std::string tool = MakeTool("tool", "( read _ < $here/gate; echo late ) &\necho early >&3");
  const Gate gate(directory.At("gate"));

  const ProcResult run =
      RunProcess({tool}, kTimeoutMs, {}, 3, [&gate](const std::string&) { gate.Tell(); });

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "late\n");
}

TEST_F(RunProcessOutput, AsksTheClockAtLeastOnceASecond) {
  EXPECT_EQ(RunProcess({"/bin/true"}, 900'000).status, 0);

  EXPECT_EQ(StandIn::LongestPollMs(), 1000);
}

TEST_F(RunProcessOutput, WaitsNoLongerThanIsLeft) {
  EXPECT_EQ(RunProcess({"/bin/true"}, 999).status, 0);

  EXPECT_EQ(StandIn::LongestPollMs(), 999);
}

TEST_F(RunProcessOutput, BelongsToItsOwnRunOnManyThreads) {
  const std::string tool = MakeTool("tool", "echo out-$1\necho status-$1 >&3\nexit $1");
  const auto runSeveral = [&tool](int first) {
    for (int code = first; code < first + 8; ++code) {
      const std::string text = std::to_string(code);
      std::string heard;
      const ProcResult run = RunProcess({tool, text}, kTimeoutMs, {}, 3,
                                        [&heard](const std::string& line) { heard += line; });
      EXPECT_EQ(run.status, code);
      EXPECT_EQ(run.output, "out-" + text + "\n");
      EXPECT_EQ(heard, "status-" + text);
    }
  };

  std::vector<std::thread> threads;
  for (int first = 0; first < 64; first += 8)
    threads.emplace_back(runSeveral, first);
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
}  // namespace Tarnvale::KioskService
