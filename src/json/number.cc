#include "json/number.h"

#include <cstdio>
#include <limits>

namespace Tarnvale::KioskService {
namespace {

constexpr double kTwoToThe63 = 9223372036854775808.0;
constexpr std::size_t kNumberBufferBytes = 40;

bool FitsInt64(double value) {
  return value >= -kTwoToThe63 && value < kTwoToThe63;
}

}  // namespace

std::int64_t TruncateToInt64(double value) {
  if (!FitsInt64(value)) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

std::string NumberText(double value) {
  const std::int64_t whole = TruncateToInt64(value);
  char text[kNumberBufferBytes];
  if (static_cast<double>(whole) == value) {
    (void)std::snprintf(text, sizeof text, "%lld",
                        static_cast<long long>(whole));  // 20 bytes at most
  } else {
    (void)std::snprintf(text, sizeof text, "%g", value);  // 13 bytes at most
  }
  return text;
}

}  // namespace Tarnvale::KioskService
