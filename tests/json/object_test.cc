// Reading texts that should hold an object.

#include "json/object.h"

#include <gtest/gtest.h>

namespace Tarnvale::KioskService {
namespace {

TEST(ParseObjectOrEmpty, GivesTheObject) {
  EXPECT_EQ(ParseObjectOrEmpty(R"({"status":"enrolled"})").Dump(), R"({"status":"enrolled"})");
  EXPECT_EQ(ParseObjectOrEmpty(R"( {"a":[1]} trailing)").Dump(), R"({"a":[1]})");
}

TEST(ParseObjectOrEmpty, GivesAnEmptyObjectForAnythingElse) {
  for (const char* text : {"[1,2]", "", "null", "1", "\"{}\"", "true", "{\"a\":1", "<html>"}) {
    const Json value = ParseObjectOrEmpty(text);
    EXPECT_TRUE(value.IsObject()) << text;
    EXPECT_EQ(value.Dump(), "{}") << text;
  }
}

TEST(StringMember, GivesTheTextOfAString) {
  const Json object = ParseObjectOrEmpty(R"({"a":"text","b":"","c":"a\u0000b"})");

  EXPECT_EQ(StringMember(object, "a"), "text");
  EXPECT_EQ(StringMember(object, "b"), "");
  EXPECT_EQ(StringMember(object, "c"), std::string("a\0b", 3));
}

TEST(StringMember, ConvertsNothing) {
  const Json object =
      ParseObjectOrEmpty(R"({"null":null,"bool":true,"number":1,"array":["a"],"object":{}})");

  for (const std::string& key : object.keys)
    EXPECT_EQ(StringMember(object, key), "") << key;
  EXPECT_EQ(StringMember(object, "absent"), "");
  EXPECT_EQ(StringMember(Json("text"), "text"), "");
}

TEST(TextOrNull, IsNullForTheEmptyTextAlone) {
  EXPECT_EQ(TextOrNull("").Dump(), "null");
  EXPECT_EQ(TextOrNull("text").Dump(), R"("text")");
  EXPECT_EQ(TextOrNull(" ").Dump(), R"(" ")");
}

}  // namespace
}  // namespace Tarnvale::KioskService
