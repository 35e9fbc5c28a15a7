// Units of time and size, so that a constant reads as the product that it is.

#ifndef TARNVALE_KIOSKD_CORE_UNITS_H_
#define TARNVALE_KIOSKD_CORE_UNITS_H_

#include <cstddef>
#include <cstdint>

namespace Tarnvale::KioskService {

inline constexpr std::int64_t kSecondMs = 1000;
inline constexpr std::int64_t kMinuteMs = 60 * kSecondMs;
inline constexpr std::int64_t kHourMs = 60 * kMinuteMs;

inline constexpr std::size_t kKiB = 1024;
inline constexpr std::size_t kMiB = 1024 * kKiB;

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_UNITS_H_
