#include "support/test_clock.h"

#include <atomic>
#include <thread>
#include <utility>

#include "core/clock.h"

namespace Tarnvale::KioskService {
namespace {

std::atomic<std::int64_t> steadyMs{TestClock::kStartSteadyMs};
std::atomic<std::int64_t> wallMs{TestClock::kStartWallMs};
std::atomic<bool> waitsAreReal{false};
std::function<void(std::int64_t)> beforeWaits = [](std::int64_t) {};
std::atomic<int> waitsBegun{0};

void AdvanceTo(std::int64_t deadlineMs) {
  const std::int64_t leftMs = deadlineMs - steadyMs.load();
  if (leftMs > 0) TestClock::AdvanceMs(leftMs);
}

}  // namespace

void TestClock::AdvanceMs(std::int64_t milliseconds) {
  steadyMs.fetch_add(milliseconds);
  wallMs.fetch_add(milliseconds);
}

void TestClock::SetWallMs(std::int64_t milliseconds) {
  wallMs.store(milliseconds);
}

void TestClock::WaitForReal() {
  waitsAreReal.store(true);
}

int TestClock::WaitsBegun() {
  return waitsBegun.load();
}

void TestClock::BeforeWaits(std::function<void(std::int64_t milliseconds)> action) {
  beforeWaits = std::move(action);
}

std::int64_t SteadyNowMs() {
  return steadyMs.load();
}

std::int64_t WallNowMs() {
  return wallMs.load();
}

void WaitUntil(ConditionVariable& condition, Mutex& mutex, std::int64_t deadlineMs) {
  if (waitsAreReal.load()) {
    waitsBegun.fetch_add(1);  // under the mutex, which a notifier has to take first
    condition.Wait(mutex);
  } else {
    AdvanceTo(deadlineMs);
  }
}

int PollFor(pollfd* entries, nfds_t count, std::int64_t timeoutMs) {
  beforeWaits(timeoutMs);
  if (waitsAreReal.load()) return ::poll(entries, count, static_cast<int>(timeoutMs));
  const int ready = ::poll(entries, count, 0);
  if (ready == 0) TestClock::AdvanceMs(timeoutMs);
  return ready;
}

void PauseFor(std::int64_t milliseconds) {
  beforeWaits(milliseconds);
  TestClock::AdvanceMs(milliseconds);
  std::this_thread::yield();
}

}  // namespace Tarnvale::KioskService
