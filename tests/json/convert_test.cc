// The conversions: what each kind reads as, and where the default answers.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();

Json ArrayOf(const Json& element) {
  Json array = Json::Array();
  array.Append(element);
  return array;
}

Json ObjectOf(const Json& member) {
  Json object = Json::Object();
  object.Set("a", member);
  return object;
}

TEST(JsonAsBool, ReadsBools) {
  EXPECT_TRUE(Json(true).AsBool(false));
  EXPECT_FALSE(Json(false).AsBool(true));
}

TEST(JsonAsBool, TakesEveryNumberButZeroForTrue) {
  EXPECT_FALSE(Json(0).AsBool(true));
  EXPECT_FALSE(Json(-0.0).AsBool(true));
  for (const double number : {1.0, -1.0, 1e-300, kInfinity, kNan}) {
    EXPECT_TRUE(Json(number).AsBool(false)) << number;
  }
}

TEST(JsonAsBool, TakesTwoTextsForTrueAndAllOthersForFalse) {
  EXPECT_TRUE(Json("true").AsBool(false));
  EXPECT_TRUE(Json("1").AsBool(false));
  for (const char* text : {"", "yes", "True", "TRUE", "true ", " 1", "01", "1.0", "2", "false"}) {
    EXPECT_FALSE(Json(text).AsBool(true)) << text;
  }
}

TEST(JsonAsBool, AnswersTheDefaultForTheOtherKinds) {
  for (const bool fallback : {true, false}) {
    EXPECT_EQ(Json().AsBool(fallback), fallback);
    EXPECT_EQ(ArrayOf(!fallback).AsBool(fallback), fallback);
    EXPECT_EQ(ObjectOf(!fallback).AsBool(fallback), fallback);
  }
}

TEST(JsonAsNumber, ReadsNumbersAndBools) {
  EXPECT_EQ(Json(-2.5).AsNumber(7), -2.5);
  EXPECT_EQ(Json(0).AsNumber(7), 0);
  EXPECT_TRUE(std::isnan(Json(kNan).AsNumber(7)));
  EXPECT_EQ(Json(true).AsNumber(7), 1);
  EXPECT_EQ(Json(false).AsNumber(7), 0);
}

TEST(JsonAsNumber, ReadsTheLeadingNumberOfAText) {
  EXPECT_EQ(Json("42.5").AsNumber(7), 42.5);
  EXPECT_EQ(Json(" -3e2kg").AsNumber(7), -300);
  EXPECT_EQ(Json("0x10").AsNumber(7), 16);
  EXPECT_EQ(Json("inf").AsNumber(7), kInfinity);
  EXPECT_EQ(Json("text").AsNumber(7), 0);
  EXPECT_EQ(Json(" ").AsNumber(7), 0);
}

TEST(JsonAsNumber, AnswersTheDefaultForTheOthers) {
  EXPECT_EQ(Json("").AsNumber(7.5), 7.5);
  EXPECT_EQ(Json().AsNumber(7.5), 7.5);
  EXPECT_EQ(ArrayOf(1).AsNumber(7.5), 7.5);
  EXPECT_EQ(ObjectOf(1).AsNumber(7.5), 7.5);
}

TEST(JsonAsInt, CutsNumbersTowardZero) {
  EXPECT_EQ(Json(42.9).AsInt(7), 42);
  EXPECT_EQ(Json(-42.9).AsInt(7), -42);
  EXPECT_EQ(Json(0.5).AsInt(7), 0);
  EXPECT_EQ(Json(std::int64_t{1800000000000}).AsInt(7), 1800000000000);
}

TEST(JsonAsInt, ReadsBoolsAndTexts) {
  EXPECT_EQ(Json(true).AsInt(7), 1);
  EXPECT_EQ(Json(false).AsInt(7), 0);
  EXPECT_EQ(Json("42.9").AsInt(7), 42);
  EXPECT_EQ(Json("-1e3 s").AsInt(7), -1000);
  EXPECT_EQ(Json("text").AsInt(7), 0);
}

TEST(JsonAsInt, AnswersTheDefaultForTheOthers) {
  EXPECT_EQ(Json().AsInt(7), 7);
  EXPECT_EQ(Json("").AsInt(7), 7);
  EXPECT_EQ(ArrayOf(1).AsInt(7), 7);
  EXPECT_EQ(ObjectOf(1).AsInt(7), 7);
}

// Only null gives the default as it stands; the other kinds without a reading carry it as a double.
TEST(JsonAsInt, RoundsALongDefaultForAllButNull) {
  constexpr std::int64_t kOdd = 9007199254740993;

  EXPECT_EQ(Json().AsInt(kOdd), kOdd);
  EXPECT_EQ(Json("").AsInt(kOdd), kOdd - 1);
  EXPECT_EQ(Json::Array().AsInt(kOdd), kOdd - 1);
  EXPECT_EQ(Json::Object().AsInt(kOdd), kOdd - 1);
}

TEST(JsonAsInt, AnswersTheDefaultForWhatIsNotFinite) {
  for (const double number : {kNan, -kNan, kInfinity, -kInfinity}) {
    EXPECT_EQ(Json(number).AsInt(7), 7) << number;
  }
  EXPECT_EQ(Json("nan").AsInt(7), 7);
  EXPECT_EQ(Json("-inf").AsInt(7), 7);
  EXPECT_EQ(Json("1e999").AsInt(7), 7);
}

TEST(JsonAsInt, GivesTheLowestIntegerForAFiniteValueOutOfRange) {
  EXPECT_EQ(Json(std::numeric_limits<double>::max()).AsInt(7), kLowest);
  EXPECT_EQ(Json(9223372036854775808.0).AsInt(7), kLowest);
  EXPECT_EQ(Json("-1e300").AsInt(7), kLowest);
}

TEST(JsonAsString, ReadsTextsBoolsAndNumbers) {
  EXPECT_EQ(Json("text").AsString("d"), "text");
  EXPECT_EQ(Json("").AsString("d"), "");
  EXPECT_EQ(Json(true).AsString("d"), "true");
  EXPECT_EQ(Json(false).AsString("d"), "false");
  EXPECT_EQ(Json(42).AsString("d"), "42");
  EXPECT_EQ(Json(3.14159265).AsString("d"), "3.14159");
  EXPECT_EQ(Json(1e21).AsString("d"), "1e+21");
}

TEST(JsonAsString, AnswersTheDefaultForTheOtherKinds) {
  EXPECT_EQ(Json().AsString("d"), "d");
  EXPECT_EQ(ArrayOf("text").AsString("d"), "d");
  EXPECT_EQ(ObjectOf("text").AsString("d"), "d");
}

}  // namespace
}  // namespace Tarnvale::KioskService
