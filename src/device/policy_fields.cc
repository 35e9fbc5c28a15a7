#include "device/policy_fields.h"

#include <cctype>
#include <cmath>

#include "core/text.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kMinutesPerHour = 60;
constexpr int kDaysPerWeek = 7;

bool IsDigit(char byte) {
  return std::isdigit(static_cast<unsigned char>(byte)) != 0;
}

std::int32_t TwoDigits(char tens, char ones) {
  return (tens - '0') * 10 + (ones - '0');
}

bool HasClockShape(const std::string& text) {
  return text.size() == 5 && IsDigit(text[0]) && IsDigit(text[1]) && text[2] == ':' &&
         IsDigit(text[3]) && IsDigit(text[4]);
}

}  // namespace

bool ReadWholeNumber(const Json& value, int lowest, int highest, std::int32_t& out) {
  if (!value.IsNumber()) return false;
  // Written so that NaN, which compares false with everything, is refused as well.
  if (!(value.number >= lowest && value.number <= highest)) return false;
  if (std::trunc(value.number) != value.number) return false;
  out = static_cast<std::int32_t>(value.number);
  return true;
}

bool ParseClock(const Json& value, std::int32_t& minutes) {
  if (!value.IsString() || !HasClockShape(value.text)) return false;
  const std::int32_t hour = TwoDigits(value.text[0], value.text[1]);
  const std::int32_t minute = TwoDigits(value.text[3], value.text[4]);
  if (hour > 23 || minute > 59) return false;
  minutes = hour * kMinutesPerHour + minute;
  return true;
}

bool ParseDays(const Json& value, std::uint32_t& mask) {
  if (!value.IsArray() || value.Size() > kDaysPerWeek) return false;
  std::uint32_t days = 0;
  for (const Json& item : value.items) {
    std::int32_t day = 0;
    if (!ReadWholeNumber(item, 0, kDaysPerWeek - 1, day)) return false;
    const std::uint32_t bit = 1U << day;
    if ((days & bit) != 0) return false;
    days |= bit;
  }
  mask = days;
  return true;
}

std::string FormatClock(std::int32_t minutes) {
  return FormatText("%02d:%02d", minutes / kMinutesPerHour, minutes % kMinutesPerHour);
}

Json DaysToJson(std::uint32_t mask) {
  Json days = Json::Array();
  for (int day = 0; day < kDaysPerWeek; ++day) {
    if ((mask & (1U << day)) != 0) days.Append(day);
  }
  return days;
}

}  // namespace Tarnvale::KioskService
