// Making values, looking into them, and changing them.

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

TEST(JsonValue, IsNullUntilItIsMadeOfSomething) {
  const Json value;

  EXPECT_EQ(value.kind, JsonKind::kNull);
  EXPECT_FALSE(value.boolean);
  EXPECT_EQ(value.number, 0);
  EXPECT_EQ(value.text, "");
  EXPECT_TRUE(value.items.empty() && value.keys.empty() && value.values.empty());
}

TEST(JsonValue, TakesTheKindOfWhatItIsMadeOf) {
  EXPECT_EQ(Json(true).kind, JsonKind::kBool);
  EXPECT_EQ(Json(1.5).kind, JsonKind::kNumber);
  EXPECT_EQ(Json(std::int64_t{1}).kind, JsonKind::kNumber);
  EXPECT_EQ(Json(1).kind, JsonKind::kNumber);
  EXPECT_EQ(Json("text"s).kind, JsonKind::kString);
  EXPECT_EQ(Json("text").kind, JsonKind::kString);
  EXPECT_EQ(Json::Array().kind, JsonKind::kArray);
  EXPECT_EQ(Json::Object().kind, JsonKind::kObject);
}

TEST(JsonValue, NumbersItsKindsInTheirOrder) {
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kNull), 0U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kBool), 1U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kNumber), 2U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kString), 3U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kArray), 4U);
  EXPECT_EQ(static_cast<unsigned>(JsonKind::kObject), 5U);
}

TEST(JsonValue, AnswersToItsOwnKindAlone) {
  const Json values[] = {Json(), Json(true), Json(1), Json(""), Json::Array(), Json::Object()};
  for (const Json& value : values) {
    EXPECT_EQ(value.IsNull(), &value == &values[0]);
    EXPECT_EQ(value.IsBool(), &value == &values[1]);
    EXPECT_EQ(value.IsNumber(), &value == &values[2]);
    EXPECT_EQ(value.IsString(), &value == &values[3]);
    EXPECT_EQ(value.IsArray(), &value == &values[4]);
    EXPECT_EQ(value.IsObject(), &value == &values[5]);
  }
}

TEST(JsonValue, HoldsA64BitIntegerAsADouble) {
  EXPECT_EQ(Json(std::int64_t{9007199254740993}).number, 9007199254740992.0);
  EXPECT_EQ(Json(std::int64_t{-9007199254740993}).number, -9007199254740992.0);
}

TEST(JsonSize, CountsElementsAndMembers) {
  EXPECT_EQ(Json::Parse("[1,2,3]")->Size(), 3U);
  EXPECT_EQ(Json::Parse(R"({"a":1,"b":2})")->Size(), 2U);
  EXPECT_EQ(Json::Array().Size(), 0U);
  EXPECT_EQ(Json("text").Size(), 0U);
  EXPECT_EQ(Json(7).Size(), 0U);
  EXPECT_EQ(Json().Size(), 0U);
}

TEST(JsonAt, FindsElementsAndMembersByPosition) {
  const Json array = *Json::Parse("[1,2]");
  const Json object = *Json::Parse(R"({"b":1,"a":2})");

  EXPECT_EQ(&array.At(1), &array.items[1]);
  EXPECT_EQ(&object.At(0), &object.values[0]);
  EXPECT_EQ(object.At(1).AsInt(0), 2);
}

TEST(JsonAt, AnswersTheSharedNullOtherwise) {
  const Json& sharedNull = Json().At(0);

  EXPECT_TRUE(sharedNull.IsNull());
  EXPECT_EQ(&Json::Parse("[1,2]")->At(2), &sharedNull);
  EXPECT_EQ(&Json::Parse(R"({"a":1})")->At(1), &sharedNull);
  EXPECT_EQ(&Json::Array().At(static_cast<std::size_t>(-1)), &sharedNull);
  EXPECT_EQ(&Json("text").At(0), &sharedNull);
  EXPECT_EQ(&Json(7).At(0), &sharedNull);
}

TEST(JsonGet, FindsTheMemberOfExactlyThatName) {
  const Json object = *Json::Parse(R"({"a":1,"A":2,"":3,"a\u0000":4})");

  EXPECT_EQ(object.Get("a").AsInt(0), 1);
  EXPECT_EQ(object.Get("A").AsInt(0), 2);
  EXPECT_EQ(object.Get("").AsInt(0), 3);
  EXPECT_EQ(object.Get("a\0"s).AsInt(0), 4);
  EXPECT_EQ(&object.Get("a"), &object.values[0]);
}

TEST(JsonGet, AnswersTheSharedNullOtherwise) {
  const Json object = *Json::Parse(R"({"a":1})");
  const Json& sharedNull = Json().Get("a");

  EXPECT_TRUE(sharedNull.IsNull());
  EXPECT_EQ(&object.Get("b"), &sharedNull);
  EXPECT_EQ(&Json(7).Get("a"), &sharedNull);
  EXPECT_EQ(&Json("a").Get("a"), &sharedNull);
  EXPECT_EQ(&Json::Parse(R"(["a"])")->Get("a"), &sharedNull);
}

TEST(JsonGet, AnswersTheSameNullOnEveryThread) {
  const Json* elsewhere = nullptr;

  std::thread([&elsewhere] { elsewhere = &Json().Get("a"); }).join();

  EXPECT_EQ(elsewhere, &Json().Get("a"));
}

TEST(JsonHas, TellsAMemberThatIsNullFromNone) {
  Json object = Json::Object();
  object.Set("k", Json());

  EXPECT_TRUE(object.Has("k"));
  EXPECT_TRUE(object.Get("k").IsNull());
  EXPECT_EQ(object.keys, std::vector<std::string>{"k"});
  EXPECT_FALSE(object.Has("K"));
  EXPECT_FALSE(Json("k").Has("k"));
  EXPECT_FALSE(Json::Parse(R"(["k"])")->Has("k"));
}

TEST(JsonSet, AppendsNewMembersAndReplacesOldOnesInPlace) {
  Json object = Json::Object();
  object.Set("a", 1);
  object.Set("b", 2);
  object.Set("a", "new");

  EXPECT_EQ(object.keys, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(object.values.size(), 2U);
  EXPECT_EQ(object.Get("a").text, "new");
  EXPECT_EQ(object.Get("b").number, 2);
}

TEST(JsonSet, TurnsEveryOtherKindIntoAnObjectOfThatMember) {
  for (const Json& before : {Json(), Json(true), Json(7), Json("text"), *Json::Parse("[1,2]")}) {
    Json value = before;

    value.Set("a", 1);

    EXPECT_EQ(value.Dump(), R"({"a":1})") << before.Dump();
    EXPECT_EQ(value.Size(), 1U);
  }
}

TEST(JsonSet, KeepsACopyOfWhatItIsGiven) {
  Json member = Json::Array();
  Json object = Json::Object();
  object.Set("a", member);

  member.Append(1);

  EXPECT_EQ(object.Dump(), R"({"a":[]})");
}

TEST(JsonAppend, AddsAtTheEnd) {
  Json array = Json::Array();
  array.Append(1);
  array.Append("two");
  array.Append(Json::Object());

  EXPECT_EQ(array.Dump(), R"([1,"two",{}])");
}

TEST(JsonAppend, TurnsEveryOtherKindIntoAnArrayOfThatElement) {
  for (const Json& before :
       {Json(), Json(true), Json(7), Json("text"), *Json::Parse(R"({"a":1})")}) {
    Json value = before;

    value.Append(1);

    EXPECT_EQ(value.Dump(), "[1]") << before.Dump();
    EXPECT_EQ(value.Size(), 1U);
  }
}

TEST(JsonAppend, StartsAnewWhenTheValueWasAnArrayBefore) {
  Json value = *Json::Parse("[1,2]");
  value.Set("a", 1);
  value.Append(3);
  EXPECT_EQ(value.Dump(), "[3]");

  value.Set("b", 2);
  EXPECT_EQ(value.Dump(), R"({"b":2})");
}

}  // namespace
}  // namespace Tarnvale::KioskService
