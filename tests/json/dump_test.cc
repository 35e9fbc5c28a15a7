// The compact text of a value.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

TEST(JsonDump, WritesEveryKind) {
  EXPECT_EQ(Json().Dump(), "null");
  EXPECT_EQ(Json(true).Dump(), "true");
  EXPECT_EQ(Json(false).Dump(), "false");
  EXPECT_EQ(Json(0.5).Dump(), "0.5");
  EXPECT_EQ(Json(42).Dump(), "42");
  EXPECT_EQ(Json("text").Dump(), "\"text\"");
  EXPECT_EQ(Json("").Dump(), "\"\"");
  EXPECT_EQ(Json::Array().Dump(), "[]");
  EXPECT_EQ(Json::Object().Dump(), "{}");
}

TEST(JsonDump, WritesAnUnknownKindAsNull) {
  Json odd("text");
  odd.kind = static_cast<JsonKind>(6);
  Json array = Json::Array();
  array.Append(odd);

  EXPECT_EQ(odd.Dump(), "null");
  EXPECT_EQ(array.Dump(), "[null]");
}

TEST(JsonDump, WritesNoSpaceAndNoLineBreak) {
  const std::optional<Json> value = Json::Parse(" { \"a\" : [ 1 ,\n 2 , { } ] , \"b\" : null } ");

  EXPECT_EQ(value->Dump(), R"({"a":[1,2,{}],"b":null})");
}

TEST(JsonDump, WritesMembersInTheirOrder) {
  Json object = Json::Object();
  object.Set("b", 1);
  object.Set("a", 2);
  object.Set("b", 3);

  EXPECT_EQ(object.Dump(), R"({"b":3,"a":2})");
}

TEST(JsonDump, WritesMembersThatAreNull) {
  Json object = Json::Object();
  object.Set("k", Json());

  EXPECT_EQ(object.Dump(), R"({"k":null})");
}

TEST(JsonDump, SeparatesNestedContainers) {
  for (const char* text : {"[[],[]]", "[{},{}]", R"({"a":{},"b":[]})", R"([[[1],2],3])",
                           R"({"a":{"b":{"c":1},"d":2},"e":3})", R"([{"a":[{"b":[]}]},[]])"}) {
    EXPECT_EQ(Json::Parse(text)->Dump(), text);
  }
}

TEST(JsonDump, EscapesKeysLikeStrings) {
  Json object = Json::Object();
  object.Set("a\"\\\n\x01", 1);

  EXPECT_EQ(object.Dump(), R"({"a\"\\\n\u0001":1})");
}

TEST(JsonDump, WritesWhatIsNoNumberAsTheLibraryDoes) {
  EXPECT_EQ(Json(std::numeric_limits<double>::quiet_NaN()).Dump(), "nan");
  EXPECT_EQ(Json(std::numeric_limits<double>::infinity()).Dump(), "inf");
  EXPECT_EQ(Json(-std::numeric_limits<double>::infinity()).Dump(), "-inf");
}

TEST(JsonEscapeString, WritesBytesBelow0x20AsEscapes) {
  const std::string expected[0x20] = {
      "\\u0000", "\\u0001", "\\u0002", "\\u0003", "\\u0004", "\\u0005", "\\u0006", "\\u0007",
      "\\b",     "\\t",     "\\n",     "\\u000b", "\\f",     "\\r",     "\\u000e", "\\u000f",
      "\\u0010", "\\u0011", "\\u0012", "\\u0013", "\\u0014", "\\u0015", "\\u0016", "\\u0017",
      "\\u0018", "\\u0019", "\\u001a", "\\u001b", "\\u001c", "\\u001d", "\\u001e", "\\u001f"};

  for (int byte = 0; byte < 0x20; ++byte) {
    EXPECT_EQ(Json::EscapeString(std::string(1, static_cast<char>(byte))), expected[byte]) << byte;
  }
}

TEST(JsonEscapeString, LeavesAllOtherBytesButTwoAlone) {
  for (int byte = 0x20; byte <= 0xFF; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const bool escaped = byte == '"' || byte == '\\';
    EXPECT_EQ(Json::EscapeString(text), (escaped ? "\\" : "") + text) << byte;
  }
}

TEST(JsonEscapeString, WritesNoQuotesAroundTheBody) {
  EXPECT_EQ(Json::EscapeString(""), "");
  EXPECT_EQ(Json::EscapeString("a/b\x7f\xC3\xA9"), "a/b\x7f\xC3\xA9");
  EXPECT_EQ(Json::EscapeString("say \"\\\"\n"), R"(say \"\\\"\n)");
  EXPECT_EQ(Json::EscapeString("a\0b"s), "a\\u0000b");
}

TEST(JsonEscapeString, IsUndoneByTheParser) {
  std::string every;
  for (int byte = 0; byte <= 0xFF; ++byte)
    every += static_cast<char>(byte);

  EXPECT_EQ(Json::Parse(Json(every).Dump())->text, every);
}

}  // namespace
}  // namespace Tarnvale::KioskService
