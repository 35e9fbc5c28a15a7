// The real clock, which all other tests put one of their own in the place of.

#include "core/clock.h"

#include <signal.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <limits>
#include <thread>

#include "core/descriptor.h"
#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

// Long enough to be told from nothing, and waited for only where passing time is the subject.
constexpr std::int64_t kShortMs = 20;

std::int64_t NowOf(clockid_t clock) {
  timespec now = {};
  EXPECT_EQ(::clock_gettime(clock, &now), 0);
  return now.tv_sec * kSecondMs + now.tv_nsec / 1000000;
}

// A signal every few milliseconds that interrupts whatever waits.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action = {};
    action.sa_handler = [](int) { taken.fetch_add(1); };
    EXPECT_EQ(::sigaction(SIGALRM, &action, nullptr), 0);
    Every({0, 2000});
  }
  ~Interruptions() {
    Every({0, 0});
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

  static inline std::atomic<int> taken{0};

 private:
  static void Every(timeval interval) {
    const itimerval timer = {interval, interval};
    EXPECT_EQ(::setitimer(ITIMER_REAL, &timer, nullptr), 0);
  }
};

TEST(SteadyNowMs, IsTheMonotonicClock) {
  const std::int64_t before = NowOf(CLOCK_MONOTONIC);
  const std::int64_t now = SteadyNowMs();

  EXPECT_LE(before, now);
  EXPECT_LE(now, NowOf(CLOCK_MONOTONIC));
}

TEST(WallNowMs, IsTheTimeSinceTheEpoch) {
  const std::int64_t before = NowOf(CLOCK_REALTIME);
  const std::int64_t now = WallNowMs();

  EXPECT_LE(before, now);
  EXPECT_LE(now, NowOf(CLOCK_REALTIME));
}

TEST(WaitUntil, EndsAtTheDeadline) {
  Mutex mutex;
  ConditionVariable condition;
  const std::int64_t deadlineMs = SteadyNowMs() + kShortMs;

  const MutexLock lock(mutex);
  while (SteadyNowMs() < deadlineMs)
    WaitUntil(condition, mutex, deadlineMs);

  EXPECT_GE(SteadyNowMs(), deadlineMs);
}

TEST(WaitUntil, EndsWithANotification) {
  Mutex mutex;
  ConditionVariable condition;
  bool notified = false;
  const MutexLock lock(mutex);
  std::thread notifying([&] {
    const MutexLock otherLock(mutex);  // taken when the wait has begun
    notified = true;
    condition.NotifyAll();
  });

  while (!notified)
    WaitUntil(condition, mutex, SteadyNowMs() + kHourMs);

  notifying.join();
}

TEST(PollFor, AnswersLikePoll) {
  Pipe pipe;
  ASSERT_TRUE(OpenPipe(pipe));
  pollfd entry = {.fd = pipe.readEnd.Get(), .events = POLLIN, .revents = 0};
  EXPECT_EQ(PollFor(&entry, 1, 0), 0);

  ASSERT_EQ(::write(pipe.writeEnd.Get(), "x", 1), 1);

  EXPECT_EQ(PollFor(&entry, 1, kHourMs), 1);
  EXPECT_EQ(entry.revents, POLLIN);
}

TEST(PollFor, EndsAtItsTimeOut) {
  const std::int64_t before = SteadyNowMs();

  EXPECT_EQ(PollFor(nullptr, 0, kShortMs), 0);

  EXPECT_GE(SteadyNowMs() - before, kShortMs);
}

// A time-out that an int cannot hold must not turn into none, or into a negative one.
TEST(PollFor, WaitsWithATimeOutThatPollCannotHold) {
  for (const std::int64_t timeoutMs : {std::int64_t{1} << 32, (std::int64_t{1} << 32) + 1,
                                       std::numeric_limits<std::int64_t>::max()}) {
    const Interruptions interruptions;
    errno = 0;
    EXPECT_EQ(PollFor(nullptr, 0, timeoutMs), -1) << timeoutMs;
    EXPECT_EQ(errno, EINTR) << timeoutMs;
  }
}

TEST(PauseFor, LastsTheWholeTimeWhateverSignalsCome) {
  const Interruptions interruptions;
  const std::int64_t before = SteadyNowMs();

  PauseFor(kShortMs);

  EXPECT_GE(SteadyNowMs() - before, kShortMs);
  EXPECT_GT(Interruptions::taken, 0);
}

}  // namespace
}  // namespace Tarnvale::KioskService
