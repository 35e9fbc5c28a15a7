#include "device/updates_window.h"

#include <limits>
#include <ostream>
#include <set>
#include <string>

#include "support/time_zone.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::uint32_t kSunday = 1U << 0;
constexpr std::uint32_t kMonday = 1U << 1;
constexpr std::uint32_t kSaturday = 1U << 6;
constexpr std::uint32_t kEveryDay = 0x7F;

// 02:00 to 05:00, and 22:00 to 04:00.
UpdatesPolicy ByNight(std::uint32_t days) {
  return {.automatic = true, .windowStart = 120, .windowEnd = 300, .days = days};
}
UpdatesPolicy PastMidnight(std::uint32_t days) {
  return {.automatic = true, .windowStart = 1320, .windowEnd = 240, .days = days};
}

struct Moment {
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

std::ostream& operator<<(std::ostream& out, const Moment& moment) {
  return out << moment.month << '-' << moment.day << ' ' << moment.hour << ':' << moment.minute
             << ':' << moment.second;
}

// The key at a local time of 2026, when the fifth of October is a Monday.
std::string KeyAt(const UpdatesPolicy& policy, const Moment& at) {
  return WindowKey(policy, LocalTime(2026, at.month, at.day, at.hour, at.minute, at.second));
}

struct Row {
  Moment at;
  std::string expected;
};

class WindowKeyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    UseTimeZone(kUtc);
  }
};

TEST_F(WindowKeyTest, NamesTheDayOnWhichTheWindowOpened) {
  EXPECT_EQ(KeyAt(ByNight(kMonday), {10, 5, 2, 0}), "2026-10-05");
  EXPECT_EQ(KeyAt(PastMidnight(kMonday), {10, 6, 1, 0}), "2026-10-05");
  EXPECT_EQ(KeyAt(ByNight(kMonday), {10, 5, 5, 0}), "");
}

TEST_F(WindowKeyTest, IsOpenFromItsStartToBeforeItsEnd) {
  const Row rows[] = {
      {{10, 5, 1, 59, 59}, ""},
      {{10, 5, 2, 0}, "2026-10-05"},
      {{10, 5, 2, 0, 1}, "2026-10-05"},
      {{10, 5, 3, 30}, "2026-10-05"},
      {{10, 5, 4, 59, 59}, "2026-10-05"},
      {{10, 5, 5, 0}, ""},
      {{10, 5, 14, 0}, ""},
      {{10, 6, 2, 0}, ""},
      {{10, 4, 2, 0}, ""},
      {{10, 12, 2, 0}, "2026-10-12"},
  };

  for (const Row& row : rows)
    EXPECT_EQ(KeyAt(ByNight(kMonday), row.at), row.expected) << row.at;
}

TEST_F(WindowKeyTest, KeepsItsNameThroughMidnight) {
  const Row rows[] = {
      {{10, 5, 21, 59, 59}, ""},
      {{10, 5, 22, 0}, "2026-10-05"},
      {{10, 5, 23, 0}, "2026-10-05"},
      {{10, 5, 23, 59, 59}, "2026-10-05"},
      {{10, 6, 0, 0}, "2026-10-05"},
      {{10, 6, 1, 0}, "2026-10-05"},
      {{10, 6, 3, 59, 59}, "2026-10-05"},
      {{10, 6, 4, 0}, ""},
      {{10, 6, 22, 0}, ""},
      {{10, 6, 23, 0}, ""},
      {{10, 7, 1, 0}, ""},
      {{10, 5, 0, 0}, ""},
      {{10, 5, 3, 0}, ""},
  };

  for (const Row& row : rows)
    EXPECT_EQ(KeyAt(PastMidnight(kMonday), row.at), row.expected) << row.at;
}

TEST_F(WindowKeyTest, AsksTheMaskAboutTheDayOfTheOpening) {
  for (int day = 0; day < 7; ++day) {  // 2026-10-04 is a Sunday
    const std::uint32_t mask = 1U << day;
    const std::string key =
        "2026-10-" + std::string(4 + day < 10 ? "0" : "") + std::to_string(4 + day);

    EXPECT_EQ(KeyAt(ByNight(mask), {10, 4 + day, 3, 0}), key);
    EXPECT_EQ(KeyAt(ByNight(kEveryDay & ~mask), {10, 4 + day, 3, 0}), "") << day;
    EXPECT_EQ(KeyAt(PastMidnight(mask), {10, 5 + day, 3, 0}), key);
    EXPECT_EQ(KeyAt(PastMidnight(kEveryDay & ~mask), {10, 5 + day, 3, 0}), "") << day;
  }
}

TEST_F(WindowKeyTest, TakesAMaskOfNoDaysForNever) {
  EXPECT_EQ(KeyAt(ByNight(0), {10, 5, 3, 0}), "");
  EXPECT_EQ(KeyAt(PastMidnight(0), {10, 5, 23, 0}), "");
}

TEST_F(WindowKeyTest, DoesNotAskWhetherThePolicyIsAutomatic) {
  UpdatesPolicy policy = ByNight(kEveryDay);
  policy.automatic = false;

  EXPECT_EQ(KeyAt(policy, {10, 5, 3, 0}), "2026-10-05");
}

TEST_F(WindowKeyTest, KnowsWindowsOfOneMinute) {
  const UpdatesPolicy first = {.windowStart = 0, .windowEnd = 1};
  const UpdatesPolicy last = {.windowStart = 1438, .windowEnd = 1439};

  EXPECT_EQ(KeyAt(first, {10, 5, 0, 0, 59}), "2026-10-05");
  EXPECT_EQ(KeyAt(first, {10, 5, 0, 1}), "");
  EXPECT_EQ(KeyAt(last, {10, 5, 23, 58, 59}), "2026-10-05");
  EXPECT_EQ(KeyAt(last, {10, 5, 23, 59}), "");
}

TEST_F(WindowKeyTest, ReachesMidnightWithAnEndOfZero) {
  const UpdatesPolicy policy = {.windowStart = 1320, .windowEnd = 0};

  EXPECT_EQ(KeyAt(policy, {10, 5, 23, 59, 59}), "2026-10-05");
  EXPECT_EQ(KeyAt(policy, {10, 6, 0, 0}), "");
}

TEST_F(WindowKeyTest, IsOpenAllDayWhenTheLimitsAreOne) {
  // No reader accepts such a policy; by the rule for windows past midnight it never closes.
  const UpdatesPolicy policy = {.windowStart = 120, .windowEnd = 120};

  EXPECT_EQ(KeyAt(policy, {10, 5, 2, 0}), "2026-10-05");
  EXPECT_EQ(KeyAt(policy, {10, 5, 23, 59, 59}), "2026-10-05");
  EXPECT_EQ(KeyAt(policy, {10, 6, 1, 59, 59}), "2026-10-05");
  EXPECT_EQ(KeyAt(policy, {10, 6, 2, 0}), "2026-10-06");
}

TEST_F(WindowKeyTest, PassesTheEndOfAMonthAndOfAYear) {
  EXPECT_EQ(KeyAt(PastMidnight(kEveryDay), {11, 1, 1, 0}), "2026-10-31");
  EXPECT_EQ(WindowKey(PastMidnight(kEveryDay), LocalTime(2026, 12, 31, 23, 59, 59)), "2026-12-31");
  EXPECT_EQ(WindowKey(PastMidnight(kEveryDay), LocalTime(2027, 1, 1, 0, 0)), "2026-12-31");
  EXPECT_EQ(WindowKey(PastMidnight(kEveryDay), LocalTime(2028, 3, 1, 0, 0)), "2028-02-29");
}

TEST_F(WindowKeyTest, FillsItsNumbersWithZeros) {
  EXPECT_EQ(WindowKey(ByNight(kEveryDay), LocalTime(987, 3, 4, 3, 0)), "0987-03-04");
}

TEST_F(WindowKeyTest, IsEmptyAtAMomentThatNoCalendarHolds) {
  EXPECT_EQ(WindowKey(ByNight(kEveryDay), std::numeric_limits<std::time_t>::max()), "");
  EXPECT_EQ(WindowKey({.windowStart = 0, .windowEnd = 1439}, 0), "1970-01-01");
}

TEST_F(WindowKeyTest, LooksAtTheTimeZoneAnewEachTime) {
  const std::time_t twoInUtc = LocalTime(2026, 7, 6, 2, 0);
  EXPECT_EQ(WindowKey(ByNight(kMonday), twoInUtc), "2026-07-06");

  UseTimeZone("EST5");

  EXPECT_EQ(WindowKey(ByNight(kMonday), twoInUtc), "");
  EXPECT_EQ(WindowKey(ByNight(kMonday), twoInUtc + 5 * 3600), "2026-07-06");
}

class WindowKeyOnClockChange : public ::testing::Test {
 protected:
  void SetUp() override {
    UseTimeZone(kCentralEurope);
  }
};

TEST_F(WindowKeyOnClockChange, NeverOpensAWindowInTheHourThatIsLeftOut) {
  const UpdatesPolicy policy = {.windowStart = 120, .windowEnd = 180};
  const std::time_t midnight = LocalTime(2026, 3, 29, 0, 0);

  for (std::time_t now = midnight; now < midnight + 23 * 3600; now += 60)
    EXPECT_EQ(WindowKey(policy, now), "") << now;
}

TEST_F(WindowKeyOnClockChange, CutsAWindowThatTheLeftOutHourBegins) {
  const std::time_t one = LocalTime(2026, 3, 29, 1, 0);

  EXPECT_EQ(WindowKey(ByNight(kSunday), one + 3599), "");
  EXPECT_EQ(WindowKey(ByNight(kSunday), one + 3600), "2026-03-29") << "it is 03:00 now";
  EXPECT_EQ(WindowKey(ByNight(kSunday), one + 3 * 3600 - 1), "2026-03-29");
  EXPECT_EQ(WindowKey(ByNight(kSunday), one + 3 * 3600), "");
}

TEST_F(WindowKeyOnClockChange, OpensOneWindowInTheHourThatComesTwice) {
  const UpdatesPolicy policy = {.windowStart = 120, .windowEnd = 180, .days = kSunday};
  const std::time_t two = LocalTime(2026, 10, 25, 2, 0, 0, 1);

  EXPECT_EQ(WindowKey(policy, two - 1), "");
  EXPECT_EQ(WindowKey(policy, two), "2026-10-25");
  EXPECT_EQ(WindowKey(policy, two + 3600), "2026-10-25") << "it is 02:00 again";
  EXPECT_EQ(WindowKey(policy, two + 7199), "2026-10-25");
  EXPECT_EQ(WindowKey(policy, two + 7200), "");
}

TEST_F(WindowKeyOnClockChange, OpensAWindowTwiceUnderOneNameWhenItEndsInThatHour) {
  const UpdatesPolicy policy = {.windowStart = 150, .windowEnd = 165, .days = kSunday};
  const std::time_t halfPastTwo = LocalTime(2026, 10, 25, 2, 30, 0, 1);

  EXPECT_EQ(WindowKey(policy, halfPastTwo), "2026-10-25");
  EXPECT_EQ(WindowKey(policy, halfPastTwo + 1800), "");
  EXPECT_EQ(WindowKey(policy, halfPastTwo + 3600), "2026-10-25");
}

TEST_F(WindowKeyOnClockChange, KeepsOneNameThroughANightOf25Hours) {
  std::set<std::string> keys;
  const std::time_t opening = LocalTime(2026, 10, 24, 22, 0);
  for (std::time_t now = opening; now < opening + 7 * 3600; now += 60)
    keys.insert(WindowKey(PastMidnight(kSaturday), now));

  EXPECT_EQ(keys, std::set<std::string>{"2026-10-24"});
  EXPECT_EQ(WindowKey(PastMidnight(kSaturday), opening + 7 * 3600), "");
}

TEST_F(WindowKeyOnClockChange, NamesTheDayBeforeInTheFirstHourAfterADayOf23Hours) {
  // 86400 seconds before Monday 00:30 it was Saturday 23:30, because the Sunday was short.
  const std::time_t midnight = LocalTime(2026, 3, 30, 0, 0);

  EXPECT_EQ(WindowKey(PastMidnight(kEveryDay), midnight - 1), "2026-03-29");
  EXPECT_EQ(WindowKey(PastMidnight(kEveryDay), midnight), "2026-03-28");
  EXPECT_EQ(WindowKey(PastMidnight(kEveryDay), midnight + 3599), "2026-03-28");
  EXPECT_EQ(WindowKey(PastMidnight(kEveryDay), midnight + 3600), "2026-03-29");
  EXPECT_EQ(WindowKey(PastMidnight(kSunday), midnight), "") << "the days ask about Saturday";
}

}  // namespace
}  // namespace Tarnvale::KioskService
