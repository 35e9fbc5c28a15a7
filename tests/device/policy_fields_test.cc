#include "device/policy_fields.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace Tarnvale::KioskService {
namespace {

Json Value(const std::string& text) {
  const std::optional<Json> value = Json::Parse(text);
  EXPECT_TRUE(value.has_value()) << text;
  return value.value_or(Json());
}

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr std::int32_t kUntouched = -77;

TEST(ReadWholeNumber, AcceptsWholeNumbersUpToBothLimits) {
  for (const double accepted : {240.0, 0.0, -0.0, 1.0, 15.0, 239.0}) {
    std::int32_t number = kUntouched;

    EXPECT_TRUE(ReadWholeNumber(Json(accepted), 0, 240, number)) << accepted;
    EXPECT_EQ(number, static_cast<std::int32_t>(accepted));
  }
}

TEST(ReadWholeNumber, RefusesWhatIsOutsideOrNotWhole) {
  for (const double refused : {2.5, -1.0, 241.0, 240.5, 15.5, 1e-300, -1e-300, 4294967296.0, 1e300,
                               -1e300, kInfinity, -kInfinity, kNotANumber}) {
    std::int32_t number = kUntouched;

    EXPECT_FALSE(ReadWholeNumber(Json(refused), 0, 240, number)) << refused;
    EXPECT_EQ(number, kUntouched) << refused;
  }
}

TEST(ReadWholeNumber, RefusesEveryOtherKind) {
  for (const char* const refused : {"\"15\"", "null", "true", "[15]", "{\"a\":15}"}) {
    std::int32_t number = kUntouched;

    EXPECT_FALSE(ReadWholeNumber(Value(refused), 0, 240, number)) << refused;
    EXPECT_EQ(number, kUntouched) << refused;
  }
}

TEST(ParseClock, ReadsFiveBytesAsMinutesAfterMidnight) {
  struct Row {
    const char* text;
    std::int32_t expected;
  };
  const Row rows[] = {{"22:00", 1320}, {"00:00", 0},    {"00:01", 1},    {"07:59", 479},
                      {"09:30", 570},  {"19:05", 1145}, {"20:00", 1200}, {"23:59", 1439}};

  for (const Row& row : rows) {
    std::int32_t minutes = kUntouched;

    EXPECT_TRUE(ParseClock(Json(row.text), minutes)) << row.text;
    EXPECT_EQ(minutes, row.expected) << row.text;
  }
}

TEST(ParseClock, RefusesEveryOtherText) {
  const std::string rows[] = {
      "7:00",
      "24:00",
      "07:60",
      "",
      "22:0",
      "22:000",
      " 22:00",
      "22:00 ",
      "22.00",
      "2200",
      "22-00",
      "2a:00",
      "a2:00",
      "22:a0",
      "22:0a",
      "99:99",
      "-1:00",
      "+1:00",
      "22::0",
      ":2200",
      "1 :00",
      " 1:00",
      "22:60",
      "23:99",
      "24:59",
      "30:00",
      "22:00\n",
      std::string("22\0"
                  "00",
                  5),
      "\xD9\xA1:00",
  };

  for (const std::string& row : rows) {
    std::int32_t minutes = kUntouched;

    EXPECT_FALSE(ParseClock(Json(row), minutes)) << row;
    EXPECT_EQ(minutes, kUntouched) << row;
  }
}

TEST(ParseClock, RefusesEveryOtherKind) {
  for (const char* const refused : {"null", "true", "22", "1320", "[\"22:00\"]", "{}"}) {
    std::int32_t minutes = kUntouched;

    EXPECT_FALSE(ParseClock(Value(refused), minutes)) << refused;
    EXPECT_EQ(minutes, kUntouched) << refused;
  }
}

TEST(ParseDays, ReadsUpToSevenDaysInAnyOrder) {
  struct Row {
    const char* text;
    std::uint32_t expected;
  };
  const Row rows[] = {{"[1,5]", 0x22},
                      {"[]", 0},
                      {"[0]", 0x01},
                      {"[6]", 0x40},
                      {"[1,2,3,4,5]", 0x3E},
                      {"[5,0,3]", 0x29},
                      {"[6,5,4,3,2,1,0]", 0x7F}};

  for (const Row& row : rows) {
    std::uint32_t mask = 0xFFFF;

    EXPECT_TRUE(ParseDays(Value(row.text), mask)) << row.text;
    EXPECT_EQ(mask, row.expected) << row.text;
  }
}

TEST(ParseDays, RefusesAnythingElse) {
  for (const char* const refused :
       {"[1,1]", "[7]", "[-1]", "[2.5]", "[0,1,2,3,4,5,6,0]", "[0,1,2,3,4,5,6,7]", "[\"1\"]",
        "[true]", "[null]", "[[1]]", "[1e300]", "[1e999]", "[1,2,7]", "null", "1", "\"1\"", "true",
        "{\"0\":1}"}) {
    std::uint32_t mask = 0xFFFF;

    EXPECT_FALSE(ParseDays(Value(refused), mask)) << refused;
    EXPECT_EQ(mask, 0xFFFFU) << refused;
  }
}

TEST(ParseDays, RefusesADayThatIsNoNumberAtAll) {
  Json days = Json::Array();
  days.Append(kNotANumber);
  std::uint32_t mask = 0xFFFF;

  EXPECT_FALSE(ParseDays(days, mask));
  EXPECT_EQ(mask, 0xFFFFU);
}

TEST(FormatClock, WritesTwoDigitsEach) {
  EXPECT_EQ(FormatClock(0), "00:00");
  EXPECT_EQ(FormatClock(9), "00:09");
  EXPECT_EQ(FormatClock(60), "01:00");
  EXPECT_EQ(FormatClock(1320), "22:00");
  EXPECT_EQ(FormatClock(1439), "23:59");
}

TEST(FormatClock, WritesEveryMinuteAsParseClockReadsIt) {
  for (std::int32_t minutes = 0; minutes < 1440; ++minutes) {
    std::int32_t read = kUntouched;

    EXPECT_TRUE(ParseClock(Json(FormatClock(minutes)), read)) << minutes;
    EXPECT_EQ(read, minutes);
  }
}

TEST(DaysToJson, ListsTheSetDaysFromSundayUp) {
  EXPECT_EQ(DaysToJson(0).Dump(), "[]");
  EXPECT_EQ(DaysToJson(0x01).Dump(), "[0]");
  EXPECT_EQ(DaysToJson(0x3E).Dump(), "[1,2,3,4,5]");
  EXPECT_EQ(DaysToJson(0x40).Dump(), "[6]");
  EXPECT_EQ(DaysToJson(0x7F).Dump(), "[0,1,2,3,4,5,6]");
}

TEST(DaysToJson, WritesEveryMaskAsParseDaysReadsIt) {
  for (std::uint32_t mask = 0; mask < 128; ++mask) {
    std::uint32_t read = 0xFFFF;

    EXPECT_TRUE(ParseDays(DaysToJson(mask), read)) << mask;
    EXPECT_EQ(read, mask);
  }
}

}  // namespace
}  // namespace Tarnvale::KioskService
