#include "core/clock.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>

#include "core/units.h"

namespace Tarnvale::KioskService {
namespace {

constexpr long kMillisecondNs = 1'000'000;

template <typename Clock>
std::int64_t NowMs() {
  const auto sinceEpoch = Clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

}  // namespace

std::int64_t SteadyNowMs() {
  return NowMs<std::chrono::steady_clock>();
}

std::int64_t WallNowMs() {
  return NowMs<std::chrono::system_clock>();
}

void WaitUntil(ConditionVariable& condition, Mutex& mutex, std::int64_t deadlineMs) {
  condition.WaitUntil(mutex, ConditionVariable::SteadyTime(std::chrono::milliseconds(deadlineMs)));
}

int PollFor(pollfd* entries, nfds_t count, std::int64_t timeoutMs) {
  constexpr std::int64_t kLongestMs = std::numeric_limits<int>::max();
  return ::poll(entries, count, static_cast<int>(std::min(timeoutMs, kLongestMs)));
}

void PauseFor(std::int64_t milliseconds) {
  timespec rest = {milliseconds / kSecondMs, (milliseconds % kSecondMs) * kMillisecondNs};
  while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace Tarnvale::KioskService
