// Doubles as integers and as text.

#include "json/number.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace Tarnvale::KioskService {
namespace {

constexpr double kTwoToThe63 = 9223372036854775808.0;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();

TEST(TruncateToInt64, CutsTowardZero) {
  EXPECT_EQ(TruncateToInt64(0), 0);
  EXPECT_EQ(TruncateToInt64(0.999), 0);
  EXPECT_EQ(TruncateToInt64(-0.999), 0);
  EXPECT_EQ(TruncateToInt64(42.9), 42);
  EXPECT_EQ(TruncateToInt64(-42.9), -42);
  EXPECT_EQ(TruncateToInt64(9007199254740992.0), 9007199254740992);
}

TEST(TruncateToInt64, GoesUpToTheEndsOfTheRange) {
  EXPECT_EQ(TruncateToInt64(std::nextafter(kTwoToThe63, 0)), 9223372036854774784);
  EXPECT_EQ(TruncateToInt64(-kTwoToThe63), kLowest);
}

TEST(TruncateToInt64, GivesTheLowestIntegerForWhatDoesNotFit) {
  EXPECT_EQ(TruncateToInt64(kTwoToThe63), kLowest);
  EXPECT_EQ(TruncateToInt64(std::nextafter(-kTwoToThe63, -kInfinity)), kLowest);
  EXPECT_EQ(TruncateToInt64(1e300), kLowest);
  EXPECT_EQ(TruncateToInt64(kInfinity), kLowest);
  EXPECT_EQ(TruncateToInt64(-kInfinity), kLowest);
  EXPECT_EQ(TruncateToInt64(kNan), kLowest);
}

TEST(NumberText, ReadsAsItsHeaderShows) {
  EXPECT_EQ(NumberText(42), "42");
  EXPECT_EQ(NumberText(0.5), "0.5");
  EXPECT_EQ(NumberText(1e21), "1e+21");
}

TEST(NumberText, WritesWholeNumbersWithAllTheirDigits) {
  EXPECT_EQ(NumberText(0), "0");
  EXPECT_EQ(NumberText(-0.0), "0");
  EXPECT_EQ(NumberText(-7), "-7");
  EXPECT_EQ(NumberText(1234567), "1234567");
  EXPECT_EQ(NumberText(1800000000000), "1800000000000");
  EXPECT_EQ(NumberText(1e18), "1000000000000000000");
  EXPECT_EQ(NumberText(std::nextafter(kTwoToThe63, 0)), "9223372036854774784");
  EXPECT_EQ(NumberText(-kTwoToThe63), "-9223372036854775808");
}

TEST(NumberText, WritesAllOthersWithSixSignificantDigits) {
  EXPECT_EQ(NumberText(3.14159265), "3.14159");
  EXPECT_EQ(NumberText(-0.1), "-0.1");
  EXPECT_EQ(NumberText(1234567.5), "1.23457e+06");
  EXPECT_EQ(NumberText(0.00001), "1e-05");
  EXPECT_EQ(NumberText(-1.23456789e-300), "-1.23457e-300");
}

TEST(NumberText, WritesWholeNumbersBeyondTheRangeLikeFractions) {
  EXPECT_EQ(NumberText(kTwoToThe63), "9.22337e+18");
  EXPECT_EQ(NumberText(std::nextafter(-kTwoToThe63, -kInfinity)), "-9.22337e+18");
  EXPECT_EQ(NumberText(12345678901234567890.0), "1.23457e+19");
  EXPECT_EQ(NumberText(std::numeric_limits<double>::max()), "1.79769e+308");
}

TEST(NumberText, LetsWhatIsNoNumberThrough) {
  EXPECT_EQ(NumberText(kNan), "nan");
  EXPECT_EQ(NumberText(-kNan), "-nan");
  EXPECT_EQ(NumberText(kInfinity), "inf");
  EXPECT_EQ(NumberText(-kInfinity), "-inf");
}

}  // namespace
}  // namespace Tarnvale::KioskService
