// Runs that never start, and what the runner leaves behind.

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>

#include "device/process_linux.h"
#include "slots/support/system_stand_ins.h"
#include "slots/support/tool_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::int32_t kTimeoutMs = 10'000;

class RunProcessFailure : public ToolTest {
 protected:
  void ExpectNothingStarted(const ProcResult& run) {
    EXPECT_EQ(run.status, -1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(log.Text(), "");
  }

  // A run while this process may open only so many descriptors more. The limit is gone before
  // anything is checked, because a sanitizer needs a pipe of its own to look at what it checks.
  static ProcResult RunWithNewDescriptors(int count, std::int32_t statusFd) {
    const int lowestFree = ::dup(STDOUT_FILENO);
    EXPECT_EQ(::close(lowestFree), 0);
    const rlimit usual = {4096, 4096};
    const rlimit tight = {static_cast<rlim_t>(lowestFree + count), usual.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    ProcResult run = RunProcess({"/bin/true"}, kTimeoutMs, {}, statusFd);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
    return run;
  }
};

TEST_F(RunProcessFailure, IsStatus127WhenNothingCanBeExecuted) {
  WriteText(directory.At("not-executable"), "#!/bin/sh\nexit 0\n", 0644);
  WriteText(directory.At("no-format"), "exit 0\n", 0755);
  WriteText(directory.At("no-interpreter"), "#!/nonexistent/sh\n", 0755);
  const std::string rows[] = {"",
                              directory.At("missing"),
                              directory.At("not-executable"),
                              directory.At("no-format"),
                              directory.At("no-interpreter"),
                              directory.Path()};

  for (const std::string& path : rows) {
    const ProcResult run = RunProcess({path, "argument"}, kTimeoutMs);
    EXPECT_EQ(run.status, 127) << path;
    EXPECT_EQ(run.output, "") << path;
  }
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunProcessFailure, StartsNothingWithoutAPipe) {
  const ProcResult run = RunWithNewDescriptors(1, kNoStatusFd);

  ExpectNothingStarted(run);
}

TEST_F(RunProcessFailure, ClosesTheFirstPipeWhenThereIsNoSecond) {
  const int before = CountDescriptors();

  const ProcResult run = RunWithNewDescriptors(3, 3);

  ExpectNothingStarted(run);
  EXPECT_EQ(CountDescriptors(), before);
}

TEST_F(RunProcessFailure, StartsNothingWithoutAProcess) {
  StandIn::FailForks();
  const int before = CountDescriptors();

  const ProcResult run = RunProcess({"/bin/true"}, kTimeoutMs);

  ExpectNothingStarted(run);
  EXPECT_EQ(CountDescriptors(), before);
}

TEST_F(RunProcessFailure, SurvivesAnInterruptedPoll) {
  StandIn::FailNextPoll(EINTR);

  EXPECT_EQ(RunProcess({"/bin/echo", "all"}, kTimeoutMs).output, "all\n");
}

TEST_F(RunProcessFailure, StopsReadingWhenPollFailsAndStillWaits) {
  StandIn::FailNextPoll(ENOMEM);

  const ProcResult run = RunProcess({"/bin/sh", "-c", "exit 3"}, kTimeoutMs);

  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(log.Text(), "");
}

TEST_F(RunProcessFailure, IsAToolWhoseEndNobodyTells) {
  ASSERT_NE(::signal(SIGCHLD, SIG_IGN), SIG_ERR);  // the kernel then keeps no status to wait for

  EXPECT_EQ(RunProcess({"/bin/true"}, kTimeoutMs).status, -1);
}

TEST_F(RunProcessFailure, LeavesNoDescriptorAndNoChildBehind) {
  const Gate gate(directory.At("gate"));
  const std::string slow = MakeTool("slow", "echo ready >&3\nread _ < $here/gate");
  const int before = CountDescriptors();

  (void)RunProcess({"/bin/true"}, kTimeoutMs, {}, 3);
  (void)RunProcess({"/nonexistent"}, kTimeoutMs);
  (void)RunPastReady(slow, kTimeoutMs, kTimeoutMs);

  EXPECT_EQ(CountDescriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace Tarnvale::KioskService
