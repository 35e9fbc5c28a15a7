#include "core/stop.h"

#include "core/clock.h"
#include "support/service_test.h"
#include "support/test_clock.h"

namespace Tarnvale::KioskService {
namespace {

using SleepUnlessStoppedTest = ServiceTest;

TEST_F(SleepUnlessStoppedTest, SleepsTheFullTimeWithoutAStop) {
  const std::int64_t before = SteadyNowMs();

  EXPECT_TRUE(SleepUnlessStopped(2000));
  EXPECT_EQ(SteadyNowMs() - before, 2000);
}

}  // namespace
}  // namespace Tarnvale::KioskService
