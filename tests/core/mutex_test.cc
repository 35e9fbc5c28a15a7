// The lock that the compiler understands behaves like any other.

#include "core/mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/threads.h"

namespace Tarnvale::KioskService {
namespace {

struct Shared {
  Mutex mutex;
  ConditionVariable condition;
  bool ready GUARDED_BY(mutex) = false;
};

TEST(MutexLock, KeepsOthersOutUntilItsEnd) {
  Mutex mutex;
  std::atomic<pid_t> id{0};
  std::atomic<bool> inside{false};
  std::thread other;
  {
    const MutexLock lock(mutex);
    other = std::thread([&] {
      id = ThreadId();
      const MutexLock otherLock(mutex);
      inside = true;
    });
    EXPECT_TRUE(Eventually([&id] { return id != 0 && IsAsleep(id); }));
    EXPECT_FALSE(inside);
  }
  other.join();

  EXPECT_TRUE(inside);
}

TEST(MutexLock, LetsOthersInBetweenUnlockAndLock) {
  Mutex mutex;
  bool inside = false;
  MutexLock lock(mutex);

  lock.Unlock();
  std::thread([&] {
    const MutexLock otherLock(mutex);
    inside = true;
  }).join();
  lock.Lock();

  EXPECT_TRUE(inside);
}

TEST(ConditionVariableWait, GivesTheLockUpMeanwhileAndHoldsItAfterwards) {
  Shared shared;
  std::atomic<bool> seen{false};
  std::thread waiting([&] {
    const MutexLock lock(shared.mutex);
    while (!shared.ready)
      shared.condition.Wait(shared.mutex);
    shared.ready = false;
    seen = true;
  });
  {
    const MutexLock lock(shared.mutex);
    shared.ready = true;
  }
  shared.condition.NotifyAll();
  waiting.join();

  const MutexLock lock(shared.mutex);
  EXPECT_TRUE(seen);
  EXPECT_FALSE(shared.ready);
}

TEST(ConditionVariableWait, EndsForAllWhoWait) {
  Shared shared;
  std::atomic<int> ended{0};
  const auto wait = [&] {
    const MutexLock lock(shared.mutex);
    while (!shared.ready)
      shared.condition.Wait(shared.mutex);
    ended.fetch_add(1);
  };
  std::thread first(wait);
  std::thread second(wait);

  {
    const MutexLock lock(shared.mutex);
    shared.ready = true;
  }
  shared.condition.NotifyAll();
  first.join();
  second.join();

  EXPECT_EQ(ended, 2);
}

}  // namespace
}  // namespace Tarnvale::KioskService
