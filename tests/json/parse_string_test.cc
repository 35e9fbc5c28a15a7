// Strings as the parser reads them: bytes as they stand, and the escapes.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_literals::operator""s;

struct Row {
  std::string body;  // Between the quotes.
  std::string text;  // What the string holds.
};

template <std::size_t Count>
void ExpectHolds(const Row (&rows)[Count]) {
  for (const Row& row : rows) {
    const std::optional<Json> value = Json::Parse('"' + row.body + '"');
    ASSERT_TRUE(value.has_value()) << row.body;
    EXPECT_EQ(value->kind, JsonKind::kString) << row.body;
    EXPECT_EQ(value->text, row.text) << row.body;
  }
}

std::string ErrorOf(const std::string& text) {
  std::string error;
  const std::optional<Json> value = Json::Parse(text, &error);
  return value ? "read as " + value->Dump() : error;
}

TEST(JsonParseString, KeepsBytesAsTheyStand) {
  ExpectHolds({
      {"", ""},
      {"plain", "plain"},
      {"\x01\x1f\t\n\r", "\x01\x1f\t\n\r"},
      {"a\0b"s, "a\0b"s},
      {"\x7f", "\x7f"},
      {"\xC3\xA9", "\xC3\xA9"},
      {"\x80\xff\xC0\xAF", "\x80\xff\xC0\xAF"},
      {"{[:,]}", "{[:,]}"},
  });
}

TEST(JsonParseString, ReadsTheShortEscapes) {
  ExpectHolds({
      {R"(\")", "\""},
      {R"(\\)", "\\"},
      {R"(\/)", "/"},
      {R"(\b)", "\x08"},
      {R"(\f)", "\x0C"},
      {R"(\n)", "\x0A"},
      {R"(\r)", "\x0D"},
      {R"(\t)", "\x09"},
      {R"(a\\\"b\/)", "a\\\"b/"},
  });
}

TEST(JsonParseString, WritesCodeUnitsAsUtf8) {
  ExpectHolds({
      {R"(\u0000)", "\0"s},
      {R"(a\u0000b)", "a\0b"s},
      {R"(\u0041)", "A"},
      {R"(\u007f)", "\x7f"},
      {R"(\u0080)", "\xC2\x80"},
      {R"(\u07ff)", "\xDF\xBF"},
      {R"(\u0800)", "\xE0\xA0\x80"},
      {R"(\ud7ff)", "\xED\x9F\xBF"},
      {R"(\ue000)", "\xEE\x80\x80"},
      {R"(\uffff)", "\xEF\xBF\xBF"},
  });
}

TEST(JsonParseString, ReadsHexadecimalOfEitherCase) {
  ExpectHolds({
      {R"(\u00e9\u00E9)", "\xC3\xA9\xC3\xA9"},
      {R"(\uabcd\uABCD)", "\xEA\xAF\x8D\xEA\xAF\x8D"},
      {R"(\uefEF)", "\xEE\xBF\xAF"},
      {R"(\u0939)", "\xE0\xA4\xB9"},
  });
}

TEST(JsonParseString, JoinsASurrogatePair) {
  ExpectHolds({
      {R"(\ud83d\ude00)", "\xF0\x9F\x98\x80"},
      {R"(\uD83D\uDE00)", "\xF0\x9F\x98\x80"},
      {R"(\ud800\udc00)", "\xF0\x90\x80\x80"},
      {R"(\udbff\udfff)", "\xF4\x8F\xBF\xBF"},
      {R"(\ud83d\ude00\u0041)", "\xF0\x9F\x98\x80"s + "A"},
  });
}

TEST(JsonParseString, KeepsALoneSurrogateAsThreeBytes) {
  ExpectHolds({
      {R"(\ud83d)", "\xED\xA0\xBD"},
      {R"(\ud800)", "\xED\xA0\x80"},
      {R"(\udbff)", "\xED\xAF\xBF"},
      {R"(\udc00)", "\xED\xB0\x80"},
      {R"(\udfff)", "\xED\xBF\xBF"},
      {R"(\ud83dx)", "\xED\xA0\xBDx"},
      {R"(\ud83d\n)", "\xED\xA0\xBD\n"},
      {R"(\ud83d\\u0041)", "\xED\xA0\xBD\\u0041"},
  });
}

TEST(JsonParseString, KeepsBothUnitsThatMakeNoPair) {
  ExpectHolds({
      {R"(\ud83d\u0041)", "\xED\xA0\xBD"s + "A"},
      {R"(\ud83d\udbff)", "\xED\xA0\xBD\xED\xAF\xBF"},
      {R"(\ud83d\ue000)", "\xED\xA0\xBD\xEE\x80\x80"},
      {R"(\ude00\ud83d)", "\xED\xB8\x80\xED\xA0\xBD"},
      // The second unit has been used up, so it begins no pair with the third.
      {R"(\ud83d\ud83d\ude00)", "\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80"},
  });
}

TEST(JsonParseString, RefusesAStringWithoutItsEnd) {
  EXPECT_EQ(ErrorOf("\""), "unterminated string at offset 1");
  EXPECT_EQ(ErrorOf("\"abc"), "unterminated string at offset 4");
  EXPECT_EQ(ErrorOf(R"("abc\")"), "unterminated string at offset 6");
  EXPECT_EQ(ErrorOf("\"\\u0041"), "unterminated string at offset 7");
}

TEST(JsonParseString, RefusesABackslashAtTheEnd) {
  EXPECT_EQ(ErrorOf("\"\\"), "unterminated escape at offset 2");
  EXPECT_EQ(ErrorOf("\"ab\\"), "unterminated escape at offset 4");
  EXPECT_EQ(ErrorOf(R"("\ud83d\)"), "unterminated escape at offset 8");
}

TEST(JsonParseString, RefusesAnUnknownEscape) {
  for (const char* letter : {"x", "0", "a", "v", "'", "U", "N", "\n", " "}) {
    EXPECT_EQ(ErrorOf("\"\\" + std::string(letter) + "\""), "bad escape at offset 2") << letter;
  }
  EXPECT_EQ(ErrorOf("\"\\\0\""s), "bad escape at offset 2");
}

TEST(JsonParseString, RefusesAUnicodeEscapeThatMeetsTheEndOfTheInput) {
  EXPECT_EQ(ErrorOf(R"("\u)"), "short \\u escape at offset 3");
  EXPECT_EQ(ErrorOf(R"("\u004)"), "short \\u escape at offset 3");
  EXPECT_EQ(ErrorOf(R"("\u00")"), "short \\u escape at offset 3");
  EXPECT_EQ(ErrorOf(R"("\ud83d\u)"), "short \\u escape at offset 9");
  EXPECT_EQ(ErrorOf(R"("\ud83d\ude0)"), "short \\u escape at offset 9");
}

TEST(JsonParseString, RefusesABadHexadecimalDigitWhereItStands) {
  EXPECT_EQ(ErrorOf(R"("\u004")"), "bad hex digit at offset 6");
  EXPECT_EQ(ErrorOf(R"("\uG041")"), "bad hex digit at offset 3");
  EXPECT_EQ(ErrorOf(R"("\u0g41")"), "bad hex digit at offset 4");
  EXPECT_EQ(ErrorOf(R"("\u+041")"), "bad hex digit at offset 3");
  EXPECT_EQ(ErrorOf(R"("\u 041")"), "bad hex digit at offset 3");
  for (const char* digit : {"/", ":", "@", "G", "`", "g"}) {
    EXPECT_EQ(ErrorOf("\"\\u004" + std::string(digit) + "\""), "bad hex digit at offset 6");
  }
  EXPECT_EQ(ErrorOf(R"("\ud83d\ude0x")"), "bad hex digit at offset 12");
}

}  // namespace
}  // namespace Tarnvale::KioskService
