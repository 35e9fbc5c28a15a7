#include "core/utc_time.h"

#include <cstdint>
#include <limits>
#include <string>

#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

using UtcNowTest = ServiceTest;

TEST_F(UtcNowTest, TellsTheWallClockInSeconds) {
  struct Row {
    std::int64_t wallMs;
    std::string expected;
  };
  const Row rows[] = {
      {TestClock::kStartWallMs, "2027-01-15T08:00:00Z"},
      {0, "1970-01-01T00:00:00Z"},
      {999, "1970-01-01T00:00:00Z"},
      {951'827'696'000, "2000-02-29T12:34:56Z"},
      {253'402'300'799'999, "9999-12-31T23:59:59Z"},
      {std::numeric_limits<std::int64_t>::max(), "292278994-08-17T07:12:55Z"},
  };

  for (const Row& row : rows) {
    TestClock::SetWallMs(row.wallMs);
    EXPECT_EQ(UtcNow(), row.expected);
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService
