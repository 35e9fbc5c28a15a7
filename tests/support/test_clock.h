// The clock of the tests: time stands still until somebody waits for it or a test moves it.
//
// Linked in place of core/clock.cc. A wait for a deadline moves the clock to that deadline and
// ends, so whatever takes minutes on a terminal takes no time here, and nothing depends on the
// machine's speed.

#ifndef TARNVALE_KIOSKD_TESTS_SUPPORT_TEST_CLOCK_H_
#define TARNVALE_KIOSKD_TESTS_SUPPORT_TEST_CLOCK_H_

#include <cstdint>
#include <functional>

namespace Tarnvale::KioskService::TestClock {

// Where both clocks stand when a test begins. The steady clock begins above every deadline of 0.
inline constexpr std::int64_t kStartSteadyMs = 1'000'000;
inline constexpr std::int64_t kStartWallMs = 1'800'000'000'000;

// Moves both clocks forward.
void AdvanceMs(std::int64_t milliseconds);

// Sets the wall clock alone, as an administrator or NTP would.
void SetWallMs(std::int64_t milliseconds);

// From now on waits on the condition variable block until they are notified, and PollFor polls for
// real: for tests in which several threads meet.
void WaitForReal();

// From now on this runs at the head of every PollFor and PauseFor, on the waiting thread, with the
// time that it is about to wait: for those who act while the service waits. Set before any other
// thread waits.
void BeforeWaits(std::function<void(std::int64_t milliseconds)> action);

// How many waits on a condition variable have begun since WaitForReal. When the number has grown, a
// thread has looked at what it waits for, found no reason to go on, and misses no notification from
// then on.
[[nodiscard]] int WaitsBegun();

}  // namespace Tarnvale::KioskService::TestClock

#endif  // TARNVALE_KIOSKD_TESTS_SUPPORT_TEST_CLOCK_H_
