// Ends a test case that hangs, and tells where each of its threads stands.
//
// An object of every test executable: it hears of each case by itself. A case that takes longer
// than any may, most likely of threads that wait for each other, is aborted with the stacks of all
// its threads on standard error, before ctest would end it without a word. The stacks are made by
// eu-stack (Debian: elfutils), as a child that looks at this process. KIOSK_TEST_WATCH_MS sets
// another time, in milliseconds of the real clock.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace Tarnvale::KioskService {
namespace {

using Milliseconds = std::chrono::milliseconds;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr Milliseconds kLongestCase = std::chrono::seconds(200);
#else
constexpr Milliseconds kLongestCase = std::chrono::seconds(60);
#endif

constexpr char kStackTool[] = "/usr/bin/eu-stack";
constexpr int kExitNotExecuted = 127;

Milliseconds LongestCase() {
  const char* const text = std::getenv("KIOSK_TEST_WATCH_MS");
  return text != nullptr ? Milliseconds(std::strtol(text, nullptr, 10)) : kLongestCase;
}

// Standard error as it is at the start: a test may put something else in its place.
int RealStandardError() {
  static const int fd = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  return fd;
}

void Tell(std::string_view text) {
  (void)!::write(RealStandardError(), text.data(), text.size());  // nobody is left to be told
}

// A part of the log is better than none: the test's own standard error is a file in memory then.
void TellLog() {
  std::array<char, 4096> block;
  off_t position = 0;
  ssize_t count = 0;
  while ((count = ::pread(STDERR_FILENO, block.data(), block.size(), position)) > 0) {
    Tell({block.data(), static_cast<std::size_t>(count)});
    position += count;
  }
}

[[noreturn]] void BecomeStackTool(const char* process) {
  (void)::dup2(RealStandardError(), STDOUT_FILENO);
  (void)::dup2(RealStandardError(), STDERR_FILENO);
  ::execl(kStackTool, kStackTool, "-p", process, nullptr);
  ::_exit(kExitNotExecuted);
}

void TellStacks() {
  if (::access(kStackTool, X_OK) != 0) {
    Tell("[  WATCH   ] no stacks: eu-stack is not installed (Debian: elfutils)\n");
    return;
  }
  const std::string process = std::to_string(::getpid());
  // Some kernels let only a parent look into a process.
  (void)::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
  const pid_t child = ::_Fork();  // without the locks of the allocator, which the test may hold
  if (child == 0) BecomeStackTool(process.c_str());
  if (child > 0) (void)::waitpid(child, nullptr, 0);
}

class Watch : public ::testing::EmptyTestEventListener {
 private:
  void OnTestStart(const ::testing::TestInfo& test) override {
    name_ = std::string(test.test_suite_name()) + "." + test.name();
    isOver_ = false;
    // Signals for the process are the test's own threads to take.
    sigset_t all;
    sigset_t before;
    (void)::sigfillset(&all);
    (void)::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { WaitForEnd(); });
    (void)::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  void OnTestEnd(const ::testing::TestInfo&) override {
    {
      const std::lock_guard lock(mutex_);
      isOver_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }

  void WaitForEnd() {
    const Milliseconds longest = LongestCase();
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, longest, [this] { return isOver_; })) return;
    Tell("[  WATCH   ] " + name_ + " still runs after " + std::to_string(longest.count()) +
         " ms. Its log so far:\n");
    TellLog();
    Tell("[  WATCH   ] the stacks of all its threads:\n");
    TellStacks();
    std::abort();
  }

  std::string name_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOver_ = false;
  std::thread thread_;
};

// The framework owns a listener and ends it.
const bool kIsWatching = [] {
  (void)RealStandardError();
  ::testing::UnitTest::GetInstance()->listeners().Append(new Watch);
  return true;
}();

}  // namespace
}  // namespace Tarnvale::KioskService
