#include "core/utc_time.h"

#include <ctime>

#include "core/clock.h"
#include "core/units.h"

namespace Tarnvale::KioskService {

std::string UtcNow() {
  const std::time_t now = WallNowMs() / kSecondMs;
  std::tm utc = {};
  char text[64] = {};
  // Every year that the clock can show is told, and none is longer than the buffer.
  (void)::gmtime_r(&now, &utc);
  (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

}  // namespace Tarnvale::KioskService
