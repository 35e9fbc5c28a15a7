// What the watch is tested on: a case that deadlocks on purpose, and one that ends.

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <latch>
#include <mutex>
#include <thread>

namespace Tarnvale::KioskService {
namespace {

std::mutex firstLock;
std::mutex secondLock;
std::latch bothHoldOne(2);

// Functions of their own names, which are looked for in the stacks.
__attribute__((noinline)) void TakeFirstThenSecond() {
  const std::lock_guard outer(firstLock);
  bothHoldOne.arrive_and_wait();
  const std::lock_guard inner(secondLock);
}

__attribute__((noinline)) void TakeSecondThenFirst() {
  const std::lock_guard outer(secondLock);
  bothHoldOne.arrive_and_wait();
  const std::lock_guard inner(firstLock);
}

TEST(Hanging, WaitsForEachOther) {
  // As the tests of the service do: the log goes elsewhere meanwhile.
  const int elsewhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(::dup2(elsewhere, STDERR_FILENO), 0);
  std::thread other(TakeSecondThenFirst);

  TakeFirstThenSecond();

  other.join();
}

TEST(Hanging, Ends) {
  std::thread(&std::this_thread::yield).join();
}

}  // namespace
}  // namespace Tarnvale::KioskService
