// What the parser reads, and what it says of the rest.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "json/json.h"

namespace Tarnvale::KioskService {
namespace {

using std::string_view_literals::operator""sv;

struct Accepted {
  std::string_view text;
  std::string dump;  // What the parsed value writes back.
};

struct Refused {
  std::string_view text;
  std::string error;
};

template <std::size_t Count>
void ExpectReadAs(const Accepted (&rows)[Count]) {
  for (const Accepted& row : rows) {
    std::string error;
    const std::optional<Json> value = Json::Parse(row.text, &error);
    EXPECT_EQ(value ? value->Dump() : error, row.dump) << row.text;
  }
}

template <std::size_t Count>
void ExpectRefused(const Refused (&rows)[Count]) {
  for (const Refused& row : rows) {
    std::string error;
    const std::optional<Json> value = Json::Parse(row.text, &error);
    EXPECT_EQ(value ? "read as " + value->Dump() : error, row.error) << row.text;
  }
}

TEST(JsonParse, ReadsWhatItsHeaderShows) {
  ExpectReadAs({{R"({"a":1} trailing)", R"({"a":1})"}, {"007", "7"}});
  ExpectRefused({{"[1,]", "expected number at offset 3"}});
}

TEST(JsonParse, ReadsEveryKindOfValue) {
  ExpectReadAs({
      {"null", "null"},
      {"true", "true"},
      {"false", "false"},
      {"12", "12"},
      {R"("text")", R"("text")"},
      {"[]", "[]"},
      {"{}", "{}"},
      {R"([1,[2],{"a":[]}])", R"([1,[2],{"a":[]}])"},
      {R"({"a":{"b":[null]},"":""})", R"({"a":{"b":[null]},"":""})"},
  });
}

TEST(JsonParse, LooksAtNothingBehindTheFirstValue) {
  ExpectReadAs({
      {R"({"a":1}xyz)", R"({"a":1})"},
      {"[1]]", "[1]"},
      {"[]{", "[]"},
      {"{}}", "{}"},
      {R"("a"b")", R"("a")"},
      {"1x", "1"},
      {"0x10", "0"},
      {"1 2", "1"},
      {"nullnull", "null"},
      {"true\0"sv, "true"},
  });
}

TEST(JsonParse, SkipsTheFourBytesOfWhitespaceEverywhere) {
  ExpectReadAs({
      {"\t\n\r 1", "1"},
      {"\t\n\r [\t\n\r ]", "[]"},
      {"\t\n\r {\t\n\r }", "{}"},
      {"[\t\n\r 1\t\n\r ,\t\n\r 2\t\n\r ]", "[1,2]"},
      {"{\t\n\r \"a\"\t\n\r :\t\n\r 1\t\n\r ,\t\n\r \"b\"\t\n\r :2\t\n\r }", R"({"a":1,"b":2})"},
  });
}

TEST(JsonParse, TakesNoOtherByteForWhitespace) {
  ExpectRefused({
      {"\v1", "expected number at offset 0"},
      {"\f1", "expected number at offset 0"},
      {"\0001"sv, "expected number at offset 0"},
      {"\u00a01", "expected number at offset 0"},
      {"\ufeff1", "expected number at offset 0"},
      {"[1\v]", "expected ',' or ']' at offset 2"},
      {"{\v}", "expected object key at offset 1"},
      {"{\"a\"\f:1}", "expected ':' at offset 4"},
  });
}

TEST(JsonParse, DoesNotLookAtTheByteBehindALiteral) {
  ExpectReadAs({{"trueish", "true"}, {"falsey", "false"}, {"nullable", "null"}});
  ExpectRefused({{"[trueish]", "expected ',' or ']' at offset 5"}});
}

TEST(JsonParse, RefusesABadLiteralAtItsFirstByte) {
  ExpectRefused({
      {"tru", "bad literal at offset 0"},
      {"t", "bad literal at offset 0"},
      {"trUe", "bad literal at offset 0"},
      {"fals]", "bad literal at offset 0"},
      {" nul", "bad literal at offset 1"},
      {"[nil]", "bad literal at offset 1"},
      {"TRUE", "expected number at offset 0"},
      {"[NaN]", "expected number at offset 1"},
  });
}

TEST(JsonParse, ScansNumbersLoosely) {
  ExpectReadAs({
      {"007", "7"}, {".5", "0.5"},    {"5.", "5"},        {"+5", "5"},       {"-5", "-5"},
      {"1-2", "1"}, {"1.2.3", "1.2"}, {"e5", "0"},        {"--1", "0"},      {"+-1", "0"},
      {"-0", "0"},  {"1e3", "1000"},  {"1E+3", "1000"},   {"1e-3", "0.001"}, {"1e", "1"},
      {"1e+", "1"}, {"1e400", "inf"}, {"-1e400", "-inf"}, {"1e-400", "0"},   {".e1", "0"},
      {"1+", "1"},  {"[1-2]", "[1]"},
  });
}

TEST(JsonParse, RefusesANumberWithoutADigitBehindItsLastByte) {
  ExpectRefused({
      {"-", "expected number at offset 1"},
      {"+-.eE", "expected number at offset 5"},
      {"x", "expected number at offset 0"},
      {"[-]", "expected number at offset 2"},
      {"'a'", "expected number at offset 0"},
      {"Infinity", "expected number at offset 0"},
      {",", "expected number at offset 0"},
      {"]", "expected number at offset 0"},
      {"}", "expected number at offset 0"},
  });
}

TEST(JsonParse, KeepsOnlyTheDoubleOfALongInteger) {
  ExpectReadAs({
      {"12345678901234567890", "1.23457e+19"},
      {"9007199254740992", "9007199254740992"},
      {"9007199254740993", "9007199254740992"},
      {"-9223372036854775808", "-9223372036854775808"},
  });
}

TEST(JsonParse, ReadsArrays) {
  ExpectReadAs({{"[ ]", "[]"}, {"[1]", "[1]"}, {"[1,2,3]", "[1,2,3]"}, {"[[],[[]]]", "[[],[[]]]"}});
  ExpectRefused({
      {"[", "unexpected end of input at offset 1"},
      {"[ ", "unexpected end of input at offset 2"},
      {"[1", "unterminated array at offset 2"},
      {"[1 ", "unterminated array at offset 3"},
      {"[1,", "unexpected end of input at offset 3"},
      {"[1, ", "unexpected end of input at offset 4"},
      {"[1 2]", "expected ',' or ']' at offset 3"},
      {"[1}", "expected ',' or ']' at offset 2"},
      {"[1:2]", "expected ',' or ']' at offset 2"},
      {"[,1]", "expected number at offset 1"},
      {"[1,]", "expected number at offset 3"},
      {"[1,,2]", "expected number at offset 3"},
      {"[[1]", "unterminated array at offset 4"},
  });
}

TEST(JsonParse, ReadsObjects) {
  ExpectReadAs({{"{ }", "{}"}, {R"({"b":1,"a":2})", R"({"b":1,"a":2})"}});
  ExpectRefused({
      {"{", "expected object key at offset 1"},
      {"{ ", "expected object key at offset 2"},
      {"{1:2}", "expected object key at offset 1"},
      {"{,}", "expected object key at offset 1"},
      {R"({"a")", "expected ':' at offset 4"},
      {R"({"a" )", "expected ':' at offset 5"},
      {R"({"a",1})", "expected ':' at offset 4"},
      {R"({"a":)", "unexpected end of input at offset 5"},
      {R"({"a":1)", "unterminated object at offset 6"},
      {R"({"a":1 )", "unterminated object at offset 7"},
      {R"({"a":1])", "expected ',' or '}' at offset 6"},
      {R"({"a":1 "b":2})", "expected ',' or '}' at offset 7"},
      {R"({"a":1,)", "expected object key at offset 7"},
      {R"({"a":1,})", "expected object key at offset 7"},
      {R"({"a":1,,"b":2})", "expected object key at offset 7"},
      {R"({"a)", "unterminated string at offset 3"},
      {R"({"a":})", "expected number at offset 5"},
  });
}

TEST(JsonParse, KeepsTheFirstPlaceAndTheLastValueOfARepeatedKey) {
  ExpectReadAs({
      {R"({"a":1,"a":2})", R"({"a":2})"},
      {R"({"a":1,"b":2,"a":{"c":3}})", R"({"a":{"c":3},"b":2})"},
      {R"({"a":1,"\u0061":2})", R"({"a":2})"},
  });
  EXPECT_EQ(Json::Parse(R"({"a":1,"a":2})")->Size(), 1U);
}

TEST(JsonParse, RefusesAnInputWithoutAValueAtItsEnd) {
  ExpectRefused({
      {"", "unexpected end of input at offset 0"},
      {"   ", "unexpected end of input at offset 3"},
      {" \t\r\n", "unexpected end of input at offset 4"},
  });
}

TEST(JsonParse, CountsTheOffsetInBytes) {
  const std::string text = "[\"" + std::string(100000, '\xC3') + "\" x";

  std::string error;
  EXPECT_FALSE(Json::Parse(text, &error).has_value());

  EXPECT_EQ(error, "expected ',' or ']' at offset 100004");
}

TEST(JsonParse, TellsTheFirstErrorOnly) {
  ExpectRefused({{R"([tru,"\x",-)", "bad literal at offset 1"}});
}

TEST(JsonParse, LeavesTheErrorAloneOnSuccess) {
  std::string error = "as it was";

  EXPECT_TRUE(Json::Parse("1", &error).has_value());

  EXPECT_EQ(error, "as it was");
}

TEST(JsonParse, NeedsNobodyToReadTheError) {
  EXPECT_FALSE(Json::Parse("[1,]").has_value());
  EXPECT_FALSE(Json::Parse("[1,]", nullptr).has_value());
}

TEST(JsonParse, ReadsNoByteBehindItsView) {
  constexpr std::string_view kText = R"("ab"true1[1]{"a":1})";

  EXPECT_FALSE(Json::Parse(kText.substr(0, 3)).has_value());
  EXPECT_FALSE(Json::Parse(kText.substr(4, 3)).has_value());
  EXPECT_EQ(Json::Parse(kText.substr(8, 1))->Dump(), "1");
  EXPECT_FALSE(Json::Parse(kText.substr(9, 2)).has_value());
  EXPECT_FALSE(Json::Parse(kText.substr(12, 6)).has_value());
}

}  // namespace
}  // namespace Tarnvale::KioskService
