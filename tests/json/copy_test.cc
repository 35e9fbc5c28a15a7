// Values own what they hold: copies are deep, moves leave nothing behind, and a value may be given
// a part of itself.

#include <gtest/gtest.h>

#include <utility>

#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kText[] = R"({"a":[1,"two",{"b":null}],"c":{"d":[true]}})";

Json Sample() {
  return *Json::Parse(kText);
}

// With every field in use, also those that its kind does not look at.
Json FullRecord() {
  Json value = Sample();
  value.boolean = true;
  value.number = 1.5;
  value.text = "left over";
  value.items.emplace_back("left over");
  return value;
}

void ExpectFullRecord(const Json& value) {
  EXPECT_EQ(value.Dump(), kText);
  EXPECT_TRUE(value.boolean);
  EXPECT_EQ(value.number, 1.5);
  EXPECT_EQ(value.text, "left over");
  ASSERT_EQ(value.items.size(), 1U);
  EXPECT_EQ(value.items[0].text, "left over");
}

void ExpectEmptied(const Json& value) {
  EXPECT_EQ(value.text, "");
  EXPECT_TRUE(value.items.empty());
  EXPECT_TRUE(value.keys.empty());
  EXPECT_TRUE(value.values.empty());
}

TEST(JsonCopy, CopiesAllFields) {
  const Json original = FullRecord();

  const Json copy(original);
  Json assigned = Json::Array();
  assigned = original;

  ExpectFullRecord(copy);
  ExpectFullRecord(assigned);
  ExpectFullRecord(original);
}

TEST(JsonCopy, SharesNothingWithItsOriginal) {
  Json original = Sample();
  Json copy = original;

  copy.values[0].items[2].Set("b", 1);
  original.Set("c", 2);

  EXPECT_EQ(original.Dump(), R"({"a":[1,"two",{"b":null}],"c":2})");
  EXPECT_EQ(copy.Dump(), R"({"a":[1,"two",{"b":1}],"c":{"d":[true]}})");
}

TEST(JsonCopy, ReplacesAllThatWasThere) {
  Json value = FullRecord();

  value = Json(7);

  EXPECT_EQ(value.Dump(), "7");
  ExpectEmptied(value);
}

TEST(JsonCopy, TakesItselfOrAPartOfItself) {
  Json value = Sample();

  const Json& itself = value;
  value = itself;
  EXPECT_EQ(value.Dump(), kText);

  value = value.Get("a");
  EXPECT_EQ(value.Dump(), R"([1,"two",{"b":null}])");

  value = value.At(2);
  EXPECT_EQ(value.Dump(), R"({"b":null})");
}

TEST(JsonMove, TakesAllFieldsAndEmptiesTheSource) {
  Json source = FullRecord();
  Json constructed(std::move(source));
  ExpectFullRecord(constructed);
  ExpectEmptied(source);  // NOLINT(bugprone-use-after-move): what a move leaves is the subject

  Json assigned = Sample();
  assigned = std::move(constructed);
  ExpectFullRecord(assigned);
  ExpectEmptied(constructed);  // NOLINT(bugprone-use-after-move)
}

TEST(JsonMove, LeavesAShortTextBehindEmptyToo) {
  Json source("ab");

  const Json target(std::move(source));

  EXPECT_EQ(target.text, "ab");
  EXPECT_EQ(source.text, "");  // NOLINT(bugprone-use-after-move)
}

TEST(JsonMove, TakesItselfOrAPartOfItself) {
  Json value = Sample();

  Json& itself = value;
  value = std::move(itself);
  EXPECT_EQ(value.Dump(), kText);

  value = std::move(value.values[0]);
  EXPECT_EQ(value.Dump(), R"([1,"two",{"b":null}])");

  value = std::move(value.items[2]);
  EXPECT_EQ(value.Dump(), R"({"b":null})");
}

TEST(JsonMove, NeverThrows) {
  // What lets a growing vector move its values rather than copy them.
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<Json>);
  EXPECT_TRUE(std::is_nothrow_move_assignable_v<Json>);
}

TEST(JsonSet, TakesTheValueItselfOrAPartOfIt) {
  Json object = *Json::Parse(R"({"a":[1]})");

  object.Set("b", object.Get("a"));
  EXPECT_EQ(object.Dump(), R"({"a":[1],"b":[1]})");

  object.Set("a", object);
  EXPECT_EQ(object.Dump(), R"({"a":{"a":[1],"b":[1]},"b":[1]})");

  object.Set(object.keys[1], object.Get("a").Get("a"));
  EXPECT_EQ(object.Get("b").Dump(), "[1]");
}

TEST(JsonSet, TakesAPartOfTheArrayThatItReplaces) {
  Json value = *Json::Parse("[[1],2]");

  value.Set("a", value.At(0));

  EXPECT_EQ(value.Dump(), R"({"a":[1]})");
}

TEST(JsonAppend, TakesTheValueItselfOrAPartOfIt) {
  Json array = *Json::Parse("[[1]]");

  array.Append(array.At(0));
  EXPECT_EQ(array.Dump(), "[[1],[1]]");

  array.Append(array);
  EXPECT_EQ(array.Dump(), "[[1],[1],[[1],[1]]]");
}

TEST(JsonAppend, TakesAPartOfTheObjectThatItReplaces) {
  Json value = *Json::Parse(R"({"a":[1]})");

  value.Append(value.Get("a"));

  EXPECT_EQ(value.Dump(), "[[1]]");
}

}  // namespace
}  // namespace Tarnvale::KioskService
