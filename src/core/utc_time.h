// The present time as text, for people and for the portal.
//
// `time.sync` tells it, and what is known of OS updates carries it. Any thread; silent.

#ifndef TARNVALE_KIOSKD_CORE_UTC_TIME_H_
#define TARNVALE_KIOSKD_CORE_UTC_TIME_H_

#include <string>

namespace Tarnvale::KioskService {

// The present UTC time as "%Y-%m-%dT%H:%M:%SZ", in whole seconds that have begun. Any time that the
// clock can show, also in a year of more than four digits.
[[nodiscard]] std::string UtcNow();

}  // namespace Tarnvale::KioskService

#endif  // TARNVALE_KIOSKD_CORE_UTC_TIME_H_
