#include "device/updates_window.h"

#include "core/text.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::time_t kDaySeconds = 86400;
constexpr int kMinutesPerHour = 60;
constexpr int kFirstYear = 1900;

bool ToLocalTime(std::time_t moment, std::tm& local) {
  ::tzset();  // localtime_r alone would keep the time zone of the process's start
  return ::localtime_r(&moment, &local) != nullptr;
}

// When the window that is open at this time of day, if there is one, opened. False when it is
// closed.
bool FindOpening(const UpdatesPolicy& policy, int minutes, std::time_t now, std::time_t& opening) {
  opening = now;
  if (policy.windowStart < policy.windowEnd) {
    return policy.windowStart <= minutes && minutes < policy.windowEnd;
  }
  if (minutes >= policy.windowStart) return true;
  opening = now - kDaySeconds;
  return minutes < policy.windowEnd;
}

bool IsDayOf(const UpdatesPolicy& policy, int weekday) {
  return (policy.days >> weekday & 1U) != 0;
}

}  // namespace

std::string WindowKey(const UpdatesPolicy& policy, std::time_t now) {
  std::tm local = {};
  if (!ToLocalTime(now, local)) return {};
  std::time_t opening = 0;
  const int minutes = local.tm_hour * kMinutesPerHour + local.tm_min;
  if (!FindOpening(policy, minutes, now, opening)) return {};
  if (!ToLocalTime(opening, local) || !IsDayOf(policy, local.tm_wday)) return {};
  return FormatText("%04d-%02d-%02d", local.tm_year + kFirstYear, local.tm_mon + 1, local.tm_mday);
}

}  // namespace Tarnvale::KioskService
