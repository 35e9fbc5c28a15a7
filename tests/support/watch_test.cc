// A test case that hangs ends with the stacks of all its threads.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace Tarnvale::KioskService {
namespace {

struct Outcome {
  int status = 0;  // As waitpid tells it.
  std::string output;
};

[[noreturn]] void BecomeHangingTests(const std::string& filter, const char* watchMs, int outputFd) {
  (void)::dup2(outputFd, STDOUT_FILENO);
  (void)::dup2(outputFd, STDERR_FILENO);
  (void)::setenv("KIOSK_TEST_WATCH_MS", watchMs, 1);
  // The deadlock is meant; TSan need not tell of it first.
  (void)::setenv("TSAN_OPTIONS", "detect_deadlocks=0", 1);
  ::execl(HANGING_TESTS, HANGING_TESTS, filter.c_str(), nullptr);
  ::_exit(127);
}

// Runs one of those cases with this much time.
Outcome RunHanging(const std::string& name, const char* watchMs) {
  const std::string filter = "--gtest_filter=Hanging." + name;
  int ends[2] = {-1, -1};
  EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) BecomeHangingTests(filter, watchMs, ends[1]);
  (void)::close(ends[1]);
  Outcome outcome;
  std::array<char, 4096> block;
  ssize_t count = 0;
  while ((count = ::read(ends[0], block.data(), block.size())) > 0)
    outcome.output.append(block.data(), static_cast<std::size_t>(count));
  (void)::close(ends[0]);
  EXPECT_EQ(::waitpid(child, &outcome.status, 0), child);
  return outcome;
}

bool Holds(const Outcome& outcome, const std::string& text) {
  return outcome.output.find(text) != std::string::npos;
}

TEST(Watch, AbortsACaseThatHangsWithTheStacksOfBothThreads) {
  const Outcome outcome = RunHanging("WaitsForEachOther", "1000");

  EXPECT_TRUE(WIFSIGNALED(outcome.status) && WTERMSIG(outcome.status) == SIGABRT) << outcome.output;
  for (const char* text : {"Hanging.WaitsForEachOther still runs after 1000 ms",
                           "TakeFirstThenSecond", "TakeSecondThenFirst", "TID "}) {
    EXPECT_TRUE(Holds(outcome, text)) << text << " is missing in\n" << outcome.output;
  }
}

TEST(Watch, LeavesACaseThatEndsAlone) {
  const Outcome outcome = RunHanging("Ends", "200000");

  EXPECT_EQ(outcome.status, 0);
  EXPECT_TRUE(Holds(outcome, "[  PASSED  ] 1 test.")) << outcome.output;
  EXPECT_FALSE(Holds(outcome, "WATCH")) << outcome.output;
}

}  // namespace
}  // namespace Tarnvale::KioskService
